#pragma once

#include <gmock/gmock.h>

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <atomic>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ServiceNames.h"
#include "common/proto_settings.h"
#include "support/BusWorld.h"
#include "support/RawPeer.h"
#include "support/ReceivedCalls.h"
#include "support/SystemLogCapture.h"
#include "xpccommon/FinderExtensionObjCXPCServer.h"
#include "xpccommon/FinderExtensionXPCClient.h"

inline constexpr const char* kFinderDelegate = "com.tessarin.FinderExtensionDelegate";

using StringMap = QMap<QString, QString>;
using BoolMap = QMap<QString, bool>;

// Answers with what it was asked, so that no answer can be taken for another one's.
class EchoScanner : public cmn::IFinderExtensionOperations {
 public:
    bool CheckEncryptionStatus(const std::string& path,
                               const std::optional<cmn::XPCPeer>& /*asker*/) override {
        return path.starts_with("/secret");
    }
    std::vector<cmn::ScanRecord> GetScanResult(const std::string& path,
                                               const std::optional<cmn::XPCPeer>& /*asker*/) override {
        if (path == "/wait") {
            ++waiting;
            EXPECT_TRUE(fake::WaitInHandler([&] { return released.load(); }));
        }
        if (path == "/fail") {
            throw std::runtime_error("cannot scan");
        }
        if (path == "/fail/oddly") {
            throw 7;  // nothing that says what it is
        }
        if (path == "/many") {
            return many;
        }
        return {{{"Name", path}, {"MatchCount", "1"}}, {{"Name", "second"}}};
    }
    std::vector<std::string> GetAllowedExtensions() override { return {"txt", "csv"}; }
    int Decrypt(const std::string& path, const std::optional<cmn::XPCPeer>& /*asker*/) override {
        if (path == "/fail/oddly") {
            throw "no standard exception";
        }
        return static_cast<int>(path.size());
    }

    std::atomic<bool> released{false};
    std::atomic<int> waiting{0};
    std::vector<cmn::ScanRecord> many;
};

// The Finder extension service over a real bus.
class FinderExtensionBusFixture : public fake::BusWorld {
 protected:
    FinderExtensionBusFixture() {
        qDBusRegisterMetaType<StringMap>();
        qDBusRegisterMetaType<QList<StringMap>>();
        qDBusRegisterMetaType<BoolMap>();
        cmn::proto::TSettings settings;
        settings.LogLevel = "Trace";
        settings.IsExtensionIconsAvailable = true;
        settings.Products.resize(1);
        settings.Products[0].InstallPath = folder.path().string();
        settings.Products[0].NativeName = cmn::proto::GetCurrentProductNativeName();
        cmn::proto::SetSettings(settings);
    }
    ~FinderExtensionBusFixture() override {
        if (HasFailure()) {
            for (const std::string& line : systemLog.lines()) {
                std::cerr << line << "\n";
            }
        }
        scanner->released = true;
    }

    std::shared_ptr<cmn::FinderExtensionObjCXPCServer> startServer() {
        auto server = std::make_shared<cmn::FinderExtensionObjCXPCServer>(transport);
        server->setScannerService(scanner);
        return start(server);
    }
    // With the real waits: 100 milliseconds a request.
    std::shared_ptr<cmn::FinderExtensionXPCClient> startClient(double waits = 1) {
        auto client =
            std::make_shared<cmn::FinderExtensionXPCClient>(hurried(waits), hurriedTransport(waits));
        client->connect();
        return client;
    }
    std::shared_ptr<cmn::FinderExtensionXPCClient> startConnectedClient(double waits = 1) {
        auto client = startClient(waits);
        EXPECT_TRUE(fake::WaitFor([&] { return client->connected(); }));
        return client;
    }
    std::shared_ptr<cmn::FinderExtensionXPCClient> startPatientClient() {
        return startConnectedClient(kPatience);
    }
    static QDBusMessage message(const char* member, const QVariantList& arguments = {}) {
        return fake::RawPeer::message(kFinder, kFinderPath, kFinder, member, arguments);
    }
    static QVariant objectPath(const char* path) {
        return QVariant::fromValue(QDBusObjectPath(QString::fromLatin1(path)));
    }
    // A peer in the service's place.
    std::unique_ptr<fake::RawPeer> startService(fake::RawPeer::Handler handler) const {
        auto service = std::make_unique<fake::RawPeer>(bus.address(), std::move(handler));
        EXPECT_TRUE(service->own(kFinder));
        return service;
    }
    // A service that answers as the contract says, after a while.
    fake::RawPeer::Handler goodService(std::chrono::milliseconds delay = std::chrono::milliseconds(0)) {
        return [this, delay](const QDBusMessage& asked, const QDBusConnection& connection) {
            received.add(asked);
            if (!asked.isReplyRequired()) {
                return;
            }
            if (asked.member() == QLatin1String("Version")) {
                connection.send(asked.createReply(QStringLiteral("1.0")));
                return;
            }
            std::this_thread::sleep_for(delay);
            connection.send(asked.createReply(answerTo(asked.member())));
        };
    }
    static QVariant answerTo(const QString& member) {
        if (member == QLatin1String("Decrypt")) {
            return 7;
        }
        if (member == QLatin1String("CheckFullDiskAccess")) {
            return true;
        }
        if (member == QLatin1String("AllowedExtensions")) {
            return QStringList{QStringLiteral("txt")};
        }
        if (member == QLatin1String("GetUIVisibilityStatuses")) {
            return QVariant::fromValue(BoolMap{{QStringLiteral("menuStatus"), true}});
        }
        return QVariant::fromValue(
            QList<StringMap>{{{QStringLiteral("Name"), QStringLiteral("\u00e4")}}, {}});
    }
    static void expectNeutralAnswers(cmn::FinderExtensionXPCClient& client) {
        EXPECT_THAT(client.getFileFilters("/f"), testing::IsEmpty());
        EXPECT_THAT(client.allowedExtensions(), testing::IsEmpty());
        EXPECT_EQ(client.decrypt("/d"), 2);
        EXPECT_FALSE(client.checkFullDiskAccess());
        EXPECT_THAT(client.getUIVisibilityStatuses(),
                    testing::UnorderedElementsAre(testing::Pair("menuStatus", false),
                                                  testing::Pair("iconsStatus", false),
                                                  testing::Pair("agentIconDisable", false)));
    }

    fake::SystemLogCapture systemLog;
    fake::TemporaryFolder folder;
    const std::shared_ptr<EchoScanner> scanner = std::make_shared<EchoScanner>();
    fake::ReceivedCalls received;
};
