#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <string>

#include "Askers.h"
#include "FileScanner.h"
#include "common/fs.h"
#include "support/LogCapture.h"

namespace host {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::IsEmpty;

const std::string kEmail = "E-mail addresses";
const std::string kCards = "Payment card numbers";
const std::string kNationalIds = "US social security numbers";
const std::string kDates = "Dates";

class ExampleClassifiersTest : public testing::Test {
 protected:
    std::vector<cmn::ScanRecord> scan(const std::string& text) {
        cmn::StrToFile(text, file_);
        return scanner_.GetScanResult(file_, fake::Self());
    }

    // How often a classifier matches.
    int count(const std::string& name, const std::string& text) {
        for (const auto& record : scan(text)) {
            if (record.at("Name") == name) {
                return std::stoi(record.at("MatchCount"));
            }
        }
        return 0;
    }

    FileScanner scanner_{{.classifiers = EXAMPLE_CLASSIFIERS, .records = {}}};
    const fake::TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "file.txt";
};

TEST_F(ExampleClassifiersTest, AllowTheUsualTextFiles) {
    const auto extensions = scanner_.GetAllowedExtensions();
    EXPECT_THAT(extensions, AllOf(Contains("txt"), Contains("csv"), Contains("json"), Contains("log")));
}

TEST_F(ExampleClassifiersTest, FindEmailAddresses) {
    for (const auto* text :
         {"jane@example.com", "<Jane.Doe+news@mail.example.co.uk>", "mailto:a_b%c@x-y.org?subject=1",
          "Write to jane@example.com.", "JANE@EXAMPLE.COM", "\"jane\",\"jane@example.museum\""}) {
        EXPECT_EQ(count(kEmail, text), 1) << text;
    }
    EXPECT_EQ(count(kEmail, "a@b.de, c@d.fr;a@b.de"), 3);
    for (const auto* text : {"jane@example", "@example.com", "jane@.com", "jane@example.c",
                             "jane at example.com", "jane@@example", "jane@-example.com"}) {
        EXPECT_EQ(count(kEmail, text), 0) << text;
    }
}

TEST_F(ExampleClassifiersTest, FindPaymentCardNumbers) {
    for (const auto* text :
         {"4111111111111111", "4111 1111 1111 1111", "4111-1111-1111-1111", "card:5555555555554444.",
          "(378282246310005)", "3782 822463 10005", "4222222222222", "6304000000000000000",
          "4111 1111 1111 1111 12/27", "4111 1111 1111 1111 123", "\"6011111111111117\""}) {
        EXPECT_EQ(count(kCards, text), 1) << text;
    }
    EXPECT_EQ(count(kCards, "4111111111111111\n5555 5555 5555 4444\n"), 2);
    EXPECT_EQ(count(kCards, "4111 1111 1111 1111 5555 5555 5555 4444"), 2);
}

TEST_F(ExampleClassifiersTest, FindPaymentCardNumbersBehindOtherNumbers) {
    for (const auto* text :
         {"Qty 3 4111-1111-1111-1111", "12/27 4111 1111 1111 1111", "7 4111 1111 1111 1111",
          "12-27 4111-1111-1111-1111", "1 2 3 4111 1111 1111 1111", "42 7 4111111111111111",
          "1234 5678 4111 1111 1111 1111", "Order 10 20 378282246310005 for 3"}) {
        EXPECT_EQ(count(kCards, text), 1) << text;
    }
    EXPECT_EQ(count(kCards, "1 4111 1111 1111 1111\n2 5555 5555 5555 4444\n3 4111 1111 1111 1112\n"), 2);
}

TEST_F(ExampleClassifiersTest, FindNoOtherNumbersAsPaymentCards) {
    for (const auto* text :
         {"4111111111111112", "4111 1111 1111 1112", "0000000000000000", "411111111111",
          "41111111111111111111", "4111  1111  1111  1111", "4111.1111.1111.1111", "x4111111111111111",
          "4111111111111111x", "0.4111111111111111", "-4111111111111111"}) {
        EXPECT_EQ(count(kCards, text), 0) << text;
    }
}

TEST_F(ExampleClassifiersTest, PaymentCardNumbersHaveAtMost19Digits) {
    EXPECT_EQ(count(kCards, "6304000000000000000"), 1);
    EXPECT_EQ(count(kCards, "63040000000000000000"), 0);
}

TEST_F(ExampleClassifiersTest, FindSocialSecurityNumbers) {
    for (const auto* text : {"001-01-0001", "123-45-6789", "SSN: 665-99-9999.", "667-01-0001", "899-12-3456",
                             "\"600-10-1000\"", "660-10-1000", "699-10-1000", "555-55-5555"}) {
        EXPECT_EQ(count(kNationalIds, text), 1) << text;
    }
    EXPECT_EQ(count(kNationalIds, "123-45-6789 123-45-6788,123-45-6789\n"), 3);
}

TEST_F(ExampleClassifiersTest, FindNoSocialSecurityNumbersThatWereNeverGiven) {
    for (const auto* text : {"000-12-3456", "666-12-3456", "900-12-3456", "999-12-3456", "123-00-4567",
                             "123-45-0000", "1234-45-6789", "123-45-67890", "123-45-6789-1", "0-123-45-6789",
                             "x123-45-6789", "123 45 6789", "123456789"}) {
        EXPECT_EQ(count(kNationalIds, text), 0) << text;
    }
}

TEST_F(ExampleClassifiersTest, FindDates) {
    for (const auto* text : {"2026-11-21", "2026-11-21T03:11:50Z", "1999-01-01.", "21.11.2026", "1.2.1999",
                             "11/21/2026", "21/11/2026", "1/2/2003", "21 November 2026", "1. Jan. 1999",
                             "November 21, 2026", "sep 3 2001", "on 2026-02-28"}) {
        EXPECT_EQ(count(kDates, text), 1) << text;
    }
    EXPECT_EQ(count(kDates, "2026-11-21 2026-11-21, 21.11.2026"), 3);
}

TEST_F(ExampleClassifiersTest, FindNoDatesThatCannotBe) {
    for (const auto* text : {"2026-13-01", "2026-00-10", "2026-11-32", "2026-11-00", "1826-11-21",
                             "2026-11-211", "32.11.2026", "21.13.2026", "13/32/2026", "21.11.26",
                             "0 November 2026", "November 2026", "20261121", "12026-11-21"}) {
        EXPECT_EQ(count(kDates, text), 0) << text;
    }
}

TEST_F(ExampleClassifiersTest, SayWhatIsSensitiveAndWhatIsEncrypted) {
    std::map<std::string, std::string> flags;
    for (const auto& record : scan("a@b.de 4111111111111111 123-45-6789 2026-11-21")) {
        flags[record.at("Name")] = record.at("SensitiveType") + record.at("IsEncrypted") +
                                   record.at("IsPrimaryForEncryption") + record.at("CountUniqueEntries") +
                                   record.at("IsOneRecordFile");
        EXPECT_GT(std::stod(record.at("costUsd")), 0);
        EXPECT_EQ(record.at("EncryptDelayMilliseconds") != "0", record.at("IsEncrypted") == "1");
    }
    EXPECT_EQ(flags, (std::map<std::string, std::string>{
                         {kEmail, "00010"}, {kCards, "11110"}, {kNationalIds, "11010"}, {kDates, "00001"}}));
}

TEST_F(ExampleClassifiersTest, FindNothingInPlainProse) {
    EXPECT_THAT(
        scan("The house at number 12 was sold for 350,000 in 1987; call 555-0100 or see page 2026.\n"),
        IsEmpty());
}

}  // namespace
}  // namespace host
