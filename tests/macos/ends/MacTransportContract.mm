#import "AnonymousTransport.h"
#import "RunLoop.h"
#include "XPCCommon/XPCTransportContract.h"
#import "macos_usercommon/MacDispatch.h"
#include "xpccommon/UserAgentProtocol.h"

// The transport over NSXPC does what every transport does.
namespace {

class MacEnds : public TransportUnderTest {
 public:
    std::shared_ptr<cmn::XPCTransport> transport() override { return transport_; }
    std::shared_ptr<cmn::Dispatch> dispatch() override { return dispatch_; }
    std::shared_ptr<const cmn::XPCInterface> interface() override { return cmn::CreateUserAgentInterface(); }
    bool reaches(const std::function<bool()>& condition) override { return fake::RunUntil(condition); }
    bool givesCallsUp() const override { return false; }

 private:
    const std::shared_ptr<cmn::MacDispatch> dispatch_ = std::make_shared<cmn::MacDispatch>();
    const std::shared_ptr<fake::AnonymousTransport> transport_ = std::make_shared<fake::AnonymousTransport>();
};

INSTANTIATE_TEST_SUITE_P(Mac, XPCTransportContractTest,
                         testing::Values(TransportFactory{"Mac",
                                                          [] { return std::make_unique<MacEnds>(); }}));

}  // namespace
