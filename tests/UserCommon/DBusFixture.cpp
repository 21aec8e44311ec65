#include "DBusFixture.h"

bool EchoServer::shouldAcceptNewConnection(const std::shared_ptr<cmn::XPCConnection>& connection) {
    if (!accepts) {
        return false;
    }
    ++accepted;
    connection->setInvalidationHandler([weak = weak_from_this(), this] {
        if (const auto self = weak.lock()) {
            ++invalidated;
        }
    });
    connection->setExportedInterface(CreateEchoInterface());
    connection->setExportedObject(std::shared_ptr<EchoProtocol>(shared_from_this(), this));
    connection->resume();
    return true;
}

void EchoServer::records(const std::string& text, std::function<void(const Records&)> reply) {
    reply({{{"Name", text}, {"costUsd", "12"}}, {}, {{"\xc3\xa4", "\xf0\x9f\xa6\x8a"}}});
}

void EchoServer::number(const std::string& text, std::function<void(std::int32_t)> reply) {
    if (onNumber) {
        onNumber(text, std::move(reply));
    } else {
        reply(static_cast<std::int32_t>(text.size()));
    }
}

void EchoServer::note(const std::string& text) {
    if (onNote) {
        onNote(text);
    }
    notes_.add(text);
}

void EchoServer::check(const std::string& text, std::shared_ptr<EchoDelegate> delegate) {
    note(delegate ? "check " + text : "check " + text + " for nobody");
    if (delegate) {
        delegate->didCheck(!text.empty());
    }
}

void ConnectionEvents::watch(cmn::XPCConnection& connection) const {
    connection.setInvalidationHandler([state = state_] { ++state->invalidations; });
    connection.setInterruptionHandler([state = state_] { ++state->interruptions; });
}

cmn::RemoteErrorHandler ConnectionEvents::onError() const {
    return [state = state_, errors = errors_](const cmn::RemoteError& error) {
        errors.add(error);
        ++state->errors;  // last: whoever waits for it reads the texts
    };
}

std::shared_ptr<EchoServer> DBusTest::startServer(const Hooks& set) {
    const auto server = std::make_shared<EchoServer>(transport, kEchoService);
    set(*server);
    return start(server);
}

Wired DBusTest::wire(cmn::XPCTransport& transport) {
    Wired client;
    client.connection = transport.createConnection(kEchoService, cmn::XPCConnectionOptions::privileged);
    client.connection->setRemoteObjectInterface(CreateEchoInterface());
    client.events.watch(*client.connection);
    client.echo = std::dynamic_pointer_cast<EchoProtocol>(
        client.connection->remoteObjectProxy(client.events.onError()));
    return client;
}

Wired DBusTest::resumeClient() {
    Wired client = wire(*transport);
    client.connection->resume();
    return client;
}

Wired DBusTest::connect() {
    Wired client = resumeClient();
    EXPECT_TRUE(answers(*client.connection));
    return client;
}

bool DBusTest::answers(cmn::XPCConnection& connection) {
    enum { waiting, yes, no };
    const auto state = std::make_shared<std::atomic<int>>(waiting);
    connection.remoteObjectProxy([state](const cmn::RemoteError&) { *state = no; })
        ->version([state](const std::string& version) { *state = version == "1.0" ? yes : no; });
    EXPECT_TRUE(fake::WaitFor([&] { return *state != waiting; }));
    return *state == yes;
}
