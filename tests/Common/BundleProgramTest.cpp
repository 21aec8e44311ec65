#include <gmock/gmock.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "common/SystemUtils.h"
#include "common/fs.h"
#include "support/LogCapture.h"

// A program in an application folder of its own.

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

std::vector<std::string> AnswersOf(const fs::path& program, const std::string& question = "places") {
    std::istringstream in(cmn::ExecProcess(program.string(), {question}, true));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

class BundleProgramTest : public testing::Test {
 protected:
    BundleProgramTest() {
        fs::create_directories(program_.parent_path());
        fs::copy_file(BUNDLE_PROBE, program_);
    }
    void writePlist(const std::string& text) const { cmn::StrToFile(text, plist_); }
    std::string version() const { return AnswersOf(program_).at(2); }

    const fake::TemporaryFolder folder_;
    const fs::path root_ = fs::canonical(folder_.path());
    const fs::path bundle_ = root_ / "Probe.app";
    const fs::path program_ = bundle_ / "Contents/Linux/Probe";
    const fs::path plist_ = bundle_ / "Contents/Info.plist";
    fake::LogCapture log_;
};

TEST_F(BundleProgramTest, SharesTheFolderThatHoldsTheBundle) {
    writePlist("<plist><dict><key>CFBundleShortVersionString</key><string>1.2.3</string></dict></plist>");
    EXPECT_THAT(AnswersOf(program_),
                ElementsAre(program_, root_, "1.2.3", "Probe", (root_ / "Log").string()));
    EXPECT_TRUE(fs::is_directory(root_ / "Log"));
}

TEST_F(BundleProgramTest, SharesItsOwnFolderWithoutABundle) {
    fs::create_directory(root_ / "bare");
    const auto bare = root_ / "bare" / "Probe.old.exe";
    fs::copy_file(BUNDLE_PROBE, bare);
    EXPECT_THAT(AnswersOf(bare), ElementsAre(bare, root_ / "bare", "no version", "Probe.old",
                                             (root_ / "bare" / "Log").string()));
}

TEST_F(BundleProgramTest, HasNoVersionWithoutAReadableOne) {
    EXPECT_EQ(version(), "no version");
    writePlist("<plist><dict><key>CFBundleVersion</key><string>7</string></dict></plist>");
    EXPECT_EQ(version(), "no version");
    writePlist("<plist><dict><key>CFBundleShortVersionString</key><string>7");
    EXPECT_EQ(version(), "no version");
    fs::remove(plist_);
    fs::create_directory(plist_);
    EXPECT_EQ(version(), "no version");
}

TEST_F(BundleProgramTest, RemembersItsPathWhenItsFileMoves) {
    const auto path = program_.string();
    EXPECT_THAT(AnswersOf(program_, "moved"),
                ElementsAre(path, path, path + ".moved", path, path + ".moved"));
    EXPECT_FALSE(fs::exists(program_));
}

TEST_F(BundleProgramTest, AsksForItsPathAgainWhenThereWasNoAnswer) {
    const auto answers = AnswersOf(program_, "late");
    if (answers.empty())
        GTEST_SKIP() << "This user may not hide the processes.";
    EXPECT_THAT(answers, ElementsAre("", program_.string()));
}

}  // namespace
