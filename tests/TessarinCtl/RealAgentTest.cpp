#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CtlRun.h"
#include "TessarinUserAgent/linux/interface/AgentProgram.h"
#include "common/json.h"
#include "support/WaitFor.h"

namespace {

using testing::HasSubstr;

// The commands and the agent as they are shipped, without any display.
class RealAgentTest : public AgentProgramTest {
 protected:
    fake::CtlRun run(const std::vector<std::string>& arguments) const {
        return fake::RunCtl(arguments, {bus.address(), "", program, "", ctl::Patience()});
    }
};

TEST_F(RealAgentTest, TellsItsStatusAndTakesAFile) {
    environment["XDG_SESSION_TYPE"] = "wayland";
    EXPECT_THAT(run({"status"}).err, HasSubstr("No agent runs"));
    const auto agent = start();
    fake::CtlRun status;
    ASSERT_TRUE(WaitUntil([&] {
        status = run({"status", "--json"});
        return !status.out.empty() && status.out.find("failure") == std::string::npos;
    })) << status.out;
    EXPECT_EQ(status.code, 1) << "no service and no permission is there";
    rapidjson::Document document;
    document.Parse(status.out.c_str());
    ASSERT_FALSE(document.HasParseError()) << status.out;
    const auto& told = document["agent"];
    EXPECT_EQ(told["pid"].GetInt(), agent->pid());
    EXPECT_STREQ(told["sessionType"].GetString(), "wayland");
    EXPECT_STREQ(told["icon"].GetString(), "none");
    ASSERT_EQ(told["services"].Size(), 2U);
    EXPECT_FALSE(told["services"][0]["reached"].GetBool());
    EXPECT_FALSE(told["permissions"]["accessibility"].GetBool());

    EXPECT_EQ(run({"open", "/some/file"}).code, 0);
    EXPECT_TRUE(WaitUntil([&] { return logHas("A properties window cannot be made"); }));
    EXPECT_THAT(run({"logs"}).out, HasSubstr("Starting TessarinUserAgent"));
    End(*agent);
}

}  // namespace
