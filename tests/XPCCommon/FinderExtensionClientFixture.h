#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "ScriptedFinderExtension.h"
#include "support/FakeDispatch.h"
#include "support/LogCapture.h"
#include "support/SystemLogCapture.h"
#include "xpccommon/FinderExtensionXPCClient.h"

class FinderExtensionXPCClientTest : public testing::Test {
 protected:
    void TearDown() override { dispatch->close(); }

    std::shared_ptr<cmn::FinderExtensionXPCClient> makeClient(
        cmn::ServiceOwners owners = cmn::ServiceOwners::anybody) {
        return std::make_shared<cmn::FinderExtensionXPCClient>(dispatch, service.transport(), owners);
    }
    // Its validation has not run yet: nothing but what the test asks reaches the service.
    std::shared_ptr<cmn::FinderExtensionXPCClient> connectedClient() {
        auto client = makeClient();
        client->connect();
        return client;
    }
    std::shared_ptr<cmn::FinderExtensionXPCClient> validatedClient() {
        auto client = connectedClient();
        dispatch->runUntilIdle();
        return client;
    }

    fake::SystemLogCapture systemLog;
    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    ScriptedFinderExtension service{dispatch};
};
