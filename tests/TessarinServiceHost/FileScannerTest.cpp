#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <string>

#include "Askers.h"
#include "Common/Failures.h"
#include "FileScanner.h"
#include "SealedFile.h"
#include "common/fs.h"
#include "support/LogCapture.h"
#include "support/NeedsProc.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class FileScannerTest : public testing::Test {
 protected:
    FileScannerTest() {
        cmn::StrToFile(R"({"AllowedExtensions": ["txt", "csv"],
                           "Classifiers": [{"Name": "Words", "Pattern": "[a-z]+", "CountUniqueEntries": true,
                                            "costUsd": 0.25, "EncryptDelayMilliseconds": 1000},
                                           {"Name": "Digits", "Pattern": "\\d", "SensitiveType": true},
                                           {"Name": "Euro", "Pattern": "€"}]})",
                       options_.classifiers);
    }

    std::string write(const std::string& content) const {
        cmn::StrToFile(content, folder_ / "file.txt");
        return folder_ / "file.txt";
    }

    // The findings as "name count".
    std::vector<std::string> findings(const std::string& content) const {
        std::vector<std::string> found;
        for (const auto& record : FileScanner(options_).GetScanResult(write(content), fake::Self())) {
            found.push_back(record.at("Name") + " " + record.at("MatchCount"));
        }
        return found;
    }

    void layDown(const std::string& json) {
        options_.records = folder_ / "records.json";
        cmn::StrToFile(json, options_.records);
    }

    const fake::TemporaryFolder folder_;
    ScannerOptions options_{.classifiers = folder_ / "classifiers.json", .records = {}};
};

TEST_F(FileScannerTest, FindsARecordForEachClassifierThatMatches) {
    const auto path = write("one two one 12");
    const timespec times[] = {{.tv_sec = 1, .tv_nsec = 1}, {.tv_sec = 1'700'000'000, .tv_nsec = 123'456'789}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    const auto records = FileScanner(options_).GetScanResult(path, fake::Self());
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_THAT(
        records[0],
        UnorderedElementsAre(
            Pair("Name", "Words"), Pair("SensitiveType", "0"), Pair("AmazonID", ""),
            Pair("UploadedToServerDate", "0"), Pair("IsEncrypted", "0"), Pair("IsPrimaryForEncryption", "0"),
            Pair("LastModifiedDate", "1700000000123456789"), Pair("EncryptDelayMilliseconds", "1000"),
            Pair("ForceEncryptDate", "0"), Pair("costUsd", "0.25"), Pair("MatchCount", "3"),
            Pair("UniqueCount", "2"), Pair("CountUniqueEntries", "1"), Pair("IsOneRecordFile", "0")));
    EXPECT_EQ(records[1].at("Name"), "Digits");
    EXPECT_EQ(records[1].at("SensitiveType"), "1");
    EXPECT_EQ(records[1].at("MatchCount"), "2");
}

TEST_F(FileScannerTest, KeepsTheOrderOfTheClassifiers) {
    EXPECT_THAT(findings("€ 1 a"), ElementsAre("Words 1", "Digits 1", "Euro 1"));
}

TEST_F(FileScannerTest, FindsNothingInOtherText) {
    EXPECT_THAT(findings("NOTHING HERE"), IsEmpty());
    EXPECT_THAT(findings(""), IsEmpty());
}

TEST_F(FileScannerTest, ScansBytesThatAreNoText) {
    EXPECT_THAT(findings(std::string("one\0two\xFF\xC3", 9) + "12\xE2\x82"),
                ElementsAre("Words 2", "Digits 2"));
}

TEST_F(FileScannerTest, ScansUpToTheLimit) {
    options_.scanLimit = 5;
    EXPECT_THAT(findings("123456789"), ElementsAre("Digits 5"));
    EXPECT_THAT(findings("12345"), ElementsAre("Digits 5"));
    EXPECT_THAT(findings("aa bbb"), ElementsAre("Words 2"));
    EXPECT_THAT(findings("123€"), ElementsAre("Digits 3"));
    EXPECT_THAT(findings("12€"), ElementsAre("Digits 2", "Euro 1"));
    options_.scanLimit = 0;
    EXPECT_THAT(findings("12345"), IsEmpty());
}

TEST_F(FileScannerTest, TheLimitIsAMebibyteUnlessItIsTold) {
    EXPECT_THAT(findings(std::string(1'048'576, ' ') + "1"), IsEmpty());
    EXPECT_THAT(findings(std::string(1'048'575, ' ') + "12"), ElementsAre("Digits 1"));
}

TEST_F(FileScannerTest, ScansTheContentOfASealedFile) {
    EXPECT_THAT(findings(std::string(kSealLine) + "12"), ElementsAre("Digits 2"));
    EXPECT_THAT(findings("x" + std::string(kSealLine) + "12"), ElementsAre("Words 1", "Digits 3"));
}

TEST_F(FileScannerTest, LogsWhatItFound) {
    options_.scanLimit = 5;
    FileScanner scanner(options_);
    fake::LogCapture log(LogLevel::Debug);
    const auto path = write("one 1");
    scanner.GetScanResult(path, fake::Self());
    EXPECT_THAT(log.linesWith("[DEBUG]"),
                ElementsAre(EndsWith(" -- Scanned " + path + " -- 2 findings in 5 bytes")));
    scanner.GetScanResult(write("one 1 more"), fake::Self());
    EXPECT_TRUE(log.contains(" -- 2 findings in 5 bytes, cut by the limit"));
}

TEST_F(FileScannerTest, AScanThatTakesTooLongEndsWithWhatItHasFound) {
    const auto path = write("one two three four five 12345");
    options_.limits.time = std::chrono::milliseconds(10);
    // Each question for the time takes a millisecond. The first two are for the file.
    FileScanner scanner(options_, [time = std::chrono::steady_clock::time_point()]() mutable {
        return time += std::chrono::milliseconds(1);
    });
    fake::LogCapture log(LogLevel::Info);
    const auto records = scanner.GetScanResult(path, fake::Self());
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_EQ(records[0].at("MatchCount"), "5");
    EXPECT_EQ(records[1].at("Name"), "Digits");
    EXPECT_EQ(records[1].at("MatchCount"), "1");
    EXPECT_THAT(log.lines(), ElementsAre(testing::AllOf(
                                 StartsWith("[ WARN]"),
                                 EndsWith("Scan of " + path + " is incomplete -- It took too long"))));
    EXPECT_THAT(scanner.GetScanResult(path, fake::Self()), SizeIs(2)) << "each scan has its own time";
}

TEST_F(FileScannerTest, AScanThatSearchesAgainAndAgainEndsWithWhatItHasFound) {
    cmn::StrToFile(R"({"Classifiers": [{"Name": "Again", "Pattern": "(?s)(a).*b"},
                                       {"Name": "Once", "Pattern": "a"}]})",
                   options_.classifiers);
    options_.limits = {.time = std::chrono::hours(1), .searchedAgain = 4'990};
    fake::LogCapture log(LogLevel::Info);
    EXPECT_THAT(findings(std::string(1'000, 'a') + "b"), ElementsAre("Again 6", "Once 1000"));
    EXPECT_EQ(log.count(" is incomplete -- A pattern searched the text again and again"), 1U);
}

TEST_F(FileScannerTest, AStoppedScannerScansAndUnsealsNothingMore) {
    const auto path = write(std::string(kSealLine) + "one");
    FileScanner scanner(options_);
    scanner.stop();
    fake::LogCapture log(LogLevel::Info);
    EXPECT_THAT(scanner.GetScanResult(path, fake::Self()), IsEmpty());
    EXPECT_EQ(scanner.Decrypt(path, fake::Self()), 4);
    EXPECT_EQ(cmn::FileToStr(path), std::string(kSealLine) + "one");
    EXPECT_THAT(log.lines(), ElementsAre(EndsWith("Scan of " + path + " is incomplete -- The host ends"),
                                         EndsWith("Cannot unseal " + path + " -- The host ends")));
}

TEST_F(FileScannerTest, AFileThatCannotBeReadHasNoFindingsAndALineInTheLog) {
    NEEDS_PROC();
    FileScanner scanner(options_);
    const auto path = write("one");
    ASSERT_EQ(mkfifo((folder_ / "fifo").c_str(), 0600), 0);
    const auto refusal = [&](const std::string& refused) {
        fake::LogCapture log(LogLevel::Info);
        EXPECT_THAT(scanner.GetScanResult(refused, fake::Self()), IsEmpty());
        const auto lines = log.lines();
        EXPECT_THAT(lines, ElementsAre(StartsWith("[ WARN]")));
        return lines.empty() ? "" : lines[0].substr(lines[0].find("Cannot scan"));
    };
    EXPECT_EQ(refusal(folder_ / "no"),
              "Cannot scan " + (folder_ / "no").string() + " -- No such file or directory");
    EXPECT_EQ(refusal(folder_.path()), "Cannot scan " + folder_.path().string() + " -- Not a regular file");
    EXPECT_EQ(refusal(folder_ / "fifo"),
              "Cannot scan " + (folder_ / "fifo").string() + " -- Not a regular file");
    EXPECT_EQ(refusal(""), "Cannot scan  -- No such file or directory");
    EXPECT_EQ(refusal("no\nsuch"), "Cannot scan no\\x0asuch -- No such file or directory");
    EXPECT_EQ(refusal(path + std::string("\0x", 2)),
              "Cannot scan " + path + "\\x00x -- The path holds a NUL character");
    EXPECT_EQ(refusal(std::string(1'048'576, 'x')),
              "Cannot scan " + std::string(200, 'x') + "... (1048576 bytes) -- File name too long");
    EXPECT_EQ(refusal("/proc/self/mem"), "Cannot scan /proc/self/mem -- Input/output error");
}

TEST_F(FileScannerTest, WithoutClassifiersNothingIsFoundAndNothingIsLogged) {
    FileScanner scanner({});
    fake::LogCapture log;
    EXPECT_THAT(scanner.GetScanResult(write("one 1"), fake::Self()), IsEmpty());
    EXPECT_THAT(scanner.GetScanResult(folder_ / "missing", fake::Self()), IsEmpty());
    EXPECT_THAT(scanner.GetAllowedExtensions(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FileScannerTest, RecordsThatAreLaidDownReplaceTheScan) {
    const auto path = write("one 1");
    layDown(R"({")" + path +
            R"(": [{"Name": "Laid down", "More": 7}, {}], "missing": [{"Name": "M"}], "": []})");
    FileScanner scanner(options_);
    fake::LogCapture log(LogLevel::Info);
    EXPECT_THAT(scanner.GetScanResult(path, fake::Self()),
                ElementsAre(ElementsAre(Pair("More", "7"), Pair("Name", "Laid down")), IsEmpty()));
    EXPECT_THAT(scanner.GetScanResult("missing", fake::Self()), ElementsAre(ElementsAre(Pair("Name", "M"))));
    EXPECT_THAT(scanner.GetScanResult("", fake::Self()), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FileScannerTest, PathsWithoutLaidDownRecordsAreScanned) {
    layDown(R"({"/other": []})");
    EXPECT_THAT(findings("one 1"), ElementsAre("Words 1", "Digits 1"));
}

TEST_F(FileScannerTest, TenThousandRecordsCanBeLaidDown) {
    std::string list;
    for (int i = 0; i < 10'000; ++i) {
        list += (i > 0 ? ", " : "") + (R"({"Name": "Record )" + std::to_string(i)) + R"(", "MatchCount": 1})";
    }
    layDown(R"({"/many": [)" + list + "]}");
    options_.classifiers.clear();
    const auto records = FileScanner(options_).GetScanResult("/many", fake::Self());
    ASSERT_THAT(records, SizeIs(10'000));
    EXPECT_EQ(records[0].at("Name"), "Record 0");
    EXPECT_EQ(records[9'999].at("Name"), "Record 9999");
}

TEST_F(FileScannerTest, FilesThatCannotBeUsedAreErrors) {
    options_.classifiers = folder_ / "no.json";
    const auto make = [&] { FileScanner scanner(options_); };
    EXPECT_THAT(fake::FailureOf(make), StartsWith("Cannot use " + options_.classifiers.string() + " -- "));
    options_ = {.classifiers = {}, .records = folder_ / "none.json"};
    EXPECT_THAT(fake::FailureOf(make), StartsWith("Cannot use " + options_.records.string() + " -- "));
}

TEST_F(FileScannerTest, TellsTheAllowedExtensions) {
    EXPECT_THAT(FileScanner(options_).GetAllowedExtensions(), ElementsAre("txt", "csv"));
}

TEST_F(FileScannerTest, StatusAndDecryptionAreThoseOfSealedFiles) {
    FileScanner scanner(options_);
    const auto path = write(std::string(kSealLine) + "one");
    EXPECT_TRUE(scanner.CheckEncryptionStatus(path, fake::Self()));
    EXPECT_EQ(scanner.Decrypt(path, fake::Self()), 0);
    EXPECT_EQ(cmn::FileToStr(path), "one");
    EXPECT_FALSE(scanner.CheckEncryptionStatus(path, fake::Self()));
    EXPECT_EQ(scanner.Decrypt(path, fake::Self()), 1);
    EXPECT_EQ(scanner.Decrypt(folder_ / "missing", fake::Self()), 3);
    EXPECT_EQ(static_cast<int>(UnsealStatus::unwritable), 4);
}

}  // namespace
}  // namespace host
