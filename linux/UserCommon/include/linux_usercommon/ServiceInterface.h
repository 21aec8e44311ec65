#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "linux_bus/Connection.h"
#include "usercommon/XPCConnection.h"

// How a message travels. A proxy hands a request to its channel, which writes the message on the caller's
// thread and sends it, or keeps the request until it is known who has the service's name. On the other end
// the loop's thread looks at what arrived without reading it: who sent it, which object, method and signature
// it is for, how large it is, and how much of that peer and of its user waits already. What is admitted waits
// in the private queue of its connection, where its arguments are read and its object is called. The object
// answers from any thread; the answer is written there and read on the private queue of the asking
// connection.
namespace cmn {

// One method of an interface.
struct ServiceMethod {
    std::string name;
    std::string in;   // signature of the arguments; only basic types
    std::string out;  // signature of the answer: one value, or none
    std::vector<std::string> inNames = {};
    bool noReply = false;                             // sent without asking for an answer
    bool slow = false;                                // its object works long
    std::size_t mostBytes = bus::kUsuallyRead;        // of the arguments; more is refused
    std::size_t mostAnswerBytes = bus::kUsuallyRead;  // more is an error for who asked
    // How long its askers wait. Afterwards nobody is told any more.
    std::chrono::nanoseconds deadline = kNoRequestDeadline;
};

struct ServiceDescription {
    std::string name;  // of the interface
    std::vector<ServiceMethod> methods;

    const ServiceMethod* find(std::string_view method) const;
};

class ServiceChannel;

// Delivers one message to a local object. Called on the private queue of the connection.
using ServiceHandler = std::function<void(const std::shared_ptr<ServiceChannel>& peer,
                                          const ServiceMethod& method, const bus::Question& question)>;

// One message for the other end.
struct ServiceRequest {
    std::string path;
    std::shared_ptr<const ServiceDescription> interface;
    const ServiceMethod* method = nullptr;
    std::function<bool(bus::Message&)> write;  // the arguments; false when they are too large
    // Reads the answer, which it may let go of; an error when it is not what was asked for. It or `onError`
    // is called once, on the private queue, unless the caller's deadline passes or the connection object is
    // destroyed before.
    std::function<std::optional<bus::Error>(bus::Message&)> onReply;
    RemoteErrorHandler onError;
    bus::Deadline deadline = bus::Deadline::max();  // the caller's
};

// The other end of a connection, as the typed stubs of a service see it. All operations may be called from
// any thread and only queue.
class ServiceChannel {
 public:
    virtual ~ServiceChannel() = default;

    virtual void call(ServiceRequest request) = 0;

    // Makes a local object callable by the other end, until the connection ends or is destroyed. The same
    // object gets the same path again. Whether the handler owns the object is its maker's choice.
    virtual bus::ObjectPath exportObject(const std::shared_ptr<const void>& object,
                                         std::shared_ptr<const ServiceDescription> interface,
                                         ServiceHandler handler) = 0;
};

// A service protocol as it travels over the bus: where its object is, what can be called, and the typed stubs
// of both directions.
class ServiceInterface : public XPCInterface {
 public:
    virtual const std::string& objectPath() const = 0;
    virtual std::shared_ptr<const ServiceDescription> description() const = 0;

    // A proxy of the object on the other end; nobody waits for answers after the deadline.
    virtual std::shared_ptr<XPCVersioning> createProxy(std::shared_ptr<ServiceChannel> channel,
                                                       RemoteErrorHandler onError,
                                                       bus::Deadline deadline) const = 0;

    // Delivers messages to a local object, which it owns. Null when the object does not speak this protocol.
    virtual ServiceHandler createHandler(const std::shared_ptr<XPCVersioning>& object) const = 0;
};

}  // namespace cmn
