#include "WiredUserAgent.h"
#include "XPCTransportContract.h"
#include "support/FakeXPCTransport.h"

// The fake transport does what the real ones do, in virtual time.
namespace {

class FakeEnds : public TransportUnderTest {
 public:
    ~FakeEnds() override { dispatch_->close(); }

    std::shared_ptr<cmn::XPCTransport> transport() override { return transport_; }
    std::shared_ptr<cmn::Dispatch> dispatch() override { return dispatch_; }
    std::shared_ptr<const cmn::XPCInterface> interface() override { return CreateWiredUserAgentInterface(); }
    bool reaches(const std::function<bool()>& condition) override {
        for (int i = 0; i < 30; ++i) {
            dispatch_->runUntilIdle();
            if (condition()) {
                return true;
            }
            dispatch_->advance(std::chrono::seconds(1));
        }
        return false;
    }
    std::optional<std::size_t> mostBytes() const override { return fake::XPCEnd::kMostBytes; }

 private:
    const std::shared_ptr<fake::Dispatch> dispatch_ = std::make_shared<fake::Dispatch>();
    const std::shared_ptr<fake::XPCTransport> transport_ = std::make_shared<fake::XPCTransport>(dispatch_);
};

INSTANTIATE_TEST_SUITE_P(Fake, XPCTransportContractTest,
                         testing::Values(TransportFactory{"Fake",
                                                          [] { return std::make_unique<FakeEnds>(); }}));

}  // namespace
