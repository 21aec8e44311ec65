#include <QDBusArgument>
#include <QDBusMetaType>
#include <filesystem>
#include <fstream>

#include "CtlWorld.h"
#include "XPCCommon/BusUsers.h"

namespace {

using fake::CtlRun;
using testing::HasSubstr;
using testing::IsEmpty;
using Record = QMap<QString, QString>;

constexpr const char* kFinder = "com.tessarin.FinderExtension";

class ScanCommandTest : public fake::CtlWorld {
 protected:
    ScanCommandTest() {
        qDBusRegisterMetaType<Record>();
        qDBusRegisterMetaType<QList<Record>>();
    }
    std::unique_ptr<fake::RawPeer> service(const QList<Record>& records) {
        return serve(system, kFinder, [this, records](const QDBusMessage& call) {
            EXPECT_EQ(call.path(), "/com/tessarin/FinderExtension");
            EXPECT_EQ(call.interface(), kFinder);
            EXPECT_EQ(call.member(), "GetScanResult");
            asked.push_back(call.arguments().value(0).toString().toStdString());
            return QVariant::fromValue(records);
        });
    }
    void expectFailure(const std::string& why) {
        const CtlRun run = this->run({"scan", "/a.txt", "--json"});
        EXPECT_EQ(run.code, 1);
        EXPECT_EQ(run.err, "tessarinctl: " + why + "\n");
        EXPECT_THAT(run.out, IsEmpty());
    }

    std::vector<std::string> asked;  // read when the command has ended
    const QList<Record> found{
        {{"Name", "Credit card"}, {"SensitiveType", "1"}, {"MatchCount", "12"}, {"costUsd", "150.5"}},
        {{"Name", "\x1b[2Jna\xC3\xAFve\n"}, {"SensitiveType", "0"}, {"MatchCount", "3"}, {"Other", "x"}}};
};

TEST_F(ScanCommandTest, ShowsTheRecordsInAlignedColumnsWithoutControls) {
    const auto peer = service(found);
    const CtlRun run = this->run({"scan", "/tmp/a.txt"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out,
              "Classifier        Sensitive  Count  Risk (USD)\n"
              "Credit card       yes           12     1806.00\n"
              "\\x1b[2Jna\xC3\xAFve\\x0a  no             3        0.00\n");
    EXPECT_THAT(asked, testing::ElementsAre("/tmp/a.txt"));
}

TEST_F(ScanCommandTest, CutsWideTextsOnATerminalOnly) {
    const auto peer = service({{{"Name", QString(100, 'n')}}});
    EXPECT_THAT(run({"scan", "/a"}).out, HasSubstr(std::string(100, 'n')));
    const CtlRun cut = run({"scan", "/a"}, 60);
    EXPECT_THAT(cut.out, HasSubstr("\n" + std::string(29, 'n') + "\u2026  no "));
}

TEST_F(ScanCommandTest, JsonHasAllFieldsOfAllRecords) {
    const auto peer = service(found);
    const CtlRun run = this->run({"scan", "/tmp/a.txt", "--json"});
    EXPECT_EQ(run.code, 0);
    const auto document = parse(run.out);
    EXPECT_STREQ(document["path"].GetString(), "/tmp/a.txt");
    ASSERT_EQ(document["records"].Size(), 2U);
    EXPECT_STREQ(document["records"][0]["costUsd"].GetString(), "150.5");
    EXPECT_STREQ(document["records"][1]["Name"].GetString(), "\x1b[2Jna\xC3\xAFve\n");
    EXPECT_STREQ(document["records"][1]["Other"].GetString(), "x");
    EXPECT_EQ(run.out.find('\x1b'), std::string::npos);
}

TEST_F(ScanCommandTest, AsksAboutTheWholePathAndSaysThatNothingWasFound) {
    const auto peer = service({});
    const CtlRun run = this->run({"scan", "a.txt"});
    EXPECT_EQ(run.code, 0);
    const std::string path = std::filesystem::current_path() / "a.txt";
    EXPECT_EQ(run.out, "Nothing was found in " + path + "\n");
    EXPECT_THAT(asked, testing::ElementsAre(path));
}

TEST_F(ScanCommandTest, AsksNobodyAboutANameThatIsNoText) {
    const auto peer = service({});
    const CtlRun run = this->run({"scan", "/caf\xE9"});
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("not UTF-8"));
    EXPECT_THAT(asked, IsEmpty());
}

TEST_F(ScanCommandTest, SaysThatTheServiceIsAbsent) {
    expectFailure("The service com.tessarin.FinderExtension is not there");
}

TEST_F(ScanCommandTest, SaysThatThereIsNoSystemBus) {
    surroundings.systemBus = "unix:path=" + (folder / "nothing").string();
    const CtlRun run = this->run({"scan", "/a.txt"});
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("There is no system bus to ask: "));
}

TEST_F(ScanCommandTest, GivesAServiceThatIsSilentUp) {
    hurry();
    const auto peer = serve(system, kFinder, [](const QDBusMessage&) { return QVariant(); });
    expectFailure("The service com.tessarin.FinderExtension does not answer");
}

TEST_F(ScanCommandTest, SaysThatAnAnswerOfAnotherTypeIsAnError) {
    const auto peer = serve(system, kFinder, [](const QDBusMessage&) { return QVariant(QString("no")); });
    const CtlRun run = this->run({"scan", "/a.txt"});
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("The service com.tessarin.FinderExtension answers with an error: "));
}

TEST_F(ScanCommandTest, AsksRootsServiceAloneWhenTheSettingsSaySo) {
    if (!BusUsers::canBePlayed()) {
        GTEST_SKIP() << "needs root to become another user";
    }
    const auto require = [this](const char* required) {
        std::filesystem::create_directories(surroundings.settings().parent_path());
        std::ofstream(surroundings.settings()) << R"({"RequireRootServices": )" << required << "}";
    };
    require("true");
    {
        const auto roots = service({});
        EXPECT_EQ(run({"scan", "/a.txt"}).code, 0);
    }
    system.openToOthers();
    const auto others = BusUsers(system.address()).start(BusUsers::kNobody, {"serve", kFinder});
    ASSERT_TRUE(others->readLine()) << others->errors();
    expectFailure(
        "The service com.tessarin.FinderExtension is not root's, as RequireRootServices in the settings "
        "demands");
    EXPECT_FALSE(others->readLine(std::chrono::milliseconds(0))) << "it was told the path";
    require("false");
    EXPECT_THAT(run({"scan", "/a.txt"}).err, HasSubstr("answers with an error")) << "its text is no record";
}

}  // namespace
