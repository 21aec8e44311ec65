#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/fs.h"
#include "support/LogCapture.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class TraverseTest : public testing::Test {
 protected:
    void makeFile(const std::string& name) {
        fs::create_directories((root_ / name).parent_path());
        cmn::StrToFile("x", root_ / name);
    }
    // The names that the walk calls back for, from the root on.
    std::vector<std::string> walk(const std::vector<fs::path>& skip = {},
                                  const std::set<std::string>& extensions = {}) {
        std::vector<std::string> names;
        cmn::TraverseDirectoryNoThrow(
            root_, [&](const fs::path& path) { names.push_back(path.lexically_relative(root_)); },
            keepRunning_, skip, extensions);
        return names;
    }

    const fake::TemporaryFolder folder_;
    const fs::path root_ = folder_ / "root";
    std::atomic<bool> keepRunning_ = true;
    fake::LogCapture log_;
};

testing::Matcher<std::string> Line(const std::string& tag, const std::string& message) {
    return AllOf(StartsWith(tag + " ["), HasSubstr(" traverse.cpp:"),
                 EndsWith(" TraverseDirectoryNoThrow -- " + message));
}

TEST_F(TraverseTest, FindsEveryFileBelowTheRoot) {
    makeFile("a");
    makeFile("b/c");
    makeFile("b/d/e");
    fs::create_directories(root_ / "empty");
    EXPECT_THAT(walk(), UnorderedElementsAre("a", "b/c", "b/d/e"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, ShortFormFindsTheSame) {
    makeFile("a");
    makeFile("b/c");
    std::vector<std::string> names;
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path& path) { names.push_back(path.filename()); });
    EXPECT_THAT(names, UnorderedElementsAre("a", "c"));
}

TEST_F(TraverseTest, MissingRootIsSilent) {
    EXPECT_THAT(walk(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, StoppedFromTheStartIsSilent) {
    makeFile("a");
    keepRunning_ = false;
    EXPECT_THAT(walk(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, RootThatIsAFileFindsNothing) {
    cmn::StrToFile("x", root_);
    EXPECT_THAT(walk(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, StopsWithALineWhenToldToWhileItRuns) {
    for (const auto* name : {"a", "b", "c"})
        makeFile(name);
    int calls = 0;
    cmn::TraverseDirectoryNoThrow(root_,
                                  [&](const fs::path&) {
                                      ++calls;
                                      keepRunning_ = false;
                                  },
                                  keepRunning_, {}, {});
    EXPECT_EQ(calls, 1);
    const auto lines = log_.lines();
    EXPECT_THAT(lines,
                ElementsAre(testing::AnyOf(Line("[TRACE]", "Filesystem traverse aborted " + root_.string() +
                                                               " -- " + (root_ / "a").string()),
                                           Line("[TRACE]", "Filesystem traverse aborted " + root_.string() +
                                                               " -- " + (root_ / "b").string()),
                                           Line("[TRACE]", "Filesystem traverse aborted " + root_.string() +
                                                               " -- " + (root_ / "c").string()))));
}

TEST_F(TraverseTest, StoppingAtTheLastEntryIsSilent) {
    makeFile("a");
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path&) { keepRunning_ = false; }, keepRunning_, {},
                                  {});
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, SkipsFoldersAndSaysSo) {
    makeFile("kept/a");
    makeFile("skipped/b");
    makeFile("skipped/deeper/c");
    EXPECT_THAT(walk({root_ / "skipped"}), ElementsAre("kept/a"));
    EXPECT_THAT(log_.lines(),
                ElementsAre(Line("[TRACE]", "Folder [" + (root_ / "skipped").string() + "] is skipped")));
}

TEST_F(TraverseTest, SkipsWhateverBeginsLikeASkippedFolder) {
    makeFile("a");
    makeFile("skip/b");
    makeFile("skipped/c");
    makeFile("skipper");
    EXPECT_THAT(walk({root_ / "nothing", root_ / "skip"}), ElementsAre("a"));
    EXPECT_EQ(log_.count("] is skipped"), 3U);
}

TEST_F(TraverseTest, FiltersByTheEndOfThePathWhateverTheCase) {
    for (const auto* name : {"a.txt", "b.TXT", "c.Doc", "d.txt2", "txt", "e.tar.gz", "f"})
        makeFile(name);
    EXPECT_THAT(walk({}, {".txt", ".DOC"}), UnorderedElementsAre("a.txt", "b.TXT", "c.Doc"));
    EXPECT_THAT(walk({}, {".tar.gz"}), UnorderedElementsAre("e.tar.gz"));
    EXPECT_THAT(walk({}, {"txt"}), UnorderedElementsAre("a.txt", "b.TXT", "txt"));
    EXPECT_THAT(walk({}, {".none"}), IsEmpty());
    EXPECT_EQ(walk({}, {""}).size(), 7U);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, FilterDoesNotKeepItOutOfFolders) {
    makeFile("folder/a.txt");
    makeFile("folder.txt/b");
    EXPECT_THAT(walk({}, {".txt"}), ElementsAre("folder/a.txt"));
}

TEST_F(TraverseTest, FollowsALinkToAFileButNotOneToAFolder) {
    makeFile("a");
    cmn::StrToFile("x", folder_ / "outside");
    fs::create_directories(folder_ / "other");
    cmn::StrToFile("x", folder_ / "other" / "hidden");
    fs::create_symlink(folder_ / "outside", root_ / "link");
    fs::create_directory_symlink(folder_ / "other", root_ / "folderlink");
    EXPECT_THAT(walk(), UnorderedElementsAre("a", "link"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, DoesNotRunInCircles) {
    makeFile("a/b");
    fs::create_directory_symlink(root_, root_ / "a" / "circle");
    EXPECT_THAT(walk(), ElementsAre("a/b"));
}

TEST_F(TraverseTest, LinkThatLeadsNowhereIsAnErrorAndTheWalkGoesOn) {
    makeFile("a");
    fs::create_symlink(folder_ / "nowhere", root_ / "link");
    EXPECT_THAT(walk(), ElementsAre("a"));
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ERROR]", "Access to [" + (root_ / "link").string() +
                                                              "] failed with - " + std::strerror(ENOENT))));
}

TEST_F(TraverseTest, LinkToItselfIsAnErrorAndTheWalkGoesOn) {
    makeFile("a");
    fs::create_symlink("link", root_ / "link");
    EXPECT_THAT(walk(), ElementsAre("a"));
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ERROR]", "Access to [" + (root_ / "link").string() +
                                                              "] failed with - " + std::strerror(ELOOP))));
}

TEST_F(TraverseTest, PassesOverWhatIsNoFile) {
    makeFile("a");
    ASSERT_EQ(mkfifo((root_ / "fifo").c_str(), 0600), 0);
    fs::create_symlink("/dev/null", root_ / "device");
    EXPECT_THAT(walk(), ElementsAre("a"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, ErrorOfTheCallbackIsLoggedAndTheWalkGoesOn) {
    makeFile("a");
    makeFile("b");
    int calls = 0;
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path& path) {
        ++calls;
        if (path.filename() == "a")
            throw std::runtime_error("its {} text");
    });
    EXPECT_EQ(calls, 2);
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ERROR]", "Accessing to [" + (root_ / "a").string() +
                                                              "] delegate throws - its {} text")));
}

TEST_F(TraverseTest, UnknownErrorOfTheCallbackIsLoggedAndTheWalkGoesOn) {
    makeFile("a");
    makeFile("b");
    int calls = 0;
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path& path) {
        ++calls;
        if (path.filename() == "b")
            throw 1;
    });
    EXPECT_EQ(calls, 2);
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ERROR]", "Accessing to [" + (root_ / "b").string() +
                                                              "] delegate throws - unknown exception")));
}

TEST_F(TraverseTest, SurvivesFilesAndFoldersThatVanishMeanwhile) {
    makeFile("a/b/c");
    makeFile("d");
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path&) { fs::remove_all(root_); });
    EXPECT_FALSE(fs::exists(root_));
}

TEST_F(TraverseTest, ErrorOnTheWayIsLoggedAndEndsTheWalk) {
    makeFile("one/a");
    makeFile("two/a");
    // Whichever comes first takes the other away, which the walk has already seen.
    fs::path gone;
    int calls = 0;
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path& path) {
        ++calls;
        gone = root_ / (path.parent_path().filename() == "one" ? "two" : "one");
        fs::remove_all(gone);
    });
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ERROR]", "Access to [" + gone.string() +
                                                              "] failed with: " + std::strerror(ENOENT))));
}

// Folders keep nobody out who is root; the walk then runs as another user.
TEST_F(TraverseTest, PassesOverFoldersThatItMayNotRead) {
    makeFile("a");
    makeFile("closed/b");
    fs::permissions(folder_.path(), fs::perms::all);
    fs::permissions(root_ / "closed", fs::perms::none);
    const bool root = geteuid() == 0;
    ASSERT_TRUE(!root || seteuid(65'534) == 0);
    const auto names = walk();
    ASSERT_TRUE(!root || seteuid(0) == 0);
    fs::permissions(root_ / "closed", fs::perms::all);
    EXPECT_THAT(names, ElementsAre("a"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
