#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/FakeDispatch.h"
#include "support/FakeXPCTransport.h"
#include "support/LogCapture.h"
#include "xpccommon/UserAgentXPCServer.h"

// The agent's extractor as the daemon reaches it.
class ScriptedExtractor : public cmn::URLExtractor {
 public:
    void getURL(const std::string& browser, std::function<void(const std::string&)> reply) override {
        asked.push_back(browser);
        if (failure) {
            throw std::runtime_error("extractor failed");
        }
        if (forgets) {
            return;
        }
        if (answers) {
            reply("url of " + browser);
        } else {
            replies.push_back(std::move(reply));
        }
    }

    bool answers = true;
    bool failure = false;
    bool forgets = false;  // as a transport that gets an error
    std::vector<std::string> asked;
    std::vector<std::function<void(const std::string&)>> replies;
};

struct Report {
    std::string url, browser;
    std::int32_t pid;
    std::optional<cmn::XPCPeer> peer = std::nullopt;
    bool operator==(const Report&) const = default;
};

class UserAgentXPCServerTest : public testing::Test {
 protected:
    void TearDown() override { dispatch->close(); }

    std::unique_ptr<cmn::UserAgentXPCServer> makeServer() {
        return cmn::CreateUserAgentXPCServer(
            [this](const std::string& url, const std::string& browser, std::int32_t pid, const auto& peer) {
                reports.push_back({url, browser, pid, peer});
            },
            dispatch, transport);
    }
    std::unique_ptr<cmn::UserAgentXPCServer> makeServerWithExtractor() {
        auto server = makeServer();
        connect()->setURLExtractor(extractor, [](bool) {});
        return server;
    }
    // A new peer's view of the service.
    std::shared_ptr<cmn::UserAgentProtocol> connect() {
        connection = transport->lastListener()->connectPeer();
        return connection ? std::dynamic_pointer_cast<cmn::UserAgentProtocol>(connection->exportedObject())
                          : nullptr;
    }

    fake::LogCapture log;
    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    std::shared_ptr<fake::XPCTransport> transport = std::make_shared<fake::XPCTransport>();
    std::shared_ptr<fake::XPCConnection> connection;
    std::shared_ptr<ScriptedExtractor> extractor = std::make_shared<ScriptedExtractor>();
    std::vector<Report> reports;
};
