#include "DBusFixture.h"

#include <iostream>

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
    const std::lock_guard lock(mutex_);
    notes_.push_back(text);
}

void EchoServer::check(const std::string& text, std::shared_ptr<EchoDelegate> delegate) {
    note(delegate ? "check " + text : "check " + text + " for nobody");
    if (delegate) {
        delegate->didCheck(!text.empty());
    }
}

std::vector<std::string> EchoServer::notes() const {
    const std::lock_guard lock(mutex_);
    return notes_;
}

void ConnectionEvents::watch(cmn::XPCConnection& connection) {
    connection.setInvalidationHandler([state = state_] { ++state->invalidations; });
    connection.setInterruptionHandler([state = state_] { ++state->interruptions; });
}

cmn::RemoteErrorHandler ConnectionEvents::onError() {
    return [state = state_](const cmn::RemoteError& error) {
        {
            const std::lock_guard lock(state->mutex);
            state->lastError = error.description;
            state->lastSuggestion = error.recoverySuggestion;
        }
        ++state->errors;  // last: whoever waits for it reads the texts
    };
}

std::string ConnectionEvents::error() {
    const std::lock_guard lock(state_->mutex);
    return state_->lastError;
}

std::string ConnectionEvents::suggestion() {
    const std::lock_guard lock(state_->mutex);
    return state_->lastSuggestion;
}

DBusTest::DBusTest() {
    replaceTransport(options());
}

DBusTest::~DBusTest() {
    if (HasFailure()) {
        std::cerr << log.text();
    }
    // Peers and calls that are left let go of what they hold.
    for (const auto& one : transports_) {
        one->stop();
    }
    dispatch->stop();
}

void DBusTest::replaceTransport(const cmn::DBusXPCOptions& options) {
    transport = transports_.emplace_back(std::make_shared<cmn::DBusXPCTransport>(dispatch, options));
}

cmn::DBusXPCOptions DBusTest::options() {
    cmn::DBusXPCOptions options;
    options.systemBusAddress = bus.address();
    options.sessionBusAddress = bus.address();
    options.onListenerEvent = [this](const cmn::DBusListenerEvent& event) {
        const std::lock_guard lock(mutex_);
        listenerEvents_.push_back(event);
    };
    return options;
}

std::vector<cmn::DBusListenerEvent> DBusTest::listenerEvents() {
    const std::lock_guard lock(mutex_);
    return listenerEvents_;
}

std::shared_ptr<EchoServer> DBusTest::startServer() {
    const std::size_t before = listenerEvents().size();
    const auto server = std::make_shared<EchoServer>(transport, kEchoService);
    server->start();
    EXPECT_TRUE(fake::WaitFor([&] { return listenerEvents().size() > before; }));
    EXPECT_EQ(listenerEvents().back().state, cmn::DBusListenerState::listening);
    return server;
}

std::shared_ptr<cmn::XPCConnection> DBusTest::makeConnection(ConnectionEvents& events) {
    const auto connection = transport->createConnection(kEchoService, cmn::XPCConnectionOptions::privileged);
    connection->setRemoteObjectInterface(CreateEchoInterface());
    events.watch(*connection);
    return connection;
}

std::shared_ptr<cmn::XPCConnection> DBusTest::connect(ConnectionEvents& events) {
    auto connection = makeConnection(events);
    connection->resume();
    EXPECT_TRUE(answers(*connection));
    return connection;
}

std::shared_ptr<EchoProtocol> DBusTest::proxy(cmn::XPCConnection& connection, ConnectionEvents& events) {
    return std::dynamic_pointer_cast<EchoProtocol>(connection.remoteObjectProxy(events.onError()));
}

bool DBusTest::answers(cmn::XPCConnection& connection) {
    enum { waiting, yes, no };
    const auto state = std::make_shared<std::atomic<int>>(waiting);
    connection.remoteObjectProxy([state](const cmn::RemoteError&) { *state = no; })
        ->version([state](const std::string& version) { *state = version == "1.0" ? yes : no; });
    EXPECT_TRUE(fake::WaitFor([&] { return *state != waiting; }));
    return *state == yes;
}
