#pragma once

#include <gmock/gmock.h>

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "ServiceNames.h"
#include "support/BusWorld.h"
#include "support/RawPeer.h"
#include "support/ReceivedCalls.h"
#include "xpccommon/UserAgentObjCXPCClient.h"
#include "xpccommon/UserAgentXPCServer.h"

// The user agent service over a real bus.
class UserAgentBusFixture : public fake::BusWorld {
 protected:
    std::unique_ptr<cmn::UserAgentXPCServer> startServer() { return startServer(queues); }
    std::unique_ptr<cmn::UserAgentXPCServer> startServer(const std::shared_ptr<cmn::Dispatch>& ofServer) {
        return awaitListening([&] {
            return cmn::CreateUserAgentXPCServer(
                [reports = reports, reporters = reporters](const std::string& url, const std::string& browser,
                                                           std::int32_t pid, const auto& peer) {
                    reporters.add(peer);
                    reports.add(browser + " " + std::to_string(pid) + " " + url);
                },
                ofServer, transport);
        });
    }
    std::shared_ptr<cmn::UserAgentObjCXPCClient> startClient(
        cmn::URLExtractorDelegate delegate = [](const auto& name) { return "url of " + name; },
        cmn::ServiceOwners owners = cmn::ServiceOwners::anybody) {
        auto client =
            std::make_shared<cmn::UserAgentObjCXPCClient>(std::move(delegate), queues, transport, owners);
        client->connect();
        return client;
    }
    static QDBusMessage message(const char* member, const QVariantList& arguments = {}) {
        return fake::RawPeer::message(kAgent, kAgentPath, kAgent, member, arguments);
    }
    static QDBusMessage setExtractor(const fake::RawPeer& agent, const char* path = "/my/extractor") {
        return agent.call(
            message("SetURLExtractor", {QVariant::fromValue(QDBusObjectPath(QString::fromLatin1(path)))}));
    }
    // A peer in the service's place.
    std::unique_ptr<fake::RawPeer> startService(fake::RawPeer::Handler handler) const {
        auto service = std::make_unique<fake::RawPeer>(bus.address(), std::move(handler));
        EXPECT_TRUE(service->own(kAgent));
        return service;
    }
    // A daemon that answers as the contract says.
    fake::RawPeer::Handler goodDaemon() {
        return [this](const QDBusMessage& message, const QDBusConnection& connection) {
            received.add(message);
            if (message.member() == QLatin1String("Version")) {
                connection.send(message.createReply(QStringLiteral("1.0")));
            } else if (message.member() == QLatin1String("SetURLExtractor")) {
                connection.send(message.createReply(true));
            }
        };
    }

    const std::shared_ptr<fake::HurriedDispatch> queues = hurried(kHurry);
    fake::ReceivedCalls received;
    const fake::Recorder<std::string> reports;
    const fake::Recorder<std::optional<cmn::XPCPeer>> reporters;
};
