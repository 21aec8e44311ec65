#include "XPCTransportContract.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "support/PrivateBus.h"
#include "support/Recorder.h"
#include "support/WaitFor.h"
#include "xpccommon/UserAgentProtocol.h"

// The transport over D-Bus does what every transport does.
namespace {

class DBusEnds : public TransportUnderTest {
 public:
    DBusEnds() {
        cmn::DBusXPCOptions options;
        options.systemBusAddress = bus_.address();
        options.onListenerEvent = [states = states_](const auto& event) { states.add(event.state); };
        transport_ = std::make_shared<cmn::DBusXPCTransport>(dispatch_, options);
    }
    ~DBusEnds() override {
        transport_->stop();
        dispatch_->stop();
    }

    std::shared_ptr<cmn::XPCTransport> transport() override { return transport_; }
    std::shared_ptr<cmn::Dispatch> dispatch() override { return dispatch_; }
    std::shared_ptr<const cmn::XPCInterface> interface() override { return cmn::CreateUserAgentInterface(); }
    void start(cmn::XPCServer& server) override {
        const std::size_t before = states_.count();
        server.start();
        EXPECT_TRUE(reaches([&] { return states_.count() > before; }));
        EXPECT_EQ(states_.last(), cmn::DBusListenerState::listening);
    }
    bool reaches(const std::function<bool()>& condition) override { return fake::WaitFor(condition); }
    std::optional<std::size_t> mostBytes() const override { return std::size_t{16} * 1024 * 1024; }

 private:
    fake::PrivateBus bus_;
    const fake::Recorder<cmn::DBusListenerState> states_;
    const std::shared_ptr<cmn::LinuxDispatch> dispatch_ = std::make_shared<cmn::LinuxDispatch>();
    std::shared_ptr<cmn::DBusXPCTransport> transport_;
};

INSTANTIATE_TEST_SUITE_P(DBus, XPCTransportContractTest,
                         testing::Values(TransportFactory{"DBus",
                                                          [] { return std::make_unique<DBusEnds>(); }}));

}  // namespace
