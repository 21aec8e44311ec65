#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "linux_usercommon/DBusTypes.h"
#include "usercommon/XPCConnection.h"

namespace cmn {

// One method of an interface.
struct DBusMethod {
    std::string name;
    std::string in;   // signature of the arguments
    std::string out;  // signature of the answer
    std::vector<std::string> inNames = {};
    bool noReply = false;  // sent without asking for an answer
};

struct DBusInterfaceDescription {
    std::string name;
    std::vector<DBusMethod> methods;

    const DBusMethod* find(std::string_view method) const;
};

// The answer to one incoming message. Copyable; any thread; the first answer counts. When all copies are gone
// without one, the caller gets an error instead of waiting for ever.
class DBusReply {
 public:
    using Send = std::function<void(std::variant<DBusArguments, DBusError>)>;

    // An empty `send` is a message that wants no answer.
    explicit DBusReply(Send send);

    void operator()(DBusArguments arguments) const;
    void error(const char* name, std::string message) const;

 private:
    struct State;
    std::shared_ptr<State> state_;
};

class DBusChannel;

// Delivers one message to a local object. The arguments have the types that the method's description says.
// Called on the private queue of the connection.
using DBusObjectHandler =
    std::function<void(const std::shared_ptr<DBusChannel>& peer, const std::string& method,
                       const DBusArguments& arguments, const DBusReply& reply)>;

// The other end of a connection, as the typed stubs of a service see it. All operations may be called from
// any thread and only queue.
class DBusChannel {
 public:
    using ReplyHandler = std::function<void(DBusArguments)>;

    virtual ~DBusChannel() = default;

    // Calls a method of the object at `path` on the other end. `onReply` gets arguments of the described
    // types; it or `onError` is called once, on the private queue, unless the connection object is destroyed
    // before. With a `noReply` method only `onError` may be called.
    virtual void call(const std::string& path, const DBusInterfaceDescription& interface,
                      const DBusMethod& method, DBusArguments arguments, ReplyHandler onReply,
                      RemoteErrorHandler onError) = 0;

    // Makes a local object callable by the other end, until the connection ends or is destroyed. The same
    // object gets the same path again. Whether the handler owns the object is its maker's choice.
    virtual DBusObjectPath exportObject(const std::shared_ptr<const void>& object,
                                        std::shared_ptr<const DBusInterfaceDescription> interface,
                                        DBusObjectHandler handler) = 0;
};

}  // namespace cmn
