#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "support/Recorder.h"
#include "usercommon/Dispatch.h"
#include "usercommon/XPCServer.h"

// A transport that is to do what `usercommon/XPCConnection.h` promises. Both ends are in this process.
class TransportUnderTest {
 public:
    virtual ~TransportUnderTest() = default;

    // Its connections reach its listeners, also when the name is of no use: over an anonymous listener, say.
    virtual std::shared_ptr<cmn::XPCTransport> transport() = 0;
    // Whose semaphores a message may wait for.
    virtual std::shared_ptr<cmn::Dispatch> dispatch() = 0;
    // Returns when the server's clients reach it.
    virtual void start(cmn::XPCServer& server) { server.start(); }
    // Of the user agent service.
    virtual std::shared_ptr<const cmn::XPCInterface> interface() = 0;
    // Lets everything go on until the condition holds; false when that takes too long.
    virtual bool reaches(const std::function<bool()>& condition) = 0;

    // Whether calls are given up at the caller's deadline.
    virtual bool givesCallsUp() const { return true; }
    // A message of more bytes fails; nothing when there is no such limit.
    virtual std::optional<std::size_t> mostBytes() const { return std::nullopt; }
};

// Each transport has an INSTANTIATE_TEST_SUITE_P of XPCTransportContractTest over one of these.
struct TransportFactory {
    std::string name;
    std::function<std::unique_ptr<TransportUnderTest>()> make;

    friend std::ostream& operator<<(std::ostream& out, const TransportFactory& factory) {
        return out << factory.name;
    }
};

class ContractService;
class ContractClient;
using ContractText = std::function<void(const std::string&)>;
using ContractEvents = fake::Recorder<std::string>;

class XPCTransportContractTest : public testing::TestWithParam<TransportFactory> {
 protected:
    XPCTransportContractTest();
    ~XPCTransportContractTest() override;

    ContractClient resume() const;
    // Resumed, and known to reach the service.
    ContractClient connect() const;
    ContractClient startAndConnect() const;
    // Whether the service answers, in its order behind what was sent before.
    bool answers(const ContractClient& client) const;
    template <typename T>
    bool reaches(const fake::Recorder<T>& recorder, std::size_t count) const {
        return ends->reaches([&] { return recorder.count() >= count; });
    }

    const std::unique_ptr<TransportUnderTest> ends;
    const std::shared_ptr<ContractService> service;  // not started yet
    const fake::Recorder<ContractText> held;         // what a service answers with that waits
};
