#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "FolderWalk.h"
#include "OwnProcess.h"
#include "common/fs.h"
#include "common/traverse.h"
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

testing::Matcher<std::string> Line(const std::string& tag, const std::string& message) {
    return AllOf(StartsWith(tag + " ["), HasSubstr(" traverse.cpp:"),
                 EndsWith(" TraverseDirectoryNoThrow -- " + message));
}

class TraverseTest : public testing::Test {
 protected:
    void makeFiles(const std::vector<std::string>& names) {
        for (const auto& name : names) {
            fs::create_directories((root_ / name).parent_path());
            cmn::StrToFile("x", root_ / name);
        }
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
    // Though the callback fails for one of two files.
    void expectWalkPast(const std::function<void()>& fail, const std::string& words) {
        makeFiles({"a", "b"});
        int calls = 0;
        cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path& path) {
            ++calls;
            if (path.filename() == "a")
                fail();
        });
        EXPECT_EQ(calls, 2);
        EXPECT_THAT(log_.lines(), ElementsAre(Line("[ERROR]", "Accessing to [" + (root_ / "a").string() +
                                                                  "] delegate throws - " + words)));
    }

    const fake::TemporaryFolder folder_;
    const fs::path root_ = folder_ / "root";
    std::atomic<bool> keepRunning_ = true;
    fake::LogCapture log_;
};

// The only line: that an entry could not be accessed.
auto OnlyFailed(const fs::path& entry, const std::string& how, int error) {
    return ElementsAre(
        Line("[ERROR]", "Access to [" + entry.string() + "] failed " + how + " " + std::strerror(error)));
}

TEST_F(TraverseTest, FindsEveryFileBelowTheRoot) {
    makeFiles({"a", "b/c", "b/d/e"});
    fs::create_directories(root_ / "empty");
    EXPECT_THAT(walk(), UnorderedElementsAre("a", "b/c", "b/d/e"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, CallsBackWithWellFormedPaths) {
    // Into folders, out of them and on, with names of one and of many characters.
    const std::string longName(200, 'l');
    makeFiles({"a", "bb", "b/c", "b/cc", "b/d/e", "b/d/f.g.h", "b/z", "x/y/z", "y"});
    makeFiles({"b/" + longName});
    const auto expectWellFormed = [](const fs::path& root) {
        int calls = 0;
        cmn::TraverseDirectoryNoThrow(root, [&](const fs::path& path) {
            ++calls;
            const fs::path again(path.native());
            EXPECT_TRUE(std::equal(path.begin(), path.end(), again.begin(), again.end())) << path;
            EXPECT_TRUE(fs::exists(path)) << path;
        });
        EXPECT_EQ(calls, 10);
    };
    expectWellFormed(root_);
    expectWellFormed(root_ / "");
    expectWellFormed(root_.string() + "//");
    expectWellFormed(fs::relative(root_));
}

TEST_F(TraverseTest, ShortFormFindsTheSame) {
    makeFiles({"a", "b/c"});
    std::vector<std::string> names;
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path& path) { names.push_back(path.filename()); });
    EXPECT_THAT(names, UnorderedElementsAre("a", "c"));
}

TEST_F(TraverseTest, MissingRootIsSilent) {
    EXPECT_THAT(walk(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, StoppedFromTheStartIsSilent) {
    makeFiles({"a"});
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
    makeFiles({"a", "b", "c"});
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
    makeFiles({"a"});
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path&) { keepRunning_ = false; }, keepRunning_, {},
                                  {});
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, SkipsFoldersAndSaysSo) {
    makeFiles({"kept/a", "skipped/b", "skipped/deeper/c"});
    EXPECT_THAT(walk({root_ / "skipped"}), ElementsAre("kept/a"));
    EXPECT_THAT(log_.lines(),
                ElementsAre(Line("[TRACE]", "Folder [" + (root_ / "skipped").string() + "] is skipped")));
}

TEST_F(TraverseTest, SkipsWhateverBeginsLikeASkippedFolder) {
    makeFiles({"a", "skip/b", "skipped/c", "skipper"});
    EXPECT_THAT(walk({root_ / "nothing", root_ / "skip"}), ElementsAre("a"));
    EXPECT_EQ(log_.count("] is skipped"), 3U);
}

TEST_F(TraverseTest, FiltersByTheEndOfThePathWhateverTheCase) {
    makeFiles({"a.txt", "b.TXT", "c.Doc", "d.txt2", "txt", "e.tar.gz", "f", "g.AZ"});
    EXPECT_THAT(walk({}, {".txt", ".DOC"}), UnorderedElementsAre("a.txt", "b.TXT", "c.Doc"));
    EXPECT_THAT(walk({}, {".tar.gz"}), UnorderedElementsAre("e.tar.gz"));
    EXPECT_THAT(walk({}, {"txt"}), UnorderedElementsAre("a.txt", "b.TXT", "txt"));
    EXPECT_THAT(walk({}, {".az"}), UnorderedElementsAre("g.AZ"));
    EXPECT_THAT(walk({}, {".none"}), IsEmpty());
    EXPECT_EQ(walk({}, {""}).size(), 8U);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, FilterDoesNotKeepItOutOfFolders) {
    makeFiles({"folder/a.txt", "folder.txt/b"});
    EXPECT_THAT(walk({}, {".txt"}), ElementsAre("folder/a.txt"));
}

TEST_F(TraverseTest, FollowsALinkToAFileButNotOneToAFolder) {
    makeFiles({"a"});
    cmn::StrToFile("x", folder_ / "outside");
    fs::create_directories(folder_ / "other");
    cmn::StrToFile("x", folder_ / "other" / "hidden");
    fs::create_symlink(folder_ / "outside", root_ / "link");
    fs::create_directory_symlink(folder_ / "other", root_ / "folderlink");
    EXPECT_THAT(walk(), UnorderedElementsAre("a", "link"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, DoesNotRunInCircles) {
    makeFiles({"a/b"});
    fs::create_directory_symlink(root_, root_ / "a" / "circle");
    EXPECT_THAT(walk(), ElementsAre("a/b"));
}

TEST_F(TraverseTest, LinkThatLeadsNowhereIsAnErrorAndTheWalkGoesOn) {
    makeFiles({"a"});
    fs::create_symlink(folder_ / "nowhere", root_ / "link");
    EXPECT_THAT(walk(), ElementsAre("a"));
    EXPECT_THAT(log_.lines(), OnlyFailed(root_ / "link", "with -", ENOENT));
}

TEST_F(TraverseTest, LinkToItselfIsAnErrorAndTheWalkGoesOn) {
    makeFiles({"a"});
    fs::create_symlink("link", root_ / "link");
    EXPECT_THAT(walk(), ElementsAre("a"));
    EXPECT_THAT(log_.lines(), OnlyFailed(root_ / "link", "with -", ELOOP));
}

TEST_F(TraverseTest, PassesOverWhatIsNoFile) {
    makeFiles({"a"});
    ASSERT_EQ(mkfifo((root_ / "fifo").c_str(), 0600), 0);
    fs::create_symlink("/dev/null", root_ / "device");
    EXPECT_THAT(walk(), ElementsAre("a"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, ErrorOfTheCallbackIsLoggedAndTheWalkGoesOn) {
    expectWalkPast([] { throw std::runtime_error("its {} text"); }, "its {} text");
}

TEST_F(TraverseTest, ANameForgesNoLine) {
    makeFiles({"a\nb"});
    cmn::TraverseDirectoryNoThrow(root_, [](const fs::path&) { throw std::runtime_error("text"); });
    EXPECT_THAT(log_.lines(), ElementsAre(Line("[ERROR]", "Accessing to [" + (root_ / "a").string() +
                                                              "\\x0ab] delegate throws - text")));
}

TEST_F(TraverseTest, UnknownErrorOfTheCallbackIsLoggedAndTheWalkGoesOn) {
    expectWalkPast([] { throw 1; }, "unknown exception");
}

TEST_F(TraverseTest, SurvivesFilesAndFoldersThatVanishMeanwhile) {
    makeFiles({"a/b/c", "d"});
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path&) { fs::remove_all(root_); });
    EXPECT_FALSE(fs::exists(root_));
}

TEST_F(TraverseTest, ErrorOnTheWayIsLoggedAndEndsTheWalk) {
    makeFiles({"one/a", "two/a"});
    // Whichever comes first takes the other away, which the walk has already seen.
    fs::path gone;
    int calls = 0;
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path& path) {
        ++calls;
        gone = root_ / (path.parent_path().filename() == "one" ? "two" : "one");
        fs::remove_all(gone);
    });
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(log_.lines(), OnlyFailed(gone, "with:", ENOENT));
}

// Names of `count` folders inside one another.
std::string Nested(std::size_t count, const std::string& name = "n") {
    std::string names;
    for (std::size_t i = 0; i < count; ++i)
        names += (i == 0 ? "" : "/") + name;
    return names;
}

TEST_F(TraverseTest, FindsFilesBelowMoreFoldersThanItMayOpen) {
    makeFiles({Nested(300) + "/deepest", "n/upper"});
    const auto found = fake::AnswerInChild([&] {
        const rlimit few{256, 256};
        if (setrlimit(RLIMIT_NOFILE, &few) != 0)
            return std::string("no limit");
        std::set<std::string> names;
        cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path& path) { names.insert(path.filename()); });
        std::string all;
        for (const auto& name : names)
            all += name + " ";
        return all;
    });
    EXPECT_EQ(found, "deepest upper ");
}

TEST_F(TraverseTest, HoldsFewDescriptorsWhateverTheDepth) {
    // Files that the system lists before the folder beside them and files that it lists behind it.
    for (const auto* name : {"before", "behind"}) {
        for (std::size_t depth = 1; depth <= 120; ++depth)
            makeFiles({Nested(depth) + "/" + name});
    }
    const auto before = fake::OpenDescriptors();
    std::size_t most = 0;
    std::size_t calls = 0;
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path&) {
        ++calls;
        most = std::max(most, fake::OpenDescriptors());
    });
    EXPECT_EQ(calls, 240U);
    EXPECT_LE(most, before + cmn::FolderWalk::kMaxOpen + 2);
    EXPECT_EQ(fake::OpenDescriptors(), before);
}

TEST_F(TraverseTest, KeepsTheSystemsOrderAtEveryDepth) {
    // A long chain with files and shorter chains beside every folder.
    for (std::size_t depth = 0; depth < 100; depth += 6) {
        for (const auto* name : {"a", "m", "z"})
            makeFiles({(fs::path(Nested(depth)) / name).string()});
        makeFiles({(fs::path(Nested(depth)) / "side" / Nested(depth % 50, "s") / "file").string()});
    }
    std::vector<std::string> expected;
    for (const auto& entry : fs::recursive_directory_iterator(root_)) {
        if (entry.is_regular_file())
            expected.push_back(entry.path().lexically_relative(root_));
    }
    EXPECT_EQ(expected.size(), 17U * 4);
    EXPECT_EQ(walk(), expected);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, FindsFilesWhosePathIsTooLongForTheSystem) {
    fs::create_directories(root_);
    const std::string name(200, 'x');
    const auto home = fs::current_path();
    fs::current_path(root_);
    for (int i = 0; i < 50; ++i) {
        fs::create_directory(name);
        fs::current_path(name);
    }
    cmn::StrToFile("x", "deepest");
    fs::create_symlink("deepest", "link");
    fs::current_path(home);
    makeFiles({"upper"});
    EXPECT_THAT(walk(),
                UnorderedElementsAre(Nested(50, name) + "/deepest", Nested(50, name) + "/link", "upper"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TraverseTest, TakesTheRootAsItIsWritten) {
    makeFiles({"a/b"});
    const auto names = [](const std::string& root) {
        std::vector<std::string> found;
        cmn::TraverseDirectoryNoThrow(root, [&](const fs::path& path) { found.push_back(path.string()); });
        return found;
    };
    const auto root = root_.string();
    fs::create_directory_symlink(root_, folder_ / "link");
    EXPECT_THAT(names(root), ElementsAre(root + "/a/b"));
    EXPECT_THAT(names(root + "/"), ElementsAre(root + "/a/b"));
    EXPECT_THAT(names((folder_ / "link").string()), ElementsAre((folder_ / "link").string() + "/a/b"));
    EXPECT_THAT(names(""), IsEmpty());
}

// A walk that is told to go on after its first file, when the folder it has not seen yet is another.
TEST_F(TraverseTest, DoesNotLeaveTheRootThroughALinkThatTookAFoldersPlace) {
    makeFiles({"one/a", "two/a"});
    fs::create_directories(folder_ / "other");
    cmn::StrToFile("x", folder_ / "other" / "hidden");
    fs::path swapped;
    std::vector<std::string> names;
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path& path) {
        names.push_back(path.filename());
        swapped = root_ / (path.parent_path().filename() == "one" ? "two" : "one");
        fs::remove_all(swapped);
        fs::create_directory_symlink(folder_ / "other", swapped);
    });
    EXPECT_THAT(names, ElementsAre("a"));
    EXPECT_THAT(log_.lines(), OnlyFailed(swapped, "with:", ENOTDIR));
}

TEST_F(TraverseTest, DoesNotComeBackToALinkThatTookAFoldersPlace) {
    const auto deepest = Nested(60) + "/deepest";
    makeFiles({deepest});
    for (const auto* name : {"a", "z"})
        makeFiles({(fs::path(Nested(5)) / name / "file").string()});
    fs::create_directories(folder_ / "other");
    const auto moved = root_ / Nested(3);
    std::vector<std::string> names;
    cmn::TraverseDirectoryNoThrow(root_, [&](const fs::path& path) {
        names.push_back(path.lexically_relative(root_));
        if (names.back() != deepest)
            return;
        fs::rename(moved, folder_ / "moved");
        fs::create_directory_symlink(folder_ / "moved", moved);
    });
    EXPECT_EQ(names.back(), deepest);
    EXPECT_THAT(log_.lines(), OnlyFailed(root_ / deepest, "with:", ENOTDIR));
}

TEST_F(TraverseTest, DoesNotLookAtFilesOfOtherExtensions) {
    makeFiles({"a.txt"});
    fs::create_symlink(folder_ / "nowhere", root_ / "link.doc");
    EXPECT_THAT(walk({}, {".txt"}), ElementsAre("a.txt"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

// Folders keep nobody out who is root; the walk then runs as another user.
TEST_F(TraverseTest, PassesOverFoldersThatItMayNotRead) {
    makeFiles({"a", "closed/b"});
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
