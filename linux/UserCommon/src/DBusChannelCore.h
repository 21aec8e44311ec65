#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "BusConnection.h"
#include "DBusObjectTable.h"
#include "DBusThread.h"
#include "linux_usercommon/DBusChannel.h"
#include "linux_usercommon/DBusXPCInterface.h"
#include "linux_usercommon/SerialQueue.h"

namespace cmn {

// What the two kinds of connection, seen by the client and seen by the service, have in common: handlers,
// exported objects, calls that wait for their answer. The connection object and the proxies own it. Methods
// named "...OnThread" and the state they use belong to the D-Bus thread; everything else may be called from
// any thread.
class DBusChannelCore : public DBusChannel, public std::enable_shared_from_this<DBusChannelCore> {
 public:
    DBusChannelCore(std::shared_ptr<DBusThread> thread, std::shared_ptr<SerialQueue> queue);

    virtual void resume() = 0;
    // Keeps `connection` alive until its handler has been called.
    void invalidate(std::shared_ptr<void> connection);
    // The connection object is gone: forgets handlers, exported objects and waiting replies without calling
    // them.
    void abandon();

    void setInvalidationHandler(std::function<void()> handler);
    void setInterruptionHandler(std::function<void()> handler);
    void setRemoteObjectInterface(std::shared_ptr<const DBusXPCInterface> interface);
    void setExportedInterface(std::shared_ptr<const DBusXPCInterface> interface);
    void setExportedObject(std::shared_ptr<XPCVersioning> object);
    std::shared_ptr<XPCVersioning> remoteObjectProxy(RemoteErrorHandler onError);

    void call(const std::string& path, const DBusInterfaceDescription& interface, const DBusMethod& method,
              DBusArguments arguments, ReplyHandler onReply, RemoteErrorHandler onError) override;
    DBusObjectPath exportObject(const std::shared_ptr<const void>& object,
                                std::shared_ptr<const DBusInterfaceDescription> interface,
                                DBusObjectHandler handler) override;

 protected:
    struct PendingCall {
        OutgoingCall message;
        std::string member;  // the message's, which is gone once it is sent
        std::string out;     // signature of the expected answer
        bool noReply = false;
        ReplyHandler onReply;
        RemoteErrorHandler onError;
    };

    // What the other end is called: for messages and for people.
    virtual const std::string& peerName() const = 0;
    // Sends the call, keeps it for later, or fails it.
    virtual void startOnThread(PendingCall call) = 0;

    void publishExportedObject();
    void sendOnThread(BusConnection& bus, PendingCall call);
    // Any thread.
    void fail(const PendingCall& call, const DBusError& error);
    std::size_t pendingOnThread() const { return pending_.size(); }
    // An answer has come, or a call has failed on its own: there is room for another.
    virtual void roomOnThread() {}
    // Nobody wants an answer any more.
    virtual void abandonOnThread() { pending_.clear(); }
    void failPendingOnThread(const DBusError& error);
    // Ends the channel: waiting calls fail, then the handler is called, once.
    virtual void invalidateOnThread(const std::string& why);
    bool invalidOnThread() const { return invalid_; }

    // Keeps something alive until all that is in the private queue now has run.
    void keepForQueued(std::shared_ptr<void> kept);

    void notifyInterruption();
    // Hands an incoming call to its object on the private queue.
    void deliverOnThread(const std::shared_ptr<BusConnection>& bus, IncomingCall call);
    // Whether the other end may call at all; asked on the private queue.
    virtual bool accepts() const { return true; }

    const std::shared_ptr<DBusThread>& thread() const { return thread_; }
    const std::shared_ptr<SerialQueue>& queue() const { return queue_; }
    DBusError endedError() const;

    template <typename Core>
    std::shared_ptr<Core> self() {
        return std::static_pointer_cast<Core>(shared_from_this());
    }

 private:
    using Handler = std::function<void()>;

    void answeredOnThread(std::uint64_t id, const QDBusMessage& answer);
    void finish(const PendingCall& call, const QDBusMessage& answer) const;
    RemoteError toRemoteError(const DBusError& error) const;
    void notify(Handler DBusChannelCore::*handler, bool last);
    static DBusReply makeReply(const std::shared_ptr<BusConnection>& bus, const QDBusMessage& question);

    const std::shared_ptr<DBusThread> thread_;
    const std::shared_ptr<SerialQueue> queue_;
    DBusObjectTable objects_;
    std::atomic<unsigned> queuedCalls_{0};

    std::mutex mutex_;  // guards the properties, never held across a call
    Handler invalidationHandler_;
    Handler interruptionHandler_;
    std::shared_ptr<const DBusXPCInterface> remoteInterface_;
    std::shared_ptr<const DBusXPCInterface> exportedInterface_;
    std::shared_ptr<XPCVersioning> exportedObject_;

    // Of the D-Bus thread.
    std::map<std::uint64_t, PendingCall> pending_;
    std::uint64_t lastPending_ = 0;
    bool invalid_ = false;
    std::string whyInvalid_;
};

}  // namespace cmn
