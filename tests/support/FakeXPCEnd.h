#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "support/FakeDispatch.h"
#include "usercommon/SerialQueue.h"
#include "usercommon/XPCConnection.h"

namespace fake {

// One end of a connection: what lives on with its proxies when the connection object is gone. Messages are
// functions that call the object of the other end. Everything a user is told, and every message, comes on the
// private queue. Thread-safe.
class XPCEnd : public std::enable_shared_from_this<XPCEnd> {
 public:
    using Message = std::function<void(cmn::XPCVersioning& object)>;
    using Time = std::chrono::nanoseconds;
    // Larger messages fail.
    static constexpr std::size_t kMostBytes = std::size_t{16} * 1024 * 1024;

    explicit XPCEnd(std::shared_ptr<Dispatch> dispatch);
    ~XPCEnd();
    XPCEnd(const XPCEnd&) = delete;
    XPCEnd& operator=(const XPCEnd&) = delete;

    // Finds the service: its end of a new connection, or nothing. Without it nobody is at the other end but
    // the test.
    void setReach(std::function<std::shared_ptr<XPCEnd>()> reach);
    void setOther(std::weak_ptr<XPCEnd> client) { client_ = std::move(client); }

    void setInvalidationHandler(std::function<void()> handler);
    void setInterruptionHandler(std::function<void()> handler);
    void setExportedObject(std::shared_ptr<cmn::XPCVersioning> object);
    std::shared_ptr<cmn::XPCVersioning> exportedObject() const;
    bool hasHandlers() const;
    void setPeer(std::optional<cmn::XPCPeer> peer);
    std::optional<cmn::XPCPeer> peer() const;
    void setRejected();

    // Fails what waits, then calls the invalidation handler, once. `connection` is kept alive until then.
    void end(std::shared_ptr<void> connection);
    bool ended() const;
    void interrupt();
    // Forgets handlers, object and calls that wait.
    void abandon();

    void post(Dispatch::Task task) { queue_->post(std::move(task)); }
    // Calls the exported object, as coming from the peer; `onFailure` when there is none any more.
    void deliver(Message message, std::function<void(const std::string& why)> onFailure);

    // For an object that is an argument: kept for the other end to call, until the connection ends or is let
    // go of.
    std::weak_ptr<void> pass(std::shared_ptr<void> object);
    // Calls such an object, as coming from the peer; `onFailure` when it is not kept any more.
    template <typename Object, typename Call>
    void deliverTo(std::weak_ptr<void> object, Call call, std::function<void()> onFailure) {
        post([self = shared_from_this(), object = std::move(object), call = std::move(call),
              onFailure = std::move(onFailure)] {
            if (const auto kept = object.lock()) {
                const cmn::XPCPeerScope scope(self->peer());
                call(*static_cast<Object*>(kept.get()));
            } else {
                onFailure();
            }
        });
    }
    // A client's service, once a message reached it.
    std::shared_ptr<XPCEnd> service() const;

    // From a proxy: to the other end's object, or to the object that it passed along.
    void send(std::size_t bytes, Message message, const cmn::RemoteErrorHandler& onError);

    // What the other end calls to answer: leads to `reply` once and not after `limit`, when `reply` is
    // destroyed. Failing that, once nobody can answer any more, to `onError`.
    template <typename... Answer>
    std::pair<std::function<void(Answer...)>, int> keep(Time limit, std::function<void(Answer...)> reply,
                                                        cmn::RemoteErrorHandler onError) {
        const int id = addCall(
            {std::make_shared<std::function<void(Answer...)>>(std::move(reply)), std::move(onError)}, limit);
        auto guard = std::make_shared<Forgotten>(weak_from_this(), id);
        return {[weak = weak_from_this(), id, guard](Answer... answer) {
                    if (const auto self = weak.lock()) {
                        self->post([self, id, answer...] {
                            if (const std::optional<Call> call = self->takeCall(id)) {
                                const auto& kept =
                                    *std::static_pointer_cast<std::function<void(Answer...)>>(call->reply);
                                if (kept) {
                                    kept(answer...);
                                }
                            }
                        });
                    }
                },
                id};
    }
    void failCall(int id, const std::string& why);

    Time now() const { return dispatch_->now(); }

 private:
    struct Call {
        std::shared_ptr<void> reply;  // a function
        cmn::RemoteErrorHandler onError;
    };
    // Goes with the last copy of an answer's function.
    struct Forgotten {
        Forgotten(std::weak_ptr<XPCEnd> asking, int call) : end(std::move(asking)), id(call) {}
        ~Forgotten();
        Forgotten(const Forgotten&) = delete;
        Forgotten& operator=(const Forgotten&) = delete;
        const std::weak_ptr<XPCEnd> end;
        const int id;
    };

    int addCall(Call call, Time limit);
    std::optional<Call> takeCall(int id);
    void failAll();
    std::shared_ptr<XPCEnd> reachService();

    const std::shared_ptr<Dispatch> dispatch_;
    const std::shared_ptr<cmn::SerialQueue> queue_;
    std::weak_ptr<XPCEnd> client_;  // of a service's end
    mutable std::mutex mutex_;      // guards what follows, never held across a call
    std::function<std::shared_ptr<XPCEnd>()> reach_;
    std::shared_ptr<XPCEnd> service_;  // of a client's end
    std::function<void()> invalidation_, interruption_;
    std::shared_ptr<cmn::XPCVersioning> exportedObject_;
    std::optional<cmn::XPCPeer> peer_;
    std::set<std::shared_ptr<void>> passed_;
    std::map<int, Call> calls_;
    int lastCall_ = 0;
    bool ended_ = false;
    bool rejected_ = false;
};

// What a typed proxy of a wired connection holds.
struct XPCRemote {
    std::shared_ptr<XPCEnd> end;  // the proxy's own
    cmn::RemoteErrorHandler onError;
    XPCEnd::Time limit = cmn::kNoRequestDeadline;  // in the dispatch's time

    void tell(std::size_t bytes, XPCEnd::Message message) const {
        if (end->now() < limit) {
            end->send(bytes, std::move(message), onError);
        }
    }
    // `message(object, answer)` calls the object with the function that takes the answer.
    template <typename... Answer, typename Ask>
    void ask(std::size_t bytes, std::function<void(Answer...)> reply, Ask message) const {
        if (end->now() >= limit) {
            return;
        }
        auto kept = end->keep(limit, std::move(reply), onError);
        end->send(
            bytes,
            [message, answer = std::move(kept.first)](cmn::XPCVersioning& object) {
                message(object, answer);
            },
            [end = end, id = kept.second](const cmn::RemoteError& error) {
                end->failCall(id, error.description);
            });
    }
};

// A service's interface whose connections are wired to each other: its proxies send through an `XPCRemote`.
class WiredInterface : public cmn::XPCInterface {
 public:
    virtual std::shared_ptr<cmn::XPCVersioning> createProxy(XPCRemote remote) const = 0;
};

}  // namespace fake
