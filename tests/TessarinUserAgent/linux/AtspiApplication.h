#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/RawPeer.h"

namespace fake {

// Bits of the states that the tests need.
inline constexpr std::uint64_t kActive = 1U << 1;
inline constexpr std::uint64_t kEditable = 1U << 7;
inline constexpr std::uint64_t kIconified = 1U << 15;
inline constexpr std::uint64_t kShowing = 1U << 25;
inline constexpr std::uint64_t kSingleLine = 1U << 26;
inline constexpr std::uint64_t kField = kShowing | kEditable | kSingleLine;

// One object of an application's tree.
struct AtspiNode {
    std::uint32_t role = 39;  // panel
    std::uint64_t states = kShowing;
    std::string name;
    std::string identifier;
    std::map<std::string, std::string> attributes;
    std::string text;
    std::vector<std::string> children;  // paths, or "busname path" for objects of somebody else
    std::optional<int> childCount;      // as it claims; otherwise the truth
};

// An application on an accessibility bus that behaves as the test wants. Thread-safe. It does not register
// itself.
class AtspiApplication {
 public:
    explicit AtspiApplication(const std::string& busAddress);
    // Whether it can list those of an object's children that are in given states. All real ones do.
    void setSelects(bool selects);
    // Whether it then lists no more than it was asked for.
    void setHeedsLimit(bool heeds);

    std::string busName() const { return peer_->uniqueName(); }

    // A node is created by its first use. The root is an application with no children.
    void change(const std::string& path, const std::function<void(AtspiNode&)>& changes);
    std::string add(const std::string& parent, AtspiNode node);

    // A frame with a toolbar and an address field below the root. Returns the paths of frame and field.
    struct Window {
        std::string frame, field;
    };
    Window addWindow(const std::string& title, const std::string& url);

    // Calls of that method are answered by the handler instead; nothing is answered when it returns nothing.
    using Override = std::function<std::unique_ptr<QDBusMessage>(const QDBusMessage& call)>;
    void overrideMethod(const std::string& member, Override handler);
    void resetMethod(const std::string& member);

    // Calls that come while it is held are answered when it is released, in their order.
    void hold();
    void release();

    int callsOf(const std::string& member) const;
    int calls() const;

    // Sets a text as one edit does: one event for what is deleted, one for what is inserted.
    void edit(const std::string& path, const std::string& text);
    void emitTextChanged(const std::string& path, const std::string& detail, const std::string& part = "",
                         int offset = 0);
    void emitStateChanged(const std::string& path, const std::string& state, bool value);
    // As when the user brings the window to the front: it is active then, and no other one of this program.
    void activate(const std::string& path, const std::string& title);
    // As some browsers do: the window's states stay as they were, but it is not active.
    void minimise(const std::string& path, const std::string& title);

    static constexpr const char* kRoot = "/org/a11y/atspi/accessible/root";

 private:
    struct Held {
        QDBusMessage call;
        QDBusConnection connection;
    };

    void onCall(const QDBusMessage& call, QDBusConnection connection);
    QDBusMessage answer(const QDBusMessage& call);
    QDBusMessage property(const QDBusMessage& call, const AtspiNode& node) const;
    QDBusMessage matches(const QDBusMessage& call, const AtspiNode& node) const;
    void emitEvent(const std::string& path, const char* interface, const char* member,
                   const std::string& detail, const std::string& data, int offset);

    mutable std::mutex mutex_;  // guards what follows
    std::map<std::string, AtspiNode> nodes_;
    std::map<std::string, Override> overrides_;
    std::map<std::string, int> callCounts_;
    std::vector<Held> held_;
    bool isHeld_ = false;
    bool selects_ = true;
    bool heedsLimit_ = true;
    int lastNumber_ = 0;

    std::unique_ptr<RawPeer> peer_;  // last: its thread uses what is above
};

}  // namespace fake
