#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "common/fs.h"
#include "doctor/Check.h"

namespace ctl {
namespace {

// The manual has a section for each check, of its name and in its order, and nothing else has one.
TEST(TroubleshootingTest, TheManualHasEachCheckInItsOrder) {
    std::istringstream manual(cmn::FileToStr(PROJECT_FOLDER "/docs/troubleshooting.md"));
    std::vector<std::string> headings;
    std::string section;
    std::vector<std::string> sections;
    for (std::string line; std::getline(manual, line);) {
        if (line.starts_with("## ")) {
            headings.push_back(line.substr(3));
            sections.emplace_back();
        } else if (!sections.empty()) {
            sections.back() += line + '\n';
        }
    }
    std::vector<std::string> expected;
    for (const Check& check : Checks()) {
        expected.push_back(std::string("`") + check.id + "`: " + check.title);
    }
    EXPECT_THAT(headings, testing::ElementsAreArray(expected));
    for (std::size_t i = 0; i < sections.size(); ++i) {
        for (const char* const part : {"**What users see.** ", "**Cause.** ", "**Remedy.** "}) {
            EXPECT_THAT(sections[i], testing::HasSubstr(part)) << headings[i];
        }
    }
}

}  // namespace
}  // namespace ctl
