#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "useragent/SilentProcesses.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using useragent::AXError;

class SilentProcessesTest : public testing::Test {
 protected:
    // Probes all of them; those in `hung` do not answer.
    void probe(const std::vector<std::int32_t>& pids, const std::vector<std::int32_t>& hung = {}) {
        processes.probe(pids, [&](std::int32_t pid) {
            probed.push_back(pid);
            return std::count(hung.begin(), hung.end(), pid) > 0 ? AXError::cannotComplete : AXError::success;
        });
    }

    fake::LogCapture log;
    useragent::SilentProcesses processes;
    std::vector<std::int32_t> probed;
};

TEST_F(SilentProcessesTest, AReadThatTimedOutSilencesItsProcessOnly) {
    processes.note(7, AXError::cannotComplete);
    processes.note(8, AXError::success);
    EXPECT_TRUE(processes.isSilent(7));
    EXPECT_FALSE(processes.isSilent(8));
}

TEST_F(SilentProcessesTest, OtherErrorsAreAnswers) {
    processes.note(7, AXError::attributeUnsupported);
    EXPECT_FALSE(processes.isSilent(7));
    processes.note(7, AXError::cannotComplete);
    processes.note(7, AXError::success);
    EXPECT_TRUE(processes.isSilent(7)) << "only a probe ends it: the other read may be an older one";
}

TEST_F(SilentProcessesTest, AProbeThatIsAnsweredEndsTheSilence) {
    probe({7, 8}, {7});
    EXPECT_TRUE(processes.isSilent(7));
    EXPECT_FALSE(processes.isSilent(8));
    probe({7, 8});
    EXPECT_FALSE(processes.isSilent(7));
    EXPECT_THAT(probed, ElementsAre(7, 8, 7, 8));
}

TEST_F(SilentProcessesTest, AProcessThatIsGoneIsForgotten) {
    probe({7}, {7});
    probe({});
    EXPECT_FALSE(processes.isSilent(7));
}

TEST_F(SilentProcessesTest, EachChangeIsSaidOnce) {
    probe({7}, {7});
    processes.note(7, AXError::cannotComplete);
    probe({7}, {7});
    probe({7});
    probe({7});
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("The application with process id 7 does not answer"),
                                         HasSubstr("The application with process id 7 answers again")));
}

}  // namespace
