#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

#include "support/LogCapture.h"
#include "useragent/FileFiltersViewController.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;
using useragent::DisabledCheckBox;
using useragent::FileFiltersViewController;
using useragent::FilterCell;
using useragent::FilterRecord;
using useragent::FilterRecords;
using useragent::WallTime;
using Values = std::map<std::string, useragent::FilterValue>;

const WallTime kNow{std::chrono::seconds(1'795'219'200)};

std::string Nanoseconds(WallTime time) {
    return std::to_string(time.time_since_epoch().count());
}
std::string Text(const char* text) {
    return text;
}

// A record of a classifier that encrypts, after a delay.
FilterRecord Encrypting(const std::string& name, std::chrono::nanoseconds age,
                        std::chrono::milliseconds delay, bool primary = false) {
    return FilterRecord(Values{{"Name", name},
                               {"IsEncrypted", true},
                               {"IsPrimaryForEncryption", primary},
                               {"LastModifiedDate", Nanoseconds(kNow - age)},
                               {"EncryptDelayMilliseconds", std::int64_t{delay.count()}}});
}
FilterRecord NotEncrypting(const std::string& name, bool primary) {
    return FilterRecord(Values{{"Name", name}, {"IsEncrypted", false}, {"IsPrimaryForEncryption", primary}});
}
FilterRecord Decrypted(std::chrono::nanoseconds ahead) {
    return FilterRecord(Values{{"ForceEncryptDate", Nanoseconds(kNow + ahead)}});
}
FilterRecord Counted(Values values) {
    values.insert(
        {{"costUsd", Text("0.5")}, {"UniqueCount", std::int64_t{3}}, {"MatchCount", std::int64_t{10}}});
    return FilterRecord(values);
}

class FileFiltersTest : public testing::Test {
 protected:
    FileFiltersViewController controller(FilterRecords records) {
        FileFiltersViewController made(
            {[this] { return settings; }, [this] { return clock ? clock() : kNow; }});
        made.setFiltersArray(std::move(records));
        return made;
    }
    void load(FilterRecords records) { shown = controller(std::move(records)).viewDidLoad(initialInfo); }

    cmn::proto::TSettings settings;
    std::function<WallTime()> clock;
    std::string initialInfo;  // of the form, before it is filled
    useragent::PropertiesTexts shown;
};

TEST_F(FileFiltersTest, UniqueMatchesCountWhereTheClassifierCountsThem) {
    const auto made = controller({Counted({{"CountUniqueEntries", std::int64_t{1}}})});
    EXPECT_EQ(made.objectValue("Count", 0), FilterCell("3"));
    EXPECT_EQ(made.objectValue("costUsd", 0), FilterCell("1.50"));
    shown = made.viewDidLoad(initialInfo);
    EXPECT_EQ(shown.totalRiskLabel, "$1.50");
}

TEST_F(FileFiltersTest, AllMatchesCountForEveryOtherValue) {
    for (const std::int64_t other : {0, 2, -1}) {
        const auto made = controller({Counted({{"CountUniqueEntries", other}})});
        EXPECT_EQ(made.objectValue("Count", 0), FilterCell("10")) << other;
        EXPECT_EQ(made.objectValue("costUsd", 0), FilterCell("5.00")) << other;
    }
    EXPECT_EQ(useragent::FilterCost(Counted({})), 5.0);
}

TEST_F(FileFiltersTest, AFileThatIsOneRecordCountsOnceWhateverTheCounts) {
    const auto made =
        controller({Counted({{"IsOneRecordFile", Text("YES")}, {"CountUniqueEntries", std::int64_t{1}}})});
    EXPECT_EQ(made.objectValue("Count", 0), FilterCell("1"));
    EXPECT_EQ(made.objectValue("costUsd", 0), FilterCell("0.50"));
}

TEST_F(FileFiltersTest, CountsBeyondThirtyTwoBitsCostWhatThirtyTwoBitsReadButAreShownAsTheyAre) {
    const FilterRecord record(Values{{"costUsd", 1.0}, {"MatchCount", Text("3000000000")}});
    EXPECT_EQ(useragent::FilterCost(record), 2147483647.0);
    EXPECT_EQ(useragent::FilterCount(record), "3000000000");
}

TEST_F(FileFiltersTest, CellsAreTextExceptForTheCheckBox) {
    const auto made = controller({FilterRecord(Values{{"Name", Text("Cards")}, {"SensitiveType", true}}),
                                  FilterRecord(Values{{"Name", std::int64_t{7}}})});
    EXPECT_EQ(made.numberOfRows(), 2U);
    EXPECT_EQ(made.objectValue("SensitiveType", 0), FilterCell(DisabledCheckBox{true}));
    EXPECT_EQ(made.objectValue("SensitiveType", 1), FilterCell(DisabledCheckBox{false}));
    EXPECT_EQ(made.objectValue("Name", 0), FilterCell("Cards"));
    EXPECT_EQ(made.objectValue("Name", 1), FilterCell("7"));
    EXPECT_EQ(made.objectValue("AmazonID", 1), FilterCell(""));
    EXPECT_EQ(made.objectValue("Count", 1), FilterCell(""));
    EXPECT_THROW(made.objectValue("Name", 2), std::out_of_range);
}

TEST_F(FileFiltersTest, OnlySensitiveClassifiersAddToTheSensitiveRisk) {
    load({Counted({{"SensitiveType", true}}), Counted({}), Counted({{"SensitiveType", Text("YES")}})});
    EXPECT_EQ(shown.totalRiskLabel, "$15.00");
    EXPECT_EQ(shown.totalSensetiveRiskLabel, "$10.00");
}

TEST_F(FileFiltersTest, TotalsAreRoundedOnlyWhenTheyAreShown) {
    const FilterRecord third(Values{{"costUsd", 0.004}, {"IsOneRecordFile", true}});
    load({third, third, third});
    EXPECT_EQ(shown.totalRiskLabel, "$0.01");
    EXPECT_EQ(controller({third}).objectValue("costUsd", 0), FilterCell("0.00"));
}

TEST_F(FileFiltersTest, TheLastRecordDecidesServerIdAndState) {
    const FilterRecord uploaded(Values{{"AmazonID", Text("a-1")}, {"UploadedToServerDate", std::int64_t{5}}});
    const FilterRecord pending(Values{{"AmazonID", Text("a-2")}, {"UploadedToServerDate", std::int64_t{0}}});
    load({uploaded, pending});
    EXPECT_EQ(shown.serverIDLabel, "a-2");
    EXPECT_EQ(shown.fileStateLabel, "Scanned: Pending server sync");
    load({pending, uploaded});
    EXPECT_EQ(shown.serverIDLabel, "a-1");
    EXPECT_EQ(shown.fileStateLabel, "Synced to server");
}

TEST_F(FileFiltersTest, WithoutRecordsTheScanIsPending) {
    load({});
    EXPECT_EQ(shown, (useragent::PropertiesTexts{.fileNameLabel = "",
                                                 .fileStateLabel = "Pending scan",
                                                 .serverIDLabel = "",
                                                 .totalRiskLabel = "$0.00",
                                                 .totalSensetiveRiskLabel = "$0.00",
                                                 .encryptionStatusLabel = "Status: Not Encrypted",
                                                 .encryptionPredictLabel = "The file should not be encrypted",
                                                 .encryptionInfo = ""}));
}

TEST_F(FileFiltersTest, ShowsThePathAndTheEncryptionAsTheyWereSet) {
    auto made = controller({});
    made.setFileName("/home/u/<b>report</b>.txt");
    made.setIsEncrypted(true);
    shown = made.viewDidLoad(initialInfo);
    EXPECT_EQ(shown.fileNameLabel, "/home/u/<b>report</b>.txt");
    EXPECT_EQ(shown.encryptionStatusLabel, "Status: Encrypted");
}

TEST_F(FileFiltersTest, NoNameMakesALineOfItsOwn) {
    auto made =
        controller({Encrypting("A\nB", 1h, 2h, true), FilterRecord(Values{{"AmazonID", Text("a\n1")}})});
    made.setFileName("/home/u/a\nb");
    shown = made.viewDidLoad(initialInfo);
    EXPECT_EQ(shown.fileNameLabel, "/home/u/a b");
    EXPECT_EQ(shown.serverIDLabel, "a 1");
    EXPECT_THAT(shown.encryptionInfo, testing::StartsWith("The file is flagged by A B, which"));
    EXPECT_THAT(shown.encryptionInfo, testing::EndsWith("\nA B overrides other classifiers"));
    load({NotEncrypting("C\nD", true)});
    EXPECT_EQ(shown.encryptionInfo,
              "The file is flagged by C D, which has encryption disabled.\nC D overrides other classifiers");
}

TEST_F(FileFiltersTest, TheLongestTextOfAColumnIsLookedForInEveryRow) {
    const auto made =
        controller({Counted({}), FilterRecord(Values{{"costUsd", 1e3}, {"MatchCount", 30000000.0}}),
                    FilterRecord(Values{{"SensitiveType", true}})});
    EXPECT_EQ(made.longestText("Count"), "30000000");
    EXPECT_EQ(made.longestText("costUsd"), "30000000000.00");
    EXPECT_EQ(made.longestText("SensitiveType"), "");
    EXPECT_EQ(controller({Counted({{"MatchCount", 5.0}})}).longestText("Count"), "5");
    EXPECT_EQ(controller({}).longestText("Count"), "");
}

TEST_F(FileFiltersTest, ThePassedDelayOfAnyClassifierCountsButTheLastOneIsExplained) {
    load({Encrypting("First", 48h, 24h), Encrypting("Second", 72h + 23h, 240h)});
    EXPECT_EQ(shown.encryptionPredictLabel, "The file should be encrypted");
    EXPECT_EQ(shown.encryptionInfo,
              "The file is flagged by Second, which has encryption enabled. The encryption delay has passed"
              " (file last modified 3 days ago, encryption delay set to 10)");
}

TEST_F(FileFiltersTest, ADelayThatHasNotPassedKeepsTheFileAsItIs) {
    load({Encrypting("Only", 1h, 2h)});
    EXPECT_EQ(shown.encryptionPredictLabel, "The file should not be encrypted");
    EXPECT_EQ(shown.encryptionInfo,
              "The file is flagged by Only, which has encryption enabled. The encryption delay has not passed"
              " (file last modified 0 days ago, encryption delay set to 0)");
}

TEST_F(FileFiltersTest, TheExplanationIsAppendedToTheTextThatIsThere) {
    initialInfo = "Note. ";
    load({Encrypting("Only", 1h, 2h)});
    EXPECT_THAT(shown.encryptionInfo, testing::StartsWith("Note. The file is flagged by Only"));
}

TEST_F(FileFiltersTest, AnEncryptingPrimaryClassifierOverridesTheOthers) {
    load({Encrypting("P", 48h, 24h, true), Encrypting("Q", 48h, 24h)});
    EXPECT_THAT(shown.encryptionInfo, HasSubstr("flagged by Q,"));
    EXPECT_THAT(shown.encryptionInfo, testing::EndsWith("\nP overrides other classifiers"));
}

TEST_F(FileFiltersTest, OfSeveralEncryptingPrimaryClassifiersTheLastOverrides) {
    load({Encrypting("P", 48h, 24h, true), Encrypting("R", 48h, 24h, true)});
    EXPECT_THAT(shown.encryptionInfo, testing::EndsWith("\nR overrides other classifiers"));
    EXPECT_THAT(shown.encryptionInfo, Not(HasSubstr("P overrides")));
}

TEST_F(FileFiltersTest, ADisabledPrimaryClassifierReplacesTheExplanationOfTheOthers) {
    initialInfo = "Note. ";
    load({Encrypting("E", 48h, 24h, true), NotEncrypting("P", true), Encrypting("Later", 48h, 24h)});
    EXPECT_EQ(shown.encryptionPredictLabel, "The file should not be encrypted");
    EXPECT_EQ(shown.encryptionInfo,
              "The file is flagged by P, which has encryption disabled.\nP overrides other classifiers");
}

TEST_F(FileFiltersTest, AClassifierWithoutEncryptionAndPriorityHasNoSay) {
    load({NotEncrypting("N", false)});
    EXPECT_EQ(shown.encryptionPredictLabel, "The file should not be encrypted");
    EXPECT_EQ(shown.encryptionInfo, "");
    load({NotEncrypting("N", false), Encrypting("E", 48h, 24h)});
    EXPECT_EQ(shown.encryptionPredictLabel, "The file should be encrypted");
}

TEST_F(FileFiltersTest, PartsOfASecondOfTheDelayAreDropped) {
    load({Encrypting("E", 1s + 1ms, 1500ms)});
    EXPECT_EQ(shown.encryptionPredictLabel, "The file should be encrypted");
    load({Encrypting("E", 1s, 1500ms)});  // due now is not before now
    EXPECT_EQ(shown.encryptionPredictLabel, "The file should not be encrypted");
}

TEST_F(FileFiltersTest, EachDelayIsTestedAtItsOwnMoment) {
    WallTime moment = kNow;
    clock = [&moment] { return moment += 10s; };
    // Not due when the computation starts, but when its turn comes.
    load({NotEncrypting("N", false), Encrypting("E", 0s, 15s)});
    EXPECT_EQ(shown.encryptionPredictLabel, "The file should be encrypted");
}

TEST_F(FileFiltersTest, AFileFromTheFutureHasANegativeAgeCutTowardZero) {
    load({Encrypting("E", -36h, 0ms)});
    EXPECT_THAT(shown.encryptionInfo, HasSubstr("(file last modified -1 days ago, "));
}

TEST_F(FileFiltersTest, TellsTheRestOfATemporaryDecryption) {
    load({Decrypted(90min)});
    EXPECT_EQ(shown.encryptionInfo, "\n6-hour decryption enabled. Remaining: 1:30");
    load({Decrypted(5min)});
    EXPECT_EQ(shown.encryptionInfo, "\n6-hour decryption enabled. Remaining: 0:05");
    load({Decrypted(59s)});
    EXPECT_EQ(shown.encryptionInfo, "\n6-hour decryption enabled. Remaining: 0:00");
}

TEST_F(FileFiltersTest, ADecryptionThatHasEndedIsNotTold) {
    load({Decrypted(-1s), Decrypted(0s), FilterRecord()});
    EXPECT_EQ(shown.encryptionInfo, "");
}

TEST_F(FileFiltersTest, EveryRecordWithADecryptionHasItsLine) {
    load({Decrypted(90min), NotEncrypting("P", true), Decrypted(6h)});
    EXPECT_THAT(shown.encryptionInfo, testing::EndsWith("\n6-hour decryption enabled. Remaining: 1:30"
                                                        "\n6-hour decryption enabled. Remaining: 6:00"));
}

TEST_F(FileFiltersTest, ADeviceThatOnlyDecryptsSaysSoAndNothingOfDecryptions) {
    settings.DecryptOnly = true;
    load({Decrypted(90min)});
    EXPECT_EQ(shown.encryptionInfo, "\nEncryption is disabled for this device.");
    load({});
    EXPECT_EQ(shown.encryptionInfo, "\nEncryption is disabled for this device.");
}

TEST_F(FileFiltersTest, SettingsThatCannotBeReadCountAsThoseOfANewInstallation) {
    fake::LogCapture log;
    FileFiltersViewController made(
        {[]() -> cmn::proto::TSettings { throw std::runtime_error("broken"); }, [] { return kNow; }});
    made.setFiltersArray({Encrypting("E", 48h, 24h), Decrypted(90min)});
    shown = made.viewDidLoad(initialInfo);
    EXPECT_EQ(shown.encryptionPredictLabel, "The file should be encrypted");
    EXPECT_THAT(shown.encryptionInfo, HasSubstr("flagged by E"));
    EXPECT_THAT(shown.encryptionInfo, HasSubstr("Remaining: 1:30"));
    EXPECT_THAT(log.text(), HasSubstr("The settings cannot be read: broken"));
}

}  // namespace
