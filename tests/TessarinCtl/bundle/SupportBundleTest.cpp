#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "Unpacked.h"
#include "bundle/BundleCommand.h"
#include "bundle/SupportBundle.h"
#include "common/fs.h"
#include "common/json.h"
#include "common/utf8.h"
#include "support/LogCapture.h"

namespace ctl {
namespace {

namespace fs = std::filesystem;
using cmn::SecretKind;
using testing::HasSubstr;

// Words that are in every secret of the test below, so that none is missed whatever is left of it.
constexpr const char* kMarks[] = {"geheim", "kiwiuser", "melonhost", "Plum"};

std::string PercentEncoded(const std::string& text) {
    std::string encoded;
    for (const char c : text) {
        encoded += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return encoded;
}

std::string HexEscaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        escaped += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
    return escaped;
}

class SupportBundleTest : public testing::Test {
 protected:
    void writeSettings(const std::string& text) const { cmn::StrToFile(text, settings); }
    void writeLog(const std::string& name, const std::string& text) const {
        fs::create_directories(logs);
        cmn::StrToFile(text, logs / name);
    }
    BundleSources sources() const {
        return {reports, settings, {folder / "missing", logs}, secrets, {"settings.json"}};
    }

    const fake::TemporaryFolder folder;
    const fs::path settings = folder / "settings.json";
    const fs::path logs = folder / "logs";
    const fs::path archive = folder / "support.tar.gz";
    std::map<std::string, std::string> reports;
    std::vector<std::pair<SecretKind, std::string>> secrets;
};

TEST_F(SupportBundleTest, NoSecretIsInTheArchiveWhereverItStood) {
    secrets = {{SecretKind::user, "kiwiuser"},
               {SecretKind::user, "Kiwi Kiwiuser-Plum"},
               {SecretKind::host, "melonhost.example"},
               {SecretKind::host, "melonhost"}};
    const std::vector<std::string> known{"kiwiuser",          "Kiwi Kiwiuser-Plum",
                                         "melonhost.example", "melonhost",
                                         "geheimPlum1",       "https://geheim.example/api?x=1",
                                         "geheim-key Plum"};
    const std::vector<std::string> unknown{"/home/kiwiuser/geheim letter.docx",
                                           "/srv/geheim/Plum",
                                           "https://www.geheim.example/a?b=geheim",
                                           "geheim.example.org/Plum",
                                           "geheim.someone@example.org",
                                           "file:///home/a/geheim.txt",
                                           "~/geheim/x",
                                           "/home/\xff\xfegeheim",
                                           "tessarin-scheme://showProperties?path=%2Fgeheim"};
    writeSettings(R"({"ServerPassword": "geheimPlum1", "ServerURL": "https://geheim.example/api?x=1",
        "InstallationKey": "geheim-key Plum", "ScanRoot": "/home/kiwiuser/geheim", "DeviceName": "melonhost",
        "Products": [{"Name": "Agent", "InstallPath": "/srv/geheim", "geheim": "Plum"}],
        "Deep": {"geheim.example": [["geheim"], {"kiwiuser": "Plum"}], "n": 1}, "DisabledFolders": "/a/geheim;/b/geheim"})");
    std::string text;
    std::string json = "[";
    const auto add = [&](const std::string& secret) {
        for (const std::string& spelled :
             {secret, PercentEncoded(secret), HexEscaped(secret), cmn::proto::JsonEscaped(secret),
              PercentEncoded(PercentEncoded(secret))}) {
            for (const char* const shape :
                 {"Current URL -- {}", "URL changed for Firefox {} 4711",
                  "Cannot scan {} -- No such file or directory", "Couldn't open {}",
                  "caused by: [LockedFile] Can't open ({}) Error: Permission denied", "\"{}\" is not there",
                  "xdg-open '{}' -- failed: it ended with code 3", "x={}", "<{}>", "{}: Is a directory",
                  "a, {}, b"}) {
                const std::string line = fmt::format(fmt::runtime(shape), spelled);
                text += "[ WARN] [2026.11.21 03:11:50] LockedFile.cpp:12 Open -- " + line + "\n";
                text += "[DEBUG] [2026.11.21 03:11:50] " + line + "\n";
                json +=
                    "\"" + cmn::proto::JsonEscaped(cmn::IsValidUtf8(line) ? line : HexEscaped(line)) + "\",";
            }
            text += "[DEBUG] [2026.11.21 03:11:50] Agent.cpp:93 operator() -- " + spelled + "\n";
            text += "[DEBUG] [2026.11.21 03:11:50] a.cpp:1 f -- x /y\n" + spelled + "\n";
        }
    };
    for (const std::string& secret : known) {
        add(secret);
        // Over two lines of one message.
        for (std::size_t i = 1; i < secret.size(); ++i) {
            text += "[ERROR] [2026.11.21 03:11:50] a.cpp:1 f -- said: " + secret.substr(0, i) + "\n    " +
                    secret.substr(i) + "\n";
        }
    }
    for (const std::string& secret : unknown) {
        add(secret);
    }
    json.back() = ']';
    writeLog("com.tessarin.UserAgent_0.log", text);
    writeLog("com.tessarin.UserAgent_1.log", "of geheim Plum, the rest of a line\n" + text);
    writeLog("com.tessarin.finderExtension_0.log", text);
    reports["doctor.json"] = json;
    reports["status.json"] = R"({"kiwiuser": {"melonhost": ["/a/geheim", {"url": "geheim.example.org"}]}})";
    reports["broken.json"] = "{\"geheim\": \"Plum";
    std::ostringstream out;
    std::ostringstream err;
    ASSERT_EQ(RunBundle(sources(), archive, out, err), 0) << err.str();
    const auto files = FilesOf(archive);
    EXPECT_EQ(files.size(), 7U);
    std::string bytes = BytesOf(archive);
    EXPECT_GT(bytes.size(), text.size());
    std::transform(bytes.begin(), bytes.end(), bytes.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    for (std::string mark : kMarks) {
        std::transform(mark.begin(), mark.end(), mark.begin(),
                       [](unsigned char c) { return std::tolower(c); });
        for (const std::string& spelled : {mark, PercentEncoded(mark), HexEscaped(mark)}) {
            std::string small = spelled;
            std::transform(small.begin(), small.end(), small.begin(),
                           [](unsigned char c) { return std::tolower(c); });
            const auto at = bytes.find(small);
            EXPECT_EQ(at, std::string::npos) << small << ": " << bytes.substr(at < 200 ? 0 : at - 200, 400);
        }
    }
}

TEST_F(SupportBundleTest, TheSameTextHasOnePlaceholderInAllFiles) {
    writeSettings(R"({"DeviceUUID": "6f9619ff-8b86-d011-b42d-00c04fc964ff", "LogLevel": "Debug"})");
    reports["doctor.json"] = R"(["6F9619FF-8B86-D011-B42D-00C04FC964FF"])";
    writeLog("com.tessarin.UserAgent_0.log",
             "[DEBUG] [2026.11.21 03:11:50] a.cpp:1 f -- id 6f9619ff8b86d011b42d00c04fc964ff\n");
    const auto files = RedactedFiles(sources());
    EXPECT_THAT(files.at("settings.json"), HasSubstr("\"DeviceUUID\": \"<uuid-1>\""));
    EXPECT_THAT(files.at("doctor.json"), HasSubstr("<uuid-1>"));
    EXPECT_EQ(files.at("logs-2/com.tessarin.UserAgent_0.log"),
              "[DEBUG] [2026.11.21 03:11:50] a.cpp:1 f -- id <uuid-1>\n");
}

TEST_F(SupportBundleTest, SettingsThatBreakSayWhereAndTheirValuesAreTakenOutAllTheSame) {
    writeSettings("{\"ServerPassword\": \"pass\\u0077ord1\",\n \"LogLevel\" 1}");
    writeLog("com.tessarin.UserAgent_0.log", "[DEBUG] [2026.11.21 03:11:50] a.cpp:1 f -- Password1 is it\n");
    const auto files = RedactedFiles(sources());
    EXPECT_FALSE(files.contains("settings.json"));
    EXPECT_EQ(files.at("settings.error.txt"), "Invalid json -- err: 5 offs: 49\n");
    EXPECT_EQ(files.at("logs-2/com.tessarin.UserAgent_0.log"),
              "[DEBUG] [2026.11.21 03:11:50] a.cpp:1 f -- <text-1> is it\n");
}

TEST_F(SupportBundleTest, WhatIsMissingSaysSo) {
    const auto files = RedactedFiles(sources());
    ASSERT_EQ(files.size(), 1U);
    EXPECT_THAT(files.at("settings.error.txt"), HasSubstr("<path-1>"));
    EXPECT_THAT(files.at("settings.error.txt"), testing::Not(HasSubstr(folder.path().string())));
}

TEST_F(SupportBundleTest, OnlyLogsOfTheProductAreTaken) {
    writeSettings("{}");
    writeLog("com.tessarin.UserAgent_12.log", "");
    for (const char* const other :
         {"com.tessarin.UserAgent.log", "notes.txt", "com.tessarin.UserAgent_0.log.bak", "x_0.log"}) {
        writeLog(other, "secret");
    }
    fs::create_symlink(folder / "settings.json", logs / "com.tessarin.UserAgent_0.log");
    fs::create_directory(logs / "com.tessarin.UserAgent_1.log");
    const auto files = RedactedFiles(sources());
    EXPECT_EQ(files.size(), 2U);
    EXPECT_TRUE(files.contains("logs-2/com.tessarin.UserAgent_12.log"));
}

TEST_F(SupportBundleTest, OfAVeryLongLogTheEndIsTakenFromTheBeginningOfALine) {
    writeSettings("{}");
    const std::string line = "[ INFO] [2026.11.21 03:11:50] a.cpp:1 f -- " + std::string(900, 'x') + "\n";
    std::string text = "[ INFO] [2026.11.21 03:11:50] a.cpp:1 f -- the first\n";
    while (text.size() <= kMostOfLog) {
        text += line;
    }
    writeLog("com.tessarin.UserAgent_0.log", text + "[ INFO] [2026.11.21 03:11:50] a.cpp:1 f -- the last\n");
    const std::string taken = RedactedFiles(sources()).at("logs-2/com.tessarin.UserAgent_0.log");
    EXPECT_LE(taken.size(), kMostOfLog);
    EXPECT_GT(taken.size(), kMostOfLog - 2000);
    EXPECT_TRUE(taken.starts_with(line));
    EXPECT_TRUE(taken.ends_with("the last\n"));
}

}  // namespace
}  // namespace ctl
