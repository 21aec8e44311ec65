#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "Askers.h"
#include "Common/Failures.h"
#include "Common/OwnProcess.h"
#include "Common/OwnSystem.h"
#include "FileScanner.h"
#include "FileText.h"
#include "ReplacementFile.h"
#include "SealedFile.h"
#include "common/fs.h"
#include "support/LogCapture.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uid_t kUnknownUser = 3'999'999'999;
const std::string kSealed = std::string(kSealLine) + "secret";

UserIdentity UserNamed(const char* name) {
    const passwd* const entry = getpwnam(name);
    EXPECT_NE(entry, nullptr) << name;
    return entry != nullptr ? UserIdentity{entry->pw_uid, entry->pw_gid, {entry->pw_gid}} : UserIdentity{};
}

uid_t FileUserOfThisThread() {
    return static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1)));
}

// A folder that everybody may enter, and a scanner that finds each word.
class ScannerFolder : public testing::Test {
 protected:
    ScannerFolder() {
        fs::permissions(folder_.path(), fs::perms(0755));
        cmn::StrToFile(R"({"Classifiers": [{"Name": "Words", "Pattern": "[a-z]+"}]})", options_.classifiers);
    }

    std::vector<std::string> words(const std::string& path, const std::optional<cmn::XPCPeer>& asker) const {
        std::vector<std::string> counts;
        for (const auto& record : FileScanner(options_).GetScanResult(path, asker)) {
            counts.push_back(record.at("MatchCount"));
        }
        return counts;
    }

    // Everything that is answered about the file: its words, whether it is sealed, the status of decrypting
    // it.
    std::string answers(const std::string& path, const std::optional<cmn::XPCPeer>& asker) const {
        FileScanner scanner(options_);
        std::string text = std::to_string(scanner.GetScanResult(path, asker).size());
        text += scanner.CheckEncryptionStatus(path, asker) ? " sealed " : " open ";
        return text + std::to_string(scanner.Decrypt(path, asker));
    }

    const fake::TemporaryFolder folder_;
    ScannerOptions options_{.classifiers = folder_ / "classifiers.json", .records = {}};
};

class UnknownAskerTest : public ScannerFolder {};

TEST_F(UnknownAskerTest, LearnsAndChangesNothing) {
    const fs::path file = folder_ / "file";
    cmn::StrToFile(kSealed, file);
    fake::LogCapture log(LogLevel::Debug);
    EXPECT_EQ(answers(file, std::nullopt), "0 open 3");
    EXPECT_EQ(cmn::FileToStr(file), kSealed);
    const auto line = EndsWith("No answer about " + file.string() + " -- It is not known who asks");
    EXPECT_THAT(log.lines(), ElementsAre(line, line, line));
    EXPECT_EQ(answers(file, fake::Self()), "1 sealed 0") << "others are answered";
}

TEST_F(UnknownAskerTest, LearnsNothingThatIsLaidDown) {
    options_.records = folder_ / "records.json";
    cmn::StrToFile(R"({"/laid/down": [{"Name": "Fixed"}]})", options_.records);
    FileScanner scanner(options_);
    EXPECT_THAT(scanner.GetScanResult("/laid/down", std::nullopt), IsEmpty());
    EXPECT_THAT(scanner.GetScanResult("/laid/down", fake::Self()), SizeIs(1));
}

TEST_F(UnknownAskerTest, AHostThatIsNotRootServesItsOwnUserOnly) {
    const fs::path file = folder_ / "file";
    cmn::StrToFile(kSealed, file);
    fs::permissions(file, fs::perms(0666));
    const auto others = [&] {
        std::string text;
        for (const uid_t user : {uid_t{0}, uid_t{1}, geteuid() + 1}) {
            text += answers(file, fake::Asker(user)) + "\n";
        }
        text += std::to_string(words(file, fake::Self()).size());
        return text;
    };
    EXPECT_EQ(fake::AnswerInChild([&] {
                  const auto user = geteuid() == 0 ? UserNamed("nobody").user : geteuid();
                  return setresuid(user, user, user) == 0 ? others() : "cannot be another user";
              }),
              "0 open 3\n0 open 3\n0 open 3\n1");
}

class OtherUsersTest : public ScannerFolder {
 protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can act for other users";
        }
    }

    // Makes the file anew.
    fs::path make(const std::string& name, const std::string& content, uid_t user, gid_t group,
                  mode_t mode) const {
        const fs::path file = folder_ / name;
        cmn::StrToFile(content, file);
        EXPECT_EQ(chown(file.c_str(), user, group), 0);
        EXPECT_EQ(chmod(file.c_str(), mode), 0);
        return file;
    }
    fs::path makeFolder(const std::string& name, uid_t user, mode_t mode) const {
        const fs::path place = folder_ / name;
        fs::create_directory(place);
        EXPECT_EQ(chown(place.c_str(), user, 0), 0);
        EXPECT_EQ(chmod(place.c_str(), mode), 0);
        return place;
    }
    static struct stat StatusOf(const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        return status;
    }
    static std::size_t EntriesOf(const fs::path& path) {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(path), fs::directory_iterator()));
    }
    std::string read(const std::string& path, const FileUser& user) const {
        ScanBounds bounds({.time = std::chrono::hours(1)});
        return ReadFileText(path, user, 1'000, bounds).text;
    }
    UnsealStatus decrypt(const fs::path& path, const UserIdentity& user) const {
        return static_cast<UnsealStatus>(FileScanner(options_).Decrypt(path, fake::Asker(user.user)));
    }

    const UserIdentity nobody_ = UserNamed("nobody");
    const UserIdentity daemon_ = UserNamed("daemon");
};

TEST_F(OtherUsersTest, LearnOnlyWhatTheModeLetsThemRead) {
    const std::string yes = "1 sealed 4";
    const std::string no = "0 open 3";
    using Case = std::tuple<uid_t, gid_t, mode_t, uid_t, std::string>;
    for (const auto& [owner, group, mode, asker, expected] :
         {Case{0, 0, 0600, nobody_.user, no}, Case{0, 0, 0644, nobody_.user, yes},
          Case{0, 0, 0640, nobody_.user, no}, Case{0, daemon_.group, 0640, daemon_.user, yes},
          Case{0, daemon_.group, 0640, nobody_.user, no}, Case{0, daemon_.group, 0604, daemon_.user, no},
          Case{daemon_.user, 0, 0600, daemon_.user, yes}, Case{daemon_.user, 0, 0600, nobody_.user, no},
          Case{daemon_.user, 0, 0044, daemon_.user, no},
          Case{nobody_.user, nobody_.group, 0000, nobody_.user, no}}) {
        const fs::path file = make("file", kSealed, owner, group, mode);
        EXPECT_EQ(answers(file, fake::Asker(asker)), expected)
            << owner << ":" << group << " " << std::oct << mode << " for " << std::dec << asker;
        EXPECT_EQ(cmn::FileToStr(file), kSealed);
    }
}

TEST_F(OtherUsersTest, AreNotServedWhenTheyAreNotKnown) {
    const fs::path file = make("file", kSealed, 0, 0, 0666);
    fake::LogCapture log(LogLevel::Debug);
    EXPECT_EQ(answers(file, fake::Asker(kUnknownUser)), "0 open 3");
    EXPECT_EQ(log.count("No answer about " + file.string() + " -- The user 3999999999 is not known"), 3U);
    EXPECT_THAT(log.lines(), SizeIs(3));
}

TEST_F(OtherUsersTest, ReadWithTheirGroupsAndNotWithThoseOfTheHost) {
    constexpr gid_t kGroup = 54'321;
    const fs::path file = make("file", "text", 0, kGroup, 0640);
    UserIdentity member = nobody_;
    member.groups = {7, kGroup, 9};
    EXPECT_EQ(read(file, FileUser(member)), "text");
    EXPECT_EQ(fake::FailureOf([&] { read(file, FileUser(nobody_)); }), "Permission denied");
    // In a process whose root belongs to the group, too.
    EXPECT_EQ(fake::AnswerInChild([&] {
                  const std::vector<gid_t> groups{0, kGroup};
                  return setgroups(groups.size(), groups.data()) == 0 ? read(file, FileUser(nobody_))
                                                                      : "cannot join a group";
              }),
              "Permission denied");
}

TEST_F(OtherUsersTest, DoNotReachFilesInFoldersThatTheyMayNotEnter) {
    const fs::path closed = makeFolder("closed", 0, 0700);
    make("closed/file", kSealed, nobody_.user, nobody_.group, 0666);
    fs::create_symlink(closed / "file", folder_ / "link");
    const int opened = open((closed / "file").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(opened, 0);
    for (const std::string& path :
         {(closed / "file").string(), (folder_ / "link").string(), "/proc/self/fd/" + std::to_string(opened),
          "/dev/fd/" + std::to_string(opened),
          "/proc/" + std::to_string(getpid()) + "/task/" + std::to_string(gettid()) + "/fd/" +
              std::to_string(opened)}) {
        EXPECT_EQ(answers(path, fake::Asker(nobody_.user)), "0 open 3") << path;
        EXPECT_THAT(words(path, fake::Self()), ElementsAre("1")) << path;
    }
    fs::permissions(closed, fs::perms(0711));
    EXPECT_EQ(answers(closed / "file", fake::Asker(nobody_.user)), "1 sealed 4");
    close(opened);
}

TEST_F(OtherUsersTest, DoNotBeginInTheFolderOfTheHost) {
    const fs::path closed = makeFolder("closed", 0, 0700);
    make("closed/file", kSealed, nobody_.user, nobody_.group, 0666);
    const fs::path before = fs::current_path();
    fs::current_path(closed);
    fake::LogCapture log(LogLevel::Info);
    for (const auto* path : {"file", "./file"}) {
        EXPECT_EQ(answers(path, fake::Asker(nobody_.user)), "0 open 3") << path;
    }
    EXPECT_EQ(log.count("-- Not an absolute path"), 4U);
    fs::current_path(before);
}

TEST_F(OtherUsersTest, LearnNothingAboutTheProcessOfTheHost) {
    for (const std::string path : {"/proc/self/status", "/proc/self/maps", "/proc/self/environ"}) {
        EXPECT_THAT(words(path, fake::Asker(nobody_.user)), IsEmpty()) << path;
        EXPECT_THAT(words(path, fake::Self()), SizeIs(1)) << path;
    }
}

TEST_F(OtherUsersTest, SeeOneFileOrTheOtherWhenALinkIsSwapped) {
    const fs::path place = makeFolder("place", nobody_.user, 0755);
    const fs::path own = make("place/own", "own", nobody_.user, nobody_.group, 0600);
    const fs::path secret = make("secret", "much more than one word", 0, 0, 0600);
    fs::create_symlink(own, place / "link");
    const std::jthread swapper([&](const std::stop_token& stop) {
        for (int i = 0; !stop.stop_requested(); ++i) {
            fs::create_symlink(i % 2 == 0 ? secret : own, place / "new");
            fs::rename(place / "new", place / "link");
        }
    });
    fake::LogCapture log(LogLevel::Info);
    int seen = 0;
    int refused = 0;
    for (int i = 0; i < 100'000 && (i < 2'000 || seen == 0 || refused == 0); ++i) {
        const auto counts = words(place / "link", fake::Asker(nobody_.user));
        if (counts.empty()) {
            ++refused;
        } else {
            ++seen;
            ASSERT_THAT(counts, ElementsAre("1"));
        }
    }
    EXPECT_GT(seen, 0);
    EXPECT_GT(refused, 0);
}

TEST_F(OtherUsersTest, LearnWhatIsLaidDownForFilesThatTheyMayReadOrThatAreMissing) {
    const fs::path secret = make("secret", "text", 0, 0, 0600);
    const fs::path open = make("open", "text", 0, 0, 0644);
    const fs::path closed = makeFolder("closed", 0, 0700);
    options_.records = folder_ / "records.json";
    std::string json;
    for (const fs::path& path : {secret, open, closed / "missing", folder_ / "missing", open / "below"}) {
        json += (json.empty() ? "{\"" : ", \"") + path.string() + R"(": [{"Name": "N", "MatchCount": 7}])";
    }
    cmn::StrToFile(json + "}", options_.records);
    const auto nobody = fake::Asker(nobody_.user);
    fake::LogCapture log(LogLevel::Info);
    EXPECT_THAT(words(secret, nobody), IsEmpty());
    EXPECT_THAT(words(closed / "missing", nobody), IsEmpty());
    EXPECT_EQ(log.count("Cannot scan " + folder_.path().string()), 2U);
    EXPECT_THAT(words(open, nobody), ElementsAre("7"));
    EXPECT_THAT(words(folder_ / "missing", nobody), ElementsAre("7"));
    EXPECT_THAT(words(open / "below", nobody), ElementsAre("7"));
    EXPECT_THAT(words(secret, fake::Self()), ElementsAre("7"));
}

TEST_F(OtherUsersTest, DecryptOnlyWhatTheyMayWrite) {
    const fs::path place = makeFolder("place", 0, 0777);
    const fs::path file = make("place/file", kSealed, 0, 0, 0644);
    fake::LogCapture log(LogLevel::Info);
    EXPECT_EQ(decrypt(file, nobody_), UnsealStatus::unwritable);
    EXPECT_EQ(log.count("Cannot unseal " + file.string() + " -- Permission denied"), 1U);
    EXPECT_EQ(cmn::FileToStr(file), kSealed);
    make("place/file", "not sealed", 0, 0, 0644);
    EXPECT_EQ(decrypt(file, nobody_), UnsealStatus::notSealed);
    make("place/file", kSealed, 0, 0, 0666);
    EXPECT_EQ(decrypt(file, nobody_), UnsealStatus::unsealed);
    EXPECT_EQ(cmn::FileToStr(file), "secret");
    EXPECT_EQ(EntriesOf(place), 1U);
}

TEST_F(OtherUsersTest, DecryptOnlyInFoldersThatTheyMayChange) {
    // Nobody may write into the one, and take nothing of another's out of the other.
    for (const mode_t mode : {mode_t{0755}, mode_t{01777}}) {
        fs::remove_all(folder_ / "place");
        const fs::path place = makeFolder("place", 0, mode);
        const fs::path file = make("place/file", kSealed, daemon_.user, daemon_.group, 0666);
        EXPECT_EQ(decrypt(file, nobody_), UnsealStatus::unwritable) << std::oct << mode;
        EXPECT_EQ(cmn::FileToStr(file), kSealed);
        EXPECT_EQ(StatusOf(file).st_uid, daemon_.user);
        EXPECT_EQ(EntriesOf(place), 1U) << "no temporary file stays";
    }
    EXPECT_EQ(decrypt(folder_ / "place/file", daemon_), UnsealStatus::unsealed) << "it is his";
}

TEST_F(OtherUsersTest, WriteNothingBesideAFileThatTheyDoNotReach) {
    makeFolder("closed", 0, 0700);
    const fs::path inner = makeFolder("closed/inner", 0, 0777);
    make("closed/inner/file", kSealed, nobody_.user, nobody_.group, 0666);
    const FileUser nobody(nobody_);
    EXPECT_EQ(fake::FailureOf([&] { const ReplacementFile replacement(inner / "file", nobody); }),
              "Permission denied");
    EXPECT_EQ(EntriesOf(inner), 1U);
}

TEST_F(OtherUsersTest, LeaveADecryptedFileToItsOwner) {
    makeFolder("place", 0, 0777);
    const fs::path file = make("place/file", kSealed, daemon_.user, 7, 0666);
    EXPECT_EQ(decrypt(file, nobody_), UnsealStatus::unsealed);
    const struct stat status = StatusOf(file);
    EXPECT_EQ(status.st_uid, daemon_.user);
    EXPECT_EQ(status.st_gid, 7U);
    EXPECT_EQ(status.st_mode & 07777U, 0666U);
}

TEST_F(OtherUsersTest, MakeNoProgramThatRunsAsSomeoneElse) {
    makeFolder("place", 0, 0777);
    const fs::path file = make("place/file", kSealed, 0, 0, 06777);
    ASSERT_EQ(StatusOf(file).st_mode & 07777U, 06777U);
    EXPECT_EQ(decrypt(file, nobody_), UnsealStatus::unsealed);
    EXPECT_EQ(StatusOf(file).st_uid, 0U);
    EXPECT_EQ(StatusOf(file).st_mode & 07777U, 0777U);
    make("place/file", kSealed, 0, 0, 06777);
    EXPECT_EQ(FileScanner(options_).Decrypt(file, fake::Self()), 0);
    EXPECT_EQ(StatusOf(file).st_mode & 07777U, 06777U) << "root's own decryption keeps the bits";
}

TEST_F(OtherUsersTest, HaveATemporaryFileThatIsTheirs) {
    const fs::path place = makeFolder("place", nobody_.user, 0755);
    const fs::path file = make("place/file", kSealed, nobody_.user, nobody_.group, 0600);
    int calls = 0;
    EXPECT_EQ(UnsealWith(file, FileUser(nobody_),
                         [&] {
                             ++calls;
                             EXPECT_EQ(FileUserOfThisThread(), 0U) << "between the calls of the system";
                             for (const auto& entry : fs::directory_iterator(place)) {
                                 EXPECT_EQ(StatusOf(entry.path()).st_uid, nobody_.user);
                             }
                         }),
              UnsealStatus::unsealed);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(cmn::FileToStr(file), "secret");
}

TEST_F(OtherUsersTest, ChangeNothingElsewhereWhenTheirFolderIsReplacedByALink) {
    const fs::path roots = makeFolder("roots", 0, 0755);
    make("roots/file", kSealed, 0, 0, 0644);
    const fs::path place = makeFolder("place", nobody_.user, 0755);
    make("place/file", kSealed, nobody_.user, nobody_.group, 0600);
    EXPECT_EQ(UnsealWith(place / "file", FileUser(nobody_),
                         [&] {
                             fs::rename(place, folder_ / "moved");
                             fs::create_symlink(roots, place);
                         }),
              UnsealStatus::unsealed);
    EXPECT_EQ(cmn::FileToStr(roots / "file"), kSealed);
    EXPECT_EQ(EntriesOf(roots), 1U);
    EXPECT_EQ(cmn::FileToStr(folder_ / "moved" / "file"), "secret");
}

TEST_F(OtherUsersTest, AreForgottenAfterEachAction) {
    const FileUser other(UserIdentity{nobody_.user, nobody_.group, {7, 8}});
    std::vector<gid_t> groups(100);
    const auto current = [&] {
        return std::tuple(FileUserOfThisThread(), static_cast<gid_t>(setfsgid(static_cast<gid_t>(-1))),
                          getgroups(100, groups.data()));
    };
    const auto before = current();
    EXPECT_EQ(other.act([&] { return current(); }), std::tuple(nobody_.user, nobody_.group, 2));
    EXPECT_EQ(current(), before);
    EXPECT_THROW(other.act([] { throw std::runtime_error("in the middle"); }), std::runtime_error);
    EXPECT_EQ(current(), before);
    errno = 0;
    EXPECT_EQ(other.act([] { return open("/root/.", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(current(), before);
}

TEST_F(OtherUsersTest, AreNobodyToTheOtherThreadsOfTheHost) {
    const FileUser other(nobody_);
    std::atomic<int> step{0};
    uid_t user = 1;
    int groups = -1;
    std::thread bystander([&] {
        while (step != 1) {
            std::this_thread::yield();
        }
        user = FileUserOfThisThread();
        groups = getgroups(0, nullptr);
        step = 2;
    });
    const int before = getgroups(0, nullptr);
    other.act([&] {
        step = 1;
        while (step != 2) {
            std::this_thread::yield();
        }
        return 0;
    });
    bystander.join();
    EXPECT_EQ(user, 0U);
    EXPECT_EQ(groups, before);
}

using OtherUsersDeathTest = OtherUsersTest;

TEST_F(OtherUsersDeathTest, TheHostEndsWhenItsOwnRightsDoNotComeBack) {
    EXPECT_EXIT(FileUser(nobody_).act([] {
        // Without its capabilities the thread cannot have the host's groups again.
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[2]{};
        return syscall(SYS_capset, &header, none);
    }),
                testing::KilledBySignal(SIGABRT), "");
}

TEST_F(OtherUsersTest, HaveTheGroupsOfTheUserDatabase) {
    if (!fake::OwnSystem::allowed()) {
        GTEST_SKIP() << "This user may not have a system of its own.";
    }
    std::string groups = "first:x:5000:\n";
    for (int i = 1; i <= 150; ++i) {
        groups += "g" + std::to_string(i) + ":x:" + std::to_string(5'000 + i) + ":someone," +
                  (i % 3 == 0 ? "anna" : "else") + "\n";
    }
    cmn::StrToFile("root:x:0:0::/root:/bin/sh\nanna:x:4321:5000::/home/anna:/bin/sh\n", folder_ / "passwd");
    cmn::StrToFile(groups, folder_ / "group");
    EXPECT_EQ(fake::AnswerInChild([&] {
                  fake::OwnSystem::enter();
                  fake::OwnSystem::replace("/etc/passwd", folder_ / "passwd");
                  fake::OwnSystem::replace("/etc/group", folder_ / "group");
                  const auto anna = LookUpUser(4'321);
                  std::string text = std::to_string(anna.user) + ":" + std::to_string(anna.group) + " " +
                                     std::to_string(anna.groups.size());
                  for (const gid_t group : anna.groups) {
                      text += group != 5'000 && group % 3 != 2 ? " wrong" : "";
                  }
                  return text;
              }),
              "4321:5000 51");
}

}  // namespace
}  // namespace host
