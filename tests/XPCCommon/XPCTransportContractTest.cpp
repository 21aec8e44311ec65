#include <gmock/gmock.h>

#include <thread>
#include <utility>
#include <vector>

#include "XPCTransportContract.h"
#include "support/Recorder.h"
#include "usercommon/XPCServer.h"
#include "xpccommon/UserAgentProtocol.h"

// What every transport does, whatever carries its messages.
namespace {

using namespace std::chrono_literals;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kContractName = "com.example.Contract";

}  // namespace

// The service. Its hooks run in the message.
class ContractService : public cmn::XPCServer, public cmn::UserAgentProtocol {
 public:
    ContractService(const std::shared_ptr<cmn::XPCTransport>& transport,
                    std::shared_ptr<const cmn::XPCInterface> interface)
        : XPCServer(transport, kContractName), interface_(std::move(interface)) {}

    bool shouldAcceptNewConnection(const std::shared_ptr<cmn::XPCConnection>& connection) override {
        offered.add(connection->peer());
        if (!accepts) {
            return false;
        }
        last = connection;
        connection->setInvalidationHandler([events = events] { events.add("left"); });
        connection->setExportedInterface(interface_);
        connection->setExportedObject(std::shared_ptr<cmn::UserAgentProtocol>(shared_from_this(), this));
        connection->resume();
        return true;
    }
    void version(ContractText reply) override { onVersion ? onVersion(std::move(reply)) : reply("1.0"); }
    void setURLExtractor(std::shared_ptr<cmn::URLExtractor> extractor,
                         std::function<void(bool)> reply) override {
        const bool isThere = extractor != nullptr;
        extractors.add(std::move(extractor));
        reply(isThere);
    }
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override {
        if (onURL) {
            onURL(url);
        }
        events.add(url + (browser.empty() ? "" : "|" + browser + "|" + std::to_string(processID)));
        senders.add(cmn::CurrentXPCPeer());
    }

    bool accepts = true;  // these are set before it is started
    std::function<void(ContractText)> onVersion;
    ContractText onURL;
    const fake::Recorder<std::string> events;  // what was sent and who left
    const fake::Recorder<std::optional<cmn::XPCPeer>> offered, senders;
    const fake::Recorder<std::shared_ptr<cmn::URLExtractor>> extractors;
    std::weak_ptr<cmn::XPCConnection> last;  // it owns this service

 private:
    const std::shared_ptr<const cmn::XPCInterface> interface_;
};

// The client's object.
class ContractExtractor : public cmn::URLExtractor {
 public:
    void getURL(const std::string& browser, ContractText reply) override {
        peers.add(cmn::CurrentXPCPeer());
        threads.add(std::this_thread::get_id());
        reply("url of " + browser);
    }

    const fake::Recorder<std::optional<cmn::XPCPeer>> peers;
    const fake::Recorder<std::thread::id> threads;
};

class ContractClient {
 public:
    explicit ContractClient(TransportUnderTest& ends) {
        connection = ends.transport()->createConnection(kContractName, cmn::XPCConnectionOptions::privileged);
        connection->setRemoteObjectInterface(ends.interface());
        connection->setInvalidationHandler([events = events] { events.add("invalidated"); });
        connection->setInterruptionHandler([events = events] { events.add("interrupted"); });
    }

    std::shared_ptr<cmn::UserAgentProtocol> service(
        std::chrono::nanoseconds deadline = cmn::kNoRequestDeadline) const {
        return std::dynamic_pointer_cast<cmn::UserAgentProtocol>(connection->remoteObjectProxy(
            [events = events](const cmn::RemoteError&) { events.add("error"); }, deadline));
    }
    void send(const std::string& text) const { service()->sendURL(text, "", 0); }
    void askVersion() const { service()->version(events); }

    const ContractEvents events;  // "invalidated", "interrupted", "error" and what its replies say
    std::shared_ptr<cmn::XPCConnection> connection;
};

XPCTransportContractTest::XPCTransportContractTest()
    : ends(GetParam().make()),
      service(std::make_shared<ContractService>(ends->transport(), ends->interface())) {}

XPCTransportContractTest::~XPCTransportContractTest() {
    service->stop();
    service->extractors.clear();  // they own their connection, which owns the service
}

ContractClient XPCTransportContractTest::resume() const {
    ContractClient client(*ends);
    client.connection->resume();
    return client;
}

ContractClient XPCTransportContractTest::connect() const {
    ContractClient client = resume();
    EXPECT_TRUE(answers(client));
    return client;
}

ContractClient XPCTransportContractTest::startAndConnect() const {
    ends->start(*service);
    return connect();
}

bool XPCTransportContractTest::answers(const ContractClient& client) const {
    const ContractEvents answer;
    std::dynamic_pointer_cast<cmn::UserAgentProtocol>(
        client.connection->remoteObjectProxy([answer](const cmn::RemoteError&) { answer.add("error"); }))
        ->setURLExtractor(nullptr, [answer](bool) { answer.add("answered"); });
    EXPECT_TRUE(reaches(answer, 1));
    return answer.last() == "answered";
}

namespace {

// A message that waits for it lets the other queues go on.
class ContractGate {
 public:
    explicit ContractGate(TransportUnderTest& ends) : semaphore_(ends.dispatch()->createSemaphore(0)) {}
    void open() const { semaphore_->signal(); }
    void pass() const { EXPECT_TRUE(semaphore_->wait(60s)); }

 private:
    const std::shared_ptr<cmn::Semaphore> semaphore_;
};

// Connecting

TEST_P(XPCTransportContractTest, MessagesAndAnswersArriveAsTheyWereSent) {
    const ContractClient client = startAndConnect();
    client.askVersion();
    client.service()->sendURL("https://\xc3\xa4 \xe2\x82\xac/", "Firefox", -7);
    ASSERT_TRUE(reaches(client.events, 1) && reaches(service->events, 1));
    EXPECT_THAT(client.events.all(), ElementsAre("1.0"));
    EXPECT_THAT(service->events.all(), ElementsAre("https://\xc3\xa4 \xe2\x82\xac/|Firefox|-7"));
}

TEST_P(XPCTransportContractTest, AMessageSentBeforeTheServiceIsFoundIsDeliveredOnceItIs) {
    ends->start(*service);
    const ContractClient client = resume();
    client.send("early");
    EXPECT_TRUE(reaches(service->events, 1));
}

TEST_P(XPCTransportContractTest, AnAbsentServiceFailsWhatWasSentAndInvalidates) {
    const ContractClient client = resume();
    client.send("lost");
    ASSERT_TRUE(reaches(client.events, 2));
    EXPECT_THAT(client.events.all(), ElementsAre("error", "invalidated"));
    client.send("lost as well");
    ASSERT_TRUE(reaches(client.events, 3));
    EXPECT_EQ(client.events.last(), "error");
}

// Order and threads

TEST_P(XPCTransportContractTest, MessagesArriveInTheirOrderAndSoDoAnswers) {
    int asked = 0;
    service->onVersion = [&](const ContractText& reply) { reply(std::to_string(asked++)); };
    const ContractClient client = startAndConnect();
    std::vector<std::string> expected;
    const auto remote = client.service();
    for (int i = 0; i < 1000; ++i) {
        expected.push_back(std::to_string(i));
        remote->sendURL(expected.back(), "", 0);
        remote->version(client.events);
    }
    ASSERT_TRUE(reaches(client.events, expected.size()));
    EXPECT_EQ(service->events.all(), expected);
    EXPECT_EQ(client.events.all(), expected);
}

TEST_P(XPCTransportContractTest, NobodyIsCalledOnTheThreadThatCausesIt) {
    const fake::Recorder<std::thread::id> threads;
    const auto note = [threads] { threads.add(std::this_thread::get_id()); };
    service->onURL = [note](const std::string&) { note(); };
    ends->start(*service);
    const ContractClient client(*ends);
    client.connection->setInvalidationHandler(note);
    client.connection->setInterruptionHandler(note);
    client.connection->resume();
    ASSERT_TRUE(answers(client));
    client.send("message");
    ASSERT_TRUE(reaches(threads, 1));
    client.service()->version([note](const std::string&) { note(); });
    ASSERT_TRUE(reaches(threads, 2));
    service->stop();
    ASSERT_TRUE(reaches(threads, 3)) << "the interruption";
    client.connection->remoteObjectProxy([note](const cmn::RemoteError&) { note(); })->version(client.events);
    ASSERT_TRUE(reaches(threads, 4)) << "the error";
    client.connection->invalidate();
    ASSERT_TRUE(reaches(threads, 5));
    EXPECT_THAT(threads.all(), Each(testing::Ne(std::this_thread::get_id())));
}

TEST_P(XPCTransportContractTest, WhatAClientIsToldComesOneAtATime) {
    const ContractClient client = startAndConnect();
    const ContractClient other = connect();
    const ContractGate gate(*ends);
    for (int i = 0; i < 2; ++i) {
        client.service()->version([&gate, events = client.events](const std::string&) {
            events.add("answer");
            gate.pass();
            events.add("over");
        });
    }
    ASSERT_TRUE(reaches(client.events, 1));
    client.connection->invalidate();
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(answers(other)) << "the first answer is still being worked off";
    }
    EXPECT_THAT(client.events.all(), ElementsAre("answer"));
    gate.open();
    gate.open();
    ASSERT_TRUE(ends->reaches([&] { return client.events.last() == "invalidated"; }));
    // The second answer may have been on its way when the connection ended: then its call has failed.
    EXPECT_THAT(client.events.all(), AnyOf(ElementsAre("answer", "over", "answer", "over", "invalidated"),
                                           ElementsAre("answer", "over", "error", "invalidated")));
}

TEST_P(XPCTransportContractTest, PeersAreServedInParallelAndEachInItsOrder) {
    const ContractGate gate(*ends);
    service->onURL = [&](const std::string& text) {
        if (text == "slow") {
            gate.pass();
        }
    };
    const ContractClient slow = startAndConnect();
    const ContractClient quick = connect();
    slow.send("slow");
    slow.send("behind slow");
    quick.send("quick");
    ASSERT_TRUE(answers(quick));
    EXPECT_THAT(service->events.all(), ElementsAre("quick"));
    gate.open();
    ASSERT_TRUE(reaches(service->events, 3));
    EXPECT_THAT(service->events.all(), ElementsAre("quick", "slow", "behind slow"));
}

// Answers

TEST_P(XPCTransportContractTest, ACallThatWaitsHoldsUpNoOtherAndOnlyItsFirstAnswerCounts) {
    service->onVersion = held;
    const ContractClient client = startAndConnect();
    client.askVersion();
    ASSERT_TRUE(answers(client));
    ASSERT_TRUE(reaches(held, 1));
    std::thread([reply = held.last()] {
        reply("first");
        reply("second");
    }).join();
    ASSERT_TRUE(reaches(client.events, 1));
    ASSERT_TRUE(answers(client));
    EXPECT_THAT(client.events.all(), ElementsAre("first"));
}

TEST_P(XPCTransportContractTest, AnAnswerThatTheServiceForgetsFailsTheCall) {
    service->onVersion = [](const ContractText&) {};
    const ContractClient client = startAndConnect();
    client.askVersion();
    ASSERT_TRUE(reaches(client.events, 1));
    EXPECT_THAT(client.events.all(), ElementsAre("error"));
}

TEST_P(XPCTransportContractTest, WhatIsNotAnsweredInTheCallersTimeIsGivenUpWithoutAWord) {
    if (!ends->givesCallsUp()) {
        GTEST_SKIP() << "this transport ignores the deadline";
    }
    service->onVersion = held;
    const ContractClient client = startAndConnect();
    auto kept = std::make_shared<int>(0);
    const std::weak_ptr<int> isKept = kept;
    const auto patient = client.service(100ms);
    patient->version(
        [kept = std::move(kept), events = client.events](const std::string&) { events.add("late"); });
    EXPECT_TRUE(ends->reaches([&] { return isKept.expired(); }));
    patient->version(client.events);  // its time is over
    EXPECT_TRUE(answers(client));
    held.clear();  // forgets to answer
    EXPECT_TRUE(answers(client));
    EXPECT_THAT(client.events.all(), IsEmpty());
}

TEST_P(XPCTransportContractTest, AMessageThatIsTooLargeFailsAndTheConnectionLives) {
    if (!ends->mostBytes()) {
        GTEST_SKIP() << "this transport has no such limit";
    }
    const ContractClient client = startAndConnect();
    client.send(std::string(*ends->mostBytes() + 1, 'x'));
    ASSERT_TRUE(reaches(client.events, 1));
    EXPECT_TRUE(answers(client));
    EXPECT_THAT(client.events.all(), ElementsAre("error"));
    EXPECT_THAT(service->events.all(), IsEmpty());
}

// The end of a service

TEST_P(XPCTransportContractTest, AServiceThatStopsInterruptsAndComesBackOverTheSameConnection) {
    const ContractClient client = startAndConnect();
    service->stop();
    ASSERT_TRUE(reaches(client.events, 1));
    EXPECT_FALSE(answers(client));
    ends->start(*service);
    ASSERT_TRUE(ends->reaches([&] { return answers(client); }));
    EXPECT_THAT(client.events.all(), ElementsAre("interrupted"));
}

TEST_P(XPCTransportContractTest, ACallThatTheServiceTakesToItsGraveFailsBeforeTheInterruption) {
    service->onVersion = held;
    const ContractClient client = startAndConnect();
    client.askVersion();
    ASSERT_TRUE(reaches(held, 1));
    service->stop();
    ASSERT_TRUE(reaches(client.events, 2));
    held.last()("from the grave");
    held.clear();
    EXPECT_FALSE(answers(client));
    EXPECT_THAT(client.events.all(), ElementsAre("error", "interrupted"));
}

TEST_P(XPCTransportContractTest, StopInvalidatesTheConnectionsThatTheServiceAccepted) {
    const ContractClient one = startAndConnect();
    const ContractClient two = connect();
    service->stop();
    ASSERT_TRUE(reaches(service->events, 2));
    EXPECT_THAT(service->events.all(), ElementsAre("left", "left"));
}

TEST_P(XPCTransportContractTest, AListenerThatIsDroppedListensNoMore) {
    auto dropped = std::make_shared<ContractService>(ends->transport(), ends->interface());
    ends->start(*dropped);
    const ContractClient client = resume();
    dropped.reset();
    EXPECT_FALSE(answers(client));
}

// The end of a client

TEST_P(XPCTransportContractTest, InvalidateFailsWhatWaitsAndCallsTheHandlerOnce) {
    service->onVersion = held;
    const ContractClient client = startAndConnect();
    client.askVersion();
    ASSERT_TRUE(reaches(held, 1));
    client.connection->invalidate();
    client.connection->invalidate();
    ASSERT_TRUE(reaches(client.events, 2));
    held.clear();
    EXPECT_FALSE(answers(client));
    EXPECT_THAT(client.events.all(), ElementsAre("error", "invalidated"));
}

TEST_P(XPCTransportContractTest, InvalidateCallsTheHandlerAlsoWhenTheConnectionIsLetGoAtOnce) {
    ContractClient client = startAndConnect();
    client.connection->invalidate();
    client.connection.reset();
    EXPECT_TRUE(reaches(client.events, 1));
}

TEST_P(XPCTransportContractTest, InvalidateBeforeResumeEndsTheConnectionToo) {
    ends->start(*service);
    const ContractClient client(*ends);
    client.connection->invalidate();
    client.connection->resume();
    ASSERT_TRUE(reaches(client.events, 1));
    EXPECT_FALSE(answers(client));
    EXPECT_THAT(client.events.all(), ElementsAre("invalidated"));
}

TEST_P(XPCTransportContractTest, ADestroyedConnectionCallsNoHandlerAndTheServiceSeesItLeave) {
    ContractClient client = startAndConnect();
    client.connection.reset();
    ASSERT_TRUE(reaches(service->events, 1));
    EXPECT_THAT(client.events.all(), IsEmpty());
}

TEST_P(XPCTransportContractTest, WhatAClientSentBeforeItLeftIsDelivered) {
    const ContractClient client = startAndConnect();
    for (int i = 0; i < 200; ++i) {
        client.send("message");
    }
    ASSERT_TRUE(answers(client));
    client.send("last");
    client.connection->invalidate();
    ASSERT_TRUE(ends->reaches([&] { return service->events.last() == "left"; }));
    EXPECT_GE(service->events.count(), 201U);
}

TEST_P(XPCTransportContractTest, AnExportedObjectIsReleasedWithTheConnectionAlsoWhileAProxyLives) {
    ends->start(*service);
    ContractClient client(*ends);
    auto object = std::make_shared<ContractService>(ends->transport(), ends->interface());
    const std::weak_ptr<ContractService> isThere = object;
    client.connection->setExportedInterface(ends->interface());
    client.connection->setExportedObject(std::shared_ptr<cmn::UserAgentProtocol>(object, object.get()));
    client.connection->resume();
    ASSERT_TRUE(answers(client));
    object.reset();
    EXPECT_FALSE(isThere.expired());
    const auto kept = client.service();
    client.connection.reset();
    EXPECT_TRUE(ends->reaches([&] { return isThere.expired(); }));
    kept->sendURL("the transport lives on", "", 0);
    EXPECT_TRUE(reaches(service->events, 1));
}

// The service's peers

TEST_P(XPCTransportContractTest, APeerIsOfferedOnceAndKnownBeforeAndDuringItsMessages) {
    const ContractClient one = startAndConnect();
    const ContractClient two = connect();
    for (const ContractClient* client : {&one, &two, &one}) {
        client->send("message");
        ASSERT_TRUE(answers(*client));
    }
    ASSERT_THAT(service->offered.all(), SizeIs(2));
    const auto first = service->offered.all()[0];
    const auto second = service->offered.all()[1];
    ASSERT_TRUE(first && second);
    EXPECT_NE(first->connectionID, second->connectionID) << "the connections of one process are told apart";
    EXPECT_THAT(service->senders.all(), ElementsAre(first, second, first));
    EXPECT_EQ(cmn::CurrentXPCPeer(), std::nullopt);
}

TEST_P(XPCTransportContractTest, ARejectedPeersMessagesFail) {
    service->accepts = false;
    ends->start(*service);
    const ContractClient client = resume();
    EXPECT_FALSE(answers(client));
    client.send("unheard");
    EXPECT_FALSE(answers(client));
    EXPECT_THAT(service->events.all(), IsEmpty());
}

TEST_P(XPCTransportContractTest, AConnectionThatTheServiceInvalidatesGetsNoMoreMessages) {
    const ContractClient client = startAndConnect();
    service->last.lock()->invalidate();
    ASSERT_TRUE(reaches(service->events, 1));
    client.send("unheard");
    EXPECT_FALSE(answers(client));
    EXPECT_THAT(service->events.all(), ElementsAre("left"));
}

// Objects that are passed along

TEST_P(XPCTransportContractTest, TheServiceCallsTheObjectThatAClientPassed) {
    const ContractClient client = startAndConnect();
    const auto extractor = std::make_shared<ContractExtractor>();
    client.service()->setURLExtractor(extractor, [](bool) {});
    ASSERT_TRUE(reaches(service->extractors, 2));
    const ContractEvents urls;
    for (const char* browser : {"Firefox", "Safari"}) {
        service->extractors.last()->getURL(browser, urls);
    }
    ASSERT_TRUE(reaches(urls, 2));
    EXPECT_THAT(urls.all(), ElementsAre("url of Firefox", "url of Safari"));
    EXPECT_THAT(extractor->peers.all(), Each(testing::Ne(std::nullopt)));
    EXPECT_THAT(extractor->threads.all(), Each(testing::Ne(std::this_thread::get_id())));
}

TEST_P(XPCTransportContractTest, NoObjectArrivesAsNone) {
    const ContractClient client = startAndConnect();
    EXPECT_THAT(service->extractors.all(), ElementsAre(nullptr));
}

TEST_P(XPCTransportContractTest, AnObjectGoesWithItsConnectionAndWhoAsksItIsToldNothing) {
    const ContractClient client = startAndConnect();
    auto extractor = std::make_shared<ContractExtractor>();
    const std::weak_ptr<ContractExtractor> isThere = extractor;
    client.service()->setURLExtractor(std::move(extractor), [](bool) {});
    ASSERT_TRUE(reaches(service->extractors, 2));
    EXPECT_FALSE(isThere.expired());
    client.connection->invalidate();
    EXPECT_TRUE(ends->reaches([&] { return isThere.expired(); }));
    const ContractEvents urls;
    auto kept = std::make_shared<int>(0);
    const std::weak_ptr<int> isKept = kept;
    service->extractors.last()->getURL("Firefox",
                                       [urls, kept = std::move(kept)](const auto& url) { urls.add(url); });
    EXPECT_TRUE(ends->reaches([&] { return isKept.expired(); })) << "the reply";
    EXPECT_THAT(urls.all(), IsEmpty());
}

}  // namespace
