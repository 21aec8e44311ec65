#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace fake {

// A bus peer that says what the test wants, also what no contract allows. Its calls arrive on a thread of its
// own.
class RawPeer {
 public:
    using Handler = std::function<void(const QDBusMessage& message, QDBusConnection connection)>;

    explicit RawPeer(const std::string& address, Handler onCall = nullptr);
    // Leaves the bus.
    ~RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    std::string uniqueName() const;
    // Whether it got the name.
    bool own(const std::string& name);
    bool release(const std::string& name);
    bool hasOwner(const std::string& name);

    // Waits for the answer, at most 20 seconds. A message made with `message`.
    QDBusMessage call(const QDBusMessage& message) const;
    void send(const QDBusMessage& message) const;

    static QDBusMessage message(const std::string& destination, const std::string& path,
                                const std::string& interface, const std::string& member,
                                const QVariantList& arguments = {});

 private:
    class Object;
    class Thread;

    const QString name_;
    QDBusConnection connection_;
    std::unique_ptr<Thread> thread_;
    std::unique_ptr<Object> object_;
};

}  // namespace fake
