#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/proto_settings.h"
#include "support/FakeXPCTransport.h"
#include "support/LogCapture.h"
#include "xpccommon/FinderExtensionObjCXPCServer.h"

// Answers as the test says, and remembers what it is asked.
class ScriptedScanner : public cmn::IFinderExtensionOperations {
 public:
    bool CheckEncryptionStatus(const std::string& path, const std::optional<cmn::XPCPeer>& asker) override {
        askers.push_back(asker);
        asked.push_back("CheckEncryptionStatus " + path);
        return encrypted;
    }
    std::vector<cmn::ScanRecord> GetScanResult(const std::string& path,
                                               const std::optional<cmn::XPCPeer>& asker) override {
        askers.push_back(asker);
        asked.push_back("GetScanResult " + path);
        if (fails) {
            throw std::runtime_error("scan failed");
        }
        return records;
    }
    std::vector<std::string> GetAllowedExtensions() override {
        asked.emplace_back("GetAllowedExtensions");
        return extensions;
    }
    int Decrypt(const std::string& path, const std::optional<cmn::XPCPeer>& asker) override {
        askers.push_back(asker);
        asked.push_back("Decrypt " + path);
        return status;
    }

    bool encrypted = true;
    bool fails = false;
    std::vector<cmn::ScanRecord> records;
    std::vector<std::string> extensions;
    int status = 0;
    std::vector<std::string> asked;
    std::vector<std::optional<cmn::XPCPeer>> askers;  // of the questions about files
};

class RecordingDelegate : public cmn::FinderExtensionDelegate {
 public:
    void didCheckEncryptionStatus(bool encrypted) override { answers.push_back(encrypted); }

    std::vector<bool> answers;
};

class FinderExtensionXPCServerTest : public testing::Test {
 protected:
    FinderExtensionXPCServerTest() {
        settings.LogLevel = "Trace";
        settings.Products.resize(2);
        settings.Products[0].NativeName = "other";
        settings.Products[1].InstallPath = folder.path().string();
        settings.Products[1].NativeName = cmn::proto::GetCurrentProductNativeName();
        cmn::proto::SetSettings(settings);
    }
    ~FinderExtensionXPCServerTest() override { cmn::proto::SetSettings(cmn::proto::TSettings()); }

    void start() { server = std::make_shared<cmn::FinderExtensionObjCXPCServer>(transport); }
    void startWithScanner() {
        start();
        server->setScannerService(scanner);
    }
    // A new peer's view of the service.
    std::shared_ptr<cmn::FinderExtensionCommunicator> connect() {
        server->start();
        connection = transport->lastListener()->connectPeer();
        return connection
                   ? std::dynamic_pointer_cast<cmn::FinderExtensionCommunicator>(connection->exportedObject())
                   : nullptr;
    }
    static auto line(const std::string& level, const std::string& text) {
        return testing::AllOf(testing::StartsWith("[" + level + "] ["), testing::EndsWith("] " + text));
    }
    // What the service's own log holds once it has ended.
    std::vector<std::string> endAndReadLog() {
        connection.reset();
        server.reset();
        return fake::ReadLines(folder / "com.tessarin.finderExtension_0.log");
    }
    // The same without the first and the last line, those that every service leaves.
    std::vector<std::string> endAndReadRequests() {
        std::vector<std::string> lines = endAndReadLog();
        if (lines.size() < 2) {
            ADD_FAILURE() << "the service left " << lines.size() << " lines";
            return {"no lines of a service"};
        }
        EXPECT_THAT(lines.front(), line(" INFO", "Finder entension server init"));
        EXPECT_THAT(lines.back(), line(" INFO", "FinderExtensionObjCXPCServer deallocated"));
        return {std::next(lines.begin()), std::prev(lines.end())};
    }

    fake::TemporaryFolder folder;
    cmn::proto::TSettings settings;
    std::shared_ptr<fake::XPCTransport> transport = std::make_shared<fake::XPCTransport>();
    std::shared_ptr<fake::XPCConnection> connection;
    std::shared_ptr<ScriptedScanner> scanner = std::make_shared<ScriptedScanner>();
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::shared_ptr<cmn::FinderExtensionObjCXPCServer> server;
};
