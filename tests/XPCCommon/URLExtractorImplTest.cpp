#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/SystemLogCapture.h"
#include "xpccommon/URLExtractorImpl.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class URLExtractorImplTest : public testing::Test {
 protected:
    bool ask(cmn::URLExtractorDelegate delegate, const std::string& browser = "Safari") {
        bool replied = false;
        cmn::URLExtractorImpl(std::move(delegate)).getURL(browser, [&](const std::string& url) {
            replied = true;
            answer = url;
        });
        return replied;
    }

    fake::SystemLogCapture systemLog;
    std::string answer;
};

TEST_F(URLExtractorImplTest, RepliesWithWhatTheDelegateReturns) {
    EXPECT_TRUE(ask([](const std::string& browser) { return "url of " + browser; }));
    EXPECT_EQ(answer, "url of Safari");
}

TEST_F(URLExtractorImplTest, AnEmptyBrowserNameIsAskedFor) {
    EXPECT_TRUE(ask([](const std::string& browser) { return "<" + browser + ">"; }, ""));
    EXPECT_EQ(answer, "<>");
}

TEST_F(URLExtractorImplTest, PassesTextThroughThatIsNoURL) {
    EXPECT_TRUE(ask([](const std::string&) { return std::string("no url at all"); }));
    EXPECT_EQ(answer, "no url at all");
}

TEST_F(URLExtractorImplTest, AnExceptionGoesToTheSystemLogAndThereIsNoReply) {
    EXPECT_FALSE(ask([](const std::string&) -> std::string { throw std::runtime_error("100% broken"); }));
    EXPECT_THAT(systemLog.lines(), ElementsAre("100% broken"));
}

TEST_F(URLExtractorImplTest, AnEmptyDelegateRaisesBadFunctionCallOnThatPath) {
    EXPECT_FALSE(ask(nullptr));
    EXPECT_THAT(systemLog.lines(), ElementsAre(std::bad_function_call().what()));
}

TEST_F(URLExtractorImplTest, AReplyIsNoReasonForTheSystemLog) {
    EXPECT_TRUE(ask([](const std::string&) { return std::string(); }));
    EXPECT_THAT(systemLog.lines(), IsEmpty());
}

}  // namespace
