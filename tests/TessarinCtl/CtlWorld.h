#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusMessage>
#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "CtlRun.h"
#include "common/json.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"
#include "support/RawPeer.h"

namespace fake {

// A session and a system bus of the test's own, with nobody on them, and a folder for everything else.
class CtlWorld : public testing::Test {
 protected:
    // Somebody who has a name on a bus, and answers each call of these arguments with this one; with nothing,
    // or never.
    using Answer = std::function<QVariant(const QDBusMessage& call)>;
    static std::unique_ptr<RawPeer> serve(const PrivateBus& bus, const char* name, Answer answer) {
        auto peer = std::make_unique<RawPeer>(
            bus.address(),
            [answer = std::move(answer)](const QDBusMessage& call, QDBusConnection connection) {
                if (const QVariant value = answer(call); value.isValid()) {
                    connection.send(call.createReply(value));
                }
            });
        EXPECT_TRUE(peer->own(name));
        return peer;
    }
    // For those who wait for the end of their patience.
    void hurry() {
        constexpr std::chrono::milliseconds kShort{300};
        surroundings.patience = {kShort, kShort, kShort, kShort, kShort};
    }
    CtlRun run(const std::vector<std::string>& arguments, std::size_t columns = 0) const {
        return RunCtl(arguments, surroundings, {}, columns);
    }
    // What a program reads of the output; fails the test when it is no JSON.
    static rapidjson::Document parse(const std::string& json) {
        rapidjson::Document document;
        document.Parse(json.c_str());
        EXPECT_FALSE(document.HasParseError()) << json;
        return document;
    }

    LogCapture log;
    TemporaryFolder folder;
    PrivateBus session;
    PrivateBus system;
    ctl::Surroundings surroundings{session.address(), system.address(),
                                   folder / "opt/TessarinUserAgent.app/Contents/Linux/TessarinUserAgent",
                                   folder / "state/tessarin", ctl::Patience()};
};

}  // namespace fake
