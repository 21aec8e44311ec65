#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Admission.h"
#include "ExportedObjects.h"
#include "linux_usercommon/ServiceInterface.h"
#include "usercommon/SerialQueue.h"
#include "usercommon/XPCConnection.h"

namespace cmn {

// A connection, seen by the client or by the service: handlers, exported objects, calls and deliveries. It
// lives on while proxies use it. Any thread, unless something else is said.
class BusChannel : public XPCConnection,
                   public ServiceChannel,
                   public std::enable_shared_from_this<BusChannel> {
 public:
    explicit BusChannel(std::shared_ptr<SerialQueue> queue) : queue_(std::move(queue)) {}

    // The connection object as clients and services hold it; made once. Its end is the end of handlers and
    // exported objects.
    std::shared_ptr<XPCConnection> makeConnection();

    // Ends it: what waits fails, then the invalidation handler is called, once. `connection`, if any, is kept
    // alive until then.
    virtual void end(const std::string& why, std::shared_ptr<void> connection) = 0;

    void setInvalidationHandler(std::function<void()> handler) override;
    void setInterruptionHandler(std::function<void()> handler) override;
    void setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) override;
    void setExportedInterface(std::shared_ptr<const XPCInterface> interface) override;
    void setExportedObject(std::shared_ptr<XPCVersioning> object) override;
    void invalidate() override;
    std::shared_ptr<XPCVersioning> remoteObjectProxy(RemoteErrorHandler onError,
                                                     std::chrono::nanoseconds deadline) override;
    bus::ObjectPath exportObject(const std::shared_ptr<const void>& object,
                                 std::shared_ptr<const ServiceDescription> interface,
                                 ServiceHandler handler) override;

 protected:
    using Handler = std::function<void()>;

    // The connection object is gone: forgets handlers, exported objects and waiting replies without calling
    // them.
    virtual void abandon();
    // What the other end is called, for people.
    virtual const std::string& peerName() const = 0;
    // Whether the other end may still call; asked on the private queue, before each delivery.
    virtual bool accepts(const bus::Question& question) = 0;

    void publishExportedObject();
    const ExportedObjects& objects() const { return objects_; }
    // Writes the message on the calling thread and sends it. Answers come within `answerDeadline`.
    void send(bus::Connection& connection, const std::string& to, ServiceRequest request,
              std::chrono::nanoseconds answerDeadline);
    // Tells why it could not be sent, on the private queue.
    void fail(const ServiceRequest& request, const bus::Error& error);
    // Hands a message to its object on the private queue. `place` is kept until then.
    void deliver(bus::Question question, ExportedObjects::Found found, std::shared_ptr<Place> place);
    void tellInterruption();
    // Nothing is delivered and nobody told after it.
    void tellInvalidation(std::shared_ptr<void> connection);
    const std::shared_ptr<SerialQueue>& queue() const { return queue_; }

 private:
    void finish(const ServiceRequest& request, bus::Connection::Reply reply) const;
    void logFailure(const bus::Question& question, std::string_view why) const;
    RemoteError toRemoteError(const bus::Error& error) const;

    const std::shared_ptr<SerialQueue> queue_;
    ExportedObjects objects_;
    std::weak_ptr<XPCConnection> connection_;  // set before anybody else knows this object

    std::mutex mutex_;  // guards the properties, never held across a call
    Handler invalidationHandler_;
    Handler interruptionHandler_;
    std::shared_ptr<const ServiceInterface> remoteInterface_;
    std::shared_ptr<const ServiceInterface> exportedInterface_;
    std::shared_ptr<XPCVersioning> exportedObject_;
};

}  // namespace cmn
