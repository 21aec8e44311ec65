#include <gmock/gmock.h>

#include <array>
#include <string>

#include "Askers.h"
#include "FileScanner.h"
#include "SealedFile.h"
#include "common/fs.h"
#include "support/InThreads.h"
#include "support/LogCapture.h"

namespace host {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

constexpr int kThreads = 4;

class FileScannerThreadsTest : public testing::Test {
 protected:
    FileScannerThreadsTest() {
        cmn::StrToFile(R"({"AllowedExtensions": ["txt"],
                           "Classifiers": [{"Name": "Words", "Pattern": "(?i)\\b([a-z]+)\\b"},
                                           {"Name": "Numbers", "Pattern": "\\d{2,}", "CheckDigit": "Luhn"}]})",
                       folder_ / "classifiers.json");
        cmn::StrToFile(R"({"/laid/down": [{"Name": "Fixed"}]})", folder_ / "records.json");
    }

    std::size_t entries() const {
        const std::filesystem::directory_iterator begin(folder_.path());
        return static_cast<std::size_t>(std::distance(begin, std::filesystem::directory_iterator()));
    }

    const fake::TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "file.txt";
};

TEST_F(FileScannerThreadsTest, ManyScanAndAskAtTheSameTime) {
    FileScanner scanner({.classifiers = folder_ / "classifiers.json", .records = folder_ / "records.json"});
    for (int i = 0; i < kThreads; ++i) {
        std::string text;
        for (int word = 0; word <= 1'000 + i; ++word) {
            text += "word 18 ";
        }
        cmn::StrToFile(text, folder_ / std::to_string(i));
    }
    fake::InThreads(kThreads, [&](int thread) {
        for (int round = 0; round < 20; ++round) {
            const int number = (thread + round) % kThreads;
            const auto records = scanner.GetScanResult(folder_ / std::to_string(number), fake::Self());
            ASSERT_THAT(records, SizeIs(2));
            EXPECT_EQ(records[0].at("MatchCount"), std::to_string(1'001 + number));
            EXPECT_EQ(records[0].at("UniqueCount"), "1");
            EXPECT_EQ(records[1].at("MatchCount"), std::to_string(1'001 + number));
            EXPECT_THAT(scanner.GetScanResult("/laid/down", fake::Self()), SizeIs(1));
            EXPECT_THAT(scanner.GetScanResult(folder_ / "missing", fake::Self()), SizeIs(0));
            EXPECT_THAT(scanner.GetAllowedExtensions(), ElementsAre("txt"));
            EXPECT_FALSE(scanner.CheckEncryptionStatus(folder_ / std::to_string(number), fake::Self()));
        }
    });
}

TEST_F(FileScannerThreadsTest, ManyThatDecryptOneFileKeepItsContent) {
    FileScanner scanner({});
    const std::string content(200'000, 'c');
    const auto entriesBefore = entries() + 1;
    for (int round = 0; round < 25; ++round) {
        cmn::StrToFile(std::string(kSealLine) + content, file_);
        std::array<int, kThreads> statuses{};
        fake::InThreads(kThreads, [&](int thread) {
            statuses[static_cast<std::size_t>(thread)] = scanner.Decrypt(file_, fake::Self());
        });
        EXPECT_THAT(statuses, Contains(0));
        EXPECT_THAT(statuses, Each(AnyOf(0, 1)));
        ASSERT_EQ(cmn::FileToStr(file_), content);
        ASSERT_EQ(entries(), entriesBefore);
    }
}

TEST_F(FileScannerThreadsTest, AScanDuringADecryptionSeesTheWholeContent) {
    FileScanner scanner({.classifiers = folder_ / "classifiers.json", .records = {}});
    for (int round = 0; round < 25; ++round) {
        cmn::StrToFile(std::string(kSealLine) + std::string(200'000, ' ') + "end", file_);
        fake::InThreads(kThreads, [&](int thread) {
            if (thread == 0) {
                EXPECT_EQ(scanner.Decrypt(file_, fake::Self()), 0);
                return;
            }
            const auto records = scanner.GetScanResult(file_, fake::Self());
            ASSERT_THAT(records, SizeIs(1));
            EXPECT_EQ(records[0].at("MatchCount"), "1");
        });
    }
}

}  // namespace
}  // namespace host
