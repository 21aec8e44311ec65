#pragma once

#include <memory>
#include <string>
#include <utility>

#include "usercommon/XPCConnection.h"

namespace fake {

// Another transport, the deadlines of whose proxies take a multiple of their time.
class HurriedTransport : public cmn::XPCTransport {
 public:
    HurriedTransport(std::shared_ptr<cmn::XPCTransport> real, double scale)
        : real_(std::move(real)), scale_(scale) {}

    std::shared_ptr<cmn::XPCConnection> createConnection(const std::string& machServiceName,
                                                         cmn::XPCConnectionOptions options) override {
        return std::make_shared<Connection>(real_->createConnection(machServiceName, options), scale_);
    }
    std::shared_ptr<cmn::XPCListener> createListener(const std::string& machServiceName) override {
        return real_->createListener(machServiceName);
    }

 private:
    class Connection : public cmn::XPCConnection {
     public:
        Connection(std::shared_ptr<cmn::XPCConnection> real, double scale)
            : real_(std::move(real)), scale_(scale) {}

        void setInvalidationHandler(std::function<void()> handler) override {
            real_->setInvalidationHandler(std::move(handler));
        }
        void setInterruptionHandler(std::function<void()> handler) override {
            real_->setInterruptionHandler(std::move(handler));
        }
        void setRemoteObjectInterface(std::shared_ptr<const cmn::XPCInterface> interface) override {
            real_->setRemoteObjectInterface(std::move(interface));
        }
        void setExportedInterface(std::shared_ptr<const cmn::XPCInterface> interface) override {
            real_->setExportedInterface(std::move(interface));
        }
        void setExportedObject(std::shared_ptr<cmn::XPCVersioning> object) override {
            real_->setExportedObject(std::move(object));
        }
        std::optional<cmn::XPCPeer> peer() const override { return real_->peer(); }
        void resume() override { real_->resume(); }
        void invalidate() override { real_->invalidate(); }
        std::shared_ptr<cmn::XPCVersioning> remoteObjectProxy(cmn::RemoteErrorHandler onError,
                                                              std::chrono::nanoseconds deadline) override {
            if (deadline != cmn::kNoRequestDeadline) {
                deadline = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline * scale_);
            }
            return real_->remoteObjectProxy(std::move(onError), deadline);
        }

     private:
        const std::shared_ptr<cmn::XPCConnection> real_;
        const double scale_;
    };

    const std::shared_ptr<cmn::XPCTransport> real_;
    const double scale_;
};

}  // namespace fake
