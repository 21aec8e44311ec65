#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "ScriptedUserAgent.h"
#include "support/FakeDispatch.h"
#include "support/LogCapture.h"
#include "xpccommon/UserAgentObjCXPCClient.h"

class UserAgentXPCClientTest : public testing::Test {
 protected:
    void TearDown() override { dispatch->close(); }

    std::shared_ptr<cmn::UserAgentObjCXPCClient> makeClient(
        cmn::URLExtractorDelegate delegate = [](const auto&) { return std::string("url"); },
        cmn::ServiceOwners owners = cmn::ServiceOwners::anybody) {
        return std::make_shared<cmn::UserAgentObjCXPCClient>(std::move(delegate), dispatch,
                                                             daemon.transport(), owners);
    }
    std::shared_ptr<cmn::UserAgentObjCXPCClient> connectedClient(
        cmn::ServiceOwners owners = cmn::ServiceOwners::anybody) {
        auto client = makeClient([](const auto&) { return std::string("url"); }, owners);
        client->connect();
        dispatch->runUntilIdle();
        return client;
    }

    fake::LogCapture log;
    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    ScriptedUserAgent daemon{dispatch};
};
