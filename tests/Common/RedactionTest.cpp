#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "common/Redaction.h"
#include "common/exceptions.h"
#include "common/json.h"

namespace {

using cmn::Redaction;
using cmn::SecretKind;
using testing::HasSubstr;
using testing::Not;

constexpr std::string_view kDebug = "[DEBUG] [2026.11.21 03:11:50] ";

std::string Line(std::string_view rest) {
    return std::string(kDebug).append(rest) + "\n";
}

// What a text becomes for somebody who knows nothing beforehand.
std::string Redacted(std::string_view text) {
    Redaction redaction;
    return redaction.text(text);
}

std::string RedactedLog(std::string_view text) {
    Redaction redaction;
    return redaction.log(text);
}

class RedactionTest : public testing::Test {
 protected:
    Redaction redaction;
};

class WrittenSomehow : public testing::TestWithParam<const char*> {};

TEST_P(WrittenSomehow, ASecretIsFound) {
    Redaction redaction;
    redaction.addSecret(SecretKind::user, "Zoë Müller");
    EXPECT_EQ(redaction.text(GetParam()), "of <user-1> here");
}

INSTANTIATE_TEST_SUITE_P(
    All, WrittenSomehow,
    testing::Values("of Zoë Müller here", "of zoë müller here", "of ZOë MüLLER here",
                    "of Zo%C3%AB%20M%c3%bcller here", "of Zo%C3%AB+M%C3%BCller here",
                    "of Zo%25C3%25AB%2520M%25C3%25BCller here", "of Zo\\xc3\\xab M\\xc3\\xbcller here",
                    "of Zo\\u00eb M\\u00FCller here", "of Zo\\\\u00eb M\\\\u00FCller here",
                    "of %5a%6f%c3%ab%20%4d%c3%bc%6c%6c%65%72 here", "of Zoë Mül\nler here",
                    "of Zoë Mül\r\n    ler here", "of Zoë Mül\\nler here", "of Zoë\n Müller here"));

TEST_F(RedactionTest, ASecretOfRareCharactersIsFoundInTheEscapesOfJson) {
    redaction.addSecret(SecretKind::user, "\u65e5\u672c\U0001f600\U0010ffff");
    EXPECT_EQ(redaction.text("of \\u65e5\\u672c\\ud83d\\ude00\\uDBFF\\uDFFF here"), "of <user-1> here");
    EXPECT_EQ(redaction.text("of \\u65E5\u672c\\uD83D\\uDE00\U0010ffff here"), "of <user-1> here");
}

TEST_F(RedactionTest, EscapesThatAreNoneStay) {
    redaction.addSecret(SecretKind::user, "\U0001f600");
    for (const std::string text : {"half a pair \\ud83d", "no second \\ud83d\\u0041", "no first \\ude00",
                                   "short \\u00e", "cut \\ud83d\\ude0", "two firsts \\ud83d\\ud83d",
                                   "no digits \\u00g1", "ends \\u", "ends \\", "ends %4", "ends \\x"}) {
        EXPECT_EQ(redaction.text(text), text);
    }
}

TEST_F(RedactionTest, TheSameTextHasTheSamePlaceholderWhereverAndHoweverItStands) {
    redaction.addSecret(SecretKind::user, "jdoe");
    EXPECT_EQ(redaction.text("jdoe and JDOE, %6adoe"), "<user-1> and <user-1>, <user-1>");
    EXPECT_EQ(redaction.text("https://a.example/1"), "<address-1>");
    EXPECT_EQ(redaction.text("\"https://b.example/\" and \"/x/y\""), "\"<address-2>\"");
    EXPECT_EQ(redaction.text("https%3A%2F%2Fa.example/1"), "<address-1>");
    EXPECT_EQ(redaction.report(R"({"of": "jdoe", "url": "HTTPS://a.example/1"})"),
              "{\n    \"of\": \"<user-1>\",\n    \"url\": \"<address-1>\"\n}");
}

TEST_F(RedactionTest, ShortSecretsAreTakenOutAsWordsAndLongOnesAnywhere) {
    redaction.addSecret(SecretKind::user, "ann");
    redaction.addSecret(SecretKind::password, "hunter22");
    EXPECT_EQ(redaction.text("ann planned, ann_1 (ann)"), "<user-1> planned, <user-1>_1 (<user-1>)");
    EXPECT_EQ(redaction.text("xhunter22y"), "x<password-1>y");
}

TEST_F(RedactionTest, ASecretThatIsNotUtf8IsFound) {
    redaction.addSecret(SecretKind::user, "j\xfcrgen");
    EXPECT_EQ(redaction.text("a j\xfcrgen b j\\xfcrgen c j%FCrgen"), "a <user-1> b <user-1> c <user-1>");
}

TEST_F(RedactionTest, OfSecretsWithinEachOtherTheLongerOneCounts) {
    redaction.addSecret(SecretKind::host, "laptop");
    redaction.addSecret(SecretKind::host, "laptop-of-ann");
    EXPECT_EQ(redaction.text("laptop-of-ann, laptop"), "<host-1>, <host-2>");
}

TEST_F(RedactionTest, ASecretIsOfTheKindThatItWasFirstSaidToBe) {
    redaction.addSecret(SecretKind::user, "jdoe");
    EXPECT_THAT(redaction.settings(R"({"DeviceName": "JDoe"})"), HasSubstr("<user-1>"));
    EXPECT_EQ(redaction.text("jdoe"), "<user-1>");
}

class TakenOut : public testing::TestWithParam<const char*> {};

// Nothing is known beforehand; "secret" is what may not stay.
TEST_P(TakenOut, WithoutBeingKnown) {
    const std::string redacted = Redacted(GetParam());
    EXPECT_THAT(redacted, Not(HasSubstr("secret")));
    EXPECT_THAT(redacted, testing::MatchesRegex("(.|\n)*<[a-z]+-[0-9]+>(.|\n)*"));
    EXPECT_THAT(RedactedLog(Line(GetParam())), Not(HasSubstr("secret")));
    EXPECT_THAT(RedactedLog(Line(std::string("a.cpp:1 f -- x: ") + GetParam())), Not(HasSubstr("secret")));
    const std::string json = "{\"a\": [\"" + cmn::proto::JsonEscaped(GetParam()) + "\"]}";
    Redaction redaction;
    EXPECT_THAT(redaction.report(json), Not(HasSubstr("secret")));
    EXPECT_THAT(redaction.settings(json), Not(HasSubstr("secret")));
}

INSTANTIATE_TEST_SUITE_P(
    Paths, TakenOut,
    testing::Values("/home/secret", "open /home/a/My secret letter.docx", "'/home/a b/secret'",
                    "'/it's a secret'", "\"/home/a \\\"secret\\\" b\"", "(/a b) secret)", "~/secret",
                    "~root/secret", "./secret/secret.txt", "x=/a/secret", "%2Fhome%2Fsecret b",
                    "path=%2fhome%2fa%20secret", "\\/home\\/secret", "\\x2fhome\\x2fsecret",
                    "\\u002fhome\\u002fsecret", "%252Fhome%252Fsecret", "/a\\x0asecret", "/a\\nsecret",
                    "/home/a\nsecret", "/home/a -- b -- secret", "/home/a: secret", "/opt/tessarin/secret",
                    "unix:path=/run/user/1000/secret", "/\xff\xfe/secret", "a/b:/secret", "secret.docx",
                    "the secret-2026.xlsx file", "../secret.txt"));

INSTANTIATE_TEST_SUITE_P(
    Addresses, TakenOut,
    testing::Values("https://secret.example/", "HTTPS://EXAMPLE.ORG/secret", "https://a.example/a secret",
                    "see https://a.example/\nsecret", "ftp+x://secret", "file:///secret", "about:secret",
                    "data:text/plain,secret", "javascript:secret()", "mailto:secret@a", "view-source:secret",
                    "tessarin-scheme://showProperties?path=/secret", "https%3a%2f%2fsecret",
                    "\\u0068ttps://secret", "https:\\/\\/a.example\\/secret", "secret.example.org",
                    "example.org/a secret", "example.org?q=secret", "example.org#secret",
                    "localhost:8080/secret", "intranet:80/a secret", "secret@example.org", "some.body@secret",
                    "x-secret.example:443"));

INSTANTIATE_TEST_SUITE_P(Others, TakenOut,
                         testing::Values("secret0123456789abcdef", "c2VjcmV0IG9uZQsecret1==",
                                         "token=AAAAsecretAAAAAAA1", "eyJhbGciOi1.secret.Zm9v"));

TEST(RedactionOfNumbersTest, AddressesOfMachinesAndLongNumbersGo) {
    EXPECT_EQ(Redacted("10.1.2.3 and fe80::1:2, 08:00:2b:01:02:03"),
              "<address-1> and <address-2>, <address-3>");
    EXPECT_EQ(Redacted("card 4111111111111111"), "card <key-1>");
    EXPECT_EQ(Redacted("3f1c9a0b7e6d5c4a"), "<key-1>");
}

TEST_F(RedactionTest, OtherTextsThanUuidsThatDifferInADashAreNotTheSame) {
    redaction.addSecret(SecretKind::user, "anna-maria");
    redaction.addSecret(SecretKind::user, "annamaria");
    EXPECT_EQ(redaction.text("a anna-maria b annamaria c"), "a <user-1> b <user-2> c");
}

TEST(RedactionOfUuidsTest, OneIsTheSameInEverySpelling) {
    EXPECT_EQ(Redacted("a 6f9619ff-8b86-d011-b42d-00c04fc964ff b {6F9619FF-8B86-D011-B42D-00C04FC964FF} "
                       "c 6f9619ff8b86d011b42d00c04fc964ff d 6f9619ff-8b86-\nd011-b42d-00c04fc964ff e"),
              "a <uuid-1> b {<uuid-1>} c <uuid-1> d <uuid-1> e");
}

TEST_F(RedactionTest, AUuidThatIsKnownIsTheSameInEverySpelling) {
    redaction.addSecret(SecretKind::uuid, "6f9619ff-8b86-d011-b42d-00c04fc964ff");
    redaction.addSecret(SecretKind::uuid, "{7f9619ff-8b86-d011-b42d-00c04fc964ff}");
    EXPECT_EQ(redaction.text("a 6f9619ff-8b86-d011-b42d-00c04fc964ff b 6f9619ff8b86d011b42d00c04fc964ff "
                             "c {7F9619FF-8B86-D011-B42D-00C04FC964FF} d 7f9619ff8b86d011b42d00c04fc964ff"),
              "a <uuid-1> b <uuid-1> c <uuid-2> d <uuid-2>");
}

TEST(RedactionKeepsTest, WhatSaysNothingAboutAnybody) {
    for (const char* const text :
         {"The application with process id 4711 does not answer", "Starting TessarinUserAgent 1.0.0",
          "org.freedesktop.DBus.Error.ServiceUnknown: no such name",
          "Get kAXMainWindowAttribute -- failed: -25204", "com.tessarin.UserAgent is not owned",
          "at 03:11:50", "2026.11.21 03:11:50", "1.2", "and/or", "e.g. so",
          "AXObserverCreateWithInfoCallback -- failed: -25200", "--force-renderer-accessibility=basic",
          "Invalid json -- err: 4 offs: 17", "x-scheme-handler", "", "a ~ b", "1 / 2"}) {
        EXPECT_EQ(Redacted(text), text);
    }
}

TEST_F(RedactionTest, WhatIsKeptStaysWhereItStandsAlone) {
    redaction.keep("/opt/tessarin");
    redaction.keep("/opt/tessarin/settings.json");
    redaction.keep("uca.xml");
    EXPECT_EQ(redaction.text("/opt/tessarin/settings.json: broken, see /opt/tessarin. uca.xml"),
              "/opt/tessarin/settings.json: broken, see /opt/tessarin. uca.xml");
    EXPECT_EQ(redaction.text("/opt/tessarin/x"), "<path-1>");
    EXPECT_EQ(redaction.text("/opt/tessarins"), "<path-2>");
    EXPECT_EQ(redaction.text("/home/opt/tessarin"), "<path-3>");
    EXPECT_EQ(redaction.text("my-uca.xml"), "<address-1>");
}

TEST(RedactionEndingsTest, AReasonThatIsTheSystemsStays) {
    EXPECT_EQ(Redacted("/a b -- No such file or directory"), "<path-1> -- No such file or directory");
    EXPECT_EQ(Redacted("/a: Permission denied"), "<path-1>: Permission denied");
    EXPECT_EQ(
        Redacted("The log cannot be written to /home/a/x_0.log, nor to the user's folder for logs, so it "
                 "goes to the standard error stream"),
        "The log cannot be written to <path-1>_0.log, nor to the user's folder for logs, so it goes to the "
        "standard error stream");
    EXPECT_EQ(Redacted("/a: Permission denied to b"), "<path-1>");
}

class WholeLine : public testing::TestWithParam<const char*> {};

// As the programs write them; what was typed or what a file is called may be anything.
TEST_P(WholeLine, GoesFromWhereTheTextOfOthersBegins) {
    for (const char* const typed :
         {"secret", "my secret word", "a -- secret", "secret 12 -- x", "a'secret"}) {
        std::string line = GetParam();
        line.replace(line.find("{}"), 2, typed);
        const std::string redacted = RedactedLog(Line(line));
        EXPECT_THAT(redacted, Not(HasSubstr("secret")));
        const std::string_view before = std::string_view(GetParam()).substr(0, line.find(" -- ") + 4);
        EXPECT_TRUE(redacted.starts_with(std::string(kDebug).append(before))) << redacted;
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, WholeLine,
    testing::Values(
        "Agent.cpp:93 operator() -- {}",
        "BrowserURLWatcher.cpp:162 handleBrowserProcesses -- Current URL -- {}",
        "BrowserURLWatcher.cpp:378 storeURL -- URL changed for Firefox -- {}",
        "BrowserURLWatcher.cpp:388 updateURL -- URL changed for Firefox {} 4711",
        "FileScanner.cpp:70 scan -- Cannot scan {} -- No such file or directory",
        "FileScanner.cpp:95 scan -- Scan of {} is incomplete -- It took too long",
        "FileScanner.cpp:97 scan -- Scanned {} -- 3 findings in 12 bytes",
        "FileScanner.cpp:22 scan -- No answer about {} -- It is not known who asks",
        "FileScanner.cpp:67 scan -- Laid down for {} -- 2 records",
        "SealedFile.cpp:107 unseal -- Cannot unseal {} -- Not sealed",
        "SealedFile.cpp:118 unseal -- Taken for not sealed: {} -- x",
        "SealedFile.cpp:134 unseal -- Unsealed {}", "InotifyFileWatch.cpp:47 watch -- Cannot watch {} -- x",
        "AppDelegate.cpp:134 open -- The name of a file is not UTF-8, nobody is asked about it: {}"));

TEST(RedactionOfLogTest, AnAddressIsTheSameInAllLinesThatTellOfIt) {
    EXPECT_EQ(RedactedLog(Line("a.cpp:1 f -- Current URL -- my search 12") +
                          Line("a.cpp:1 f -- URL changed for Firefox my search 12 4711") +
                          Line("a.cpp:1 f -- URL changed for Google Chrome -- my search 12") +
                          Line("a.cpp:1 f -- URL changed for Safari  4711")),
              Line("a.cpp:1 f -- Current URL -- <address-1>") +
                  Line("a.cpp:1 f -- URL changed for Firefox <address-1> 4711") +
                  Line("a.cpp:1 f -- URL changed for Google Chrome -- <address-1>") +
                  Line("a.cpp:1 f -- URL changed for Safari  4711"));
    EXPECT_EQ(RedactedLog(Line("a.cpp:1 f -- URL changed for Firefox my 4711\nsecret 12")),
              Line("a.cpp:1 f -- URL changed for Firefox <address-1>") + "<text-1>\n");
}

TEST(RedactionOfServiceLogTest, PathsGoToTheEndOfTheLine) {
    EXPECT_EQ(RedactedLog(Line("getScanResult called for path: relative secret, 1")),
              Line("getScanResult called for path: <path-1>"));
    EXPECT_EQ(RedactedLog(Line("Encryption status for path: relative secret is true")),
              Line("Encryption status for path: <path-1>"));
    EXPECT_EQ(RedactedLog(Line("Decryption attempted for path: secret")),
              Line("Decryption attempted for path: <path-1>"));
}

TEST(RedactionOfLogTest, StampPlaceAndTheProductsWordsStay) {
    const std::string healthy =
        "============================================================\n2026.11.21 03:11:50\n"
        "============================================================\n"
        "[ INFO] [2026.11.21 03:11:50] Agent.cpp:68 StartLog -- Starting TessarinUserAgent 1.0.0\n"
        "[ WARN] [2026.11.21 03:11:51] AccessibilityBus.cpp:204 ~Session -- Accessibility is switched off "
        "for this "
        "session: browsers cannot be read\n"
        "[ INFO] [2026.11.21 03:11:51] BrowserURLWatcher.cpp:161 operator() -- Found URL element for -- "
        "Firefox\n"
        "The logs were removed from the queue because it overflowed\n"
        "Ended by the signal SIGSEGV\n";
    EXPECT_EQ(RedactedLog(healthy), healthy);
    EXPECT_EQ(RedactedLog("Ended by an exception that nobody caught: open /secret"),
              "Ended by an exception that nobody caught: open <path-1>");
}

TEST(RedactionOfLogTest, LinesThatGoOnWithASecretGoWithIt) {
    EXPECT_EQ(RedactedLog(Line("a.cpp:1 f -- open /a") + "secret\nsecret\n" + Line("a.cpp:1 f -- b")),
              Line("a.cpp:1 f -- open <path-1>") + "<text-1>\n" + Line("a.cpp:1 f -- b"));
    EXPECT_EQ(RedactedLog("secret of a line that was rotated away\n" + Line("a.cpp:1 f -- b")),
              "<text-1>\n" + Line("a.cpp:1 f -- b"));
}

TEST_F(RedactionTest, ASecretThatGoesOnInTheNextLineOfAMessageIsFound) {
    redaction.addSecret(SecretKind::password, "correct horse");
    EXPECT_EQ(redaction.log(Line("a.cpp:1 f -- said correct\nhorse and more")),
              Line("a.cpp:1 f -- said <password-1> and more"));
}

TEST_F(RedactionTest, ASecretIsFoundWhoseBeginningReadsAsTheEndOfAnEscape) {
    redaction.addSecret(SecretKind::password, "correct horse");
    EXPECT_EQ(redaction.text("said \\x1correct horse and more"), "said \\x1<password-1> and more");
    EXPECT_EQ(redaction.text("said %5cx1correct horse and more"), "said %5cx1<password-1> and more");
    EXPECT_EQ(redaction.text("said %20correct horse, \\u00correct horse"),
              "said %20<password-1>, \\u00<password-1>");
}

TEST_F(RedactionTest, WhatIsKeptStaysBesideEscapesThatWereNone) {
    redaction.addSecret(SecretKind::user, "tessarin");
    redaction.keep("com.tessarin.agent");
    EXPECT_EQ(redaction.text("of com.tessarin.agent, \\x1f"), "of com.tessarin.agent, \\x1f");
}

TEST(RedactionOfLogTest, WhatOnlyLooksLikeAPlaceIsText) {
    EXPECT_EQ(RedactedLog(Line("secret.docx:1 f -- b")), Line("<address-1>:1 f -- b"));
    EXPECT_EQ(RedactedLog(Line("6f9619ff-8b86-d011-b42d-00c04fc964ffA.cpp:93 operator() -- b")),
              Line("<uuid-1><address-1>:93 operator() -- b"));
    EXPECT_EQ(RedactedLog(Line("a.cpp:/home/secret f -- b")), Line("<address-1>:<path-1>"));
}

TEST(RedactionOfLogTest, AMessageOfManyMegabytesGoesAsAWhole) {
    const std::string log = RedactedLog(Line("a.cpp:1 f -- " + std::string(5'000'000, 'x')));
    EXPECT_EQ(log, Line("a.cpp:1 f -- <text-1>"));
}

TEST_F(RedactionTest, OfTheSettingsOnlySwitchesAndWhatIsKnownToBeHarmlessStay) {
    const std::string settings = redaction.settings(R"({
        "Platform": "Linux", "ServerURL": "https://srv:8443/api", "UpdaterServerURL": null, "UpdaterID": "u-1",
        "DeviceUUID": "6f9619ff-8b86-d011-b42d-00c04fc964ff", "DeviceName": "annas-laptop",
        "InstallationKey": "K", "UninstallationKey": "", "ServerUser": "ann", "ServerPassword": "pw",
        "LogLevel": "Debug", "ScanRoot": "/home/ann", "ScanThreadCount": 2, "DecryptOnly": true,
        "StatisticsProcesses": ["soffice", "/usr/bin/x"], "DeviceId": 123456, "StateFile": "${STATE}",
        "Products": [{"Name": "Agent", "Version": "1.0.0", "InstallPath": "/opt/x"}],
        "Unknown": {"ann": [1.5, {"Name": "other"}]}})");
    EXPECT_EQ(settings, R"({
    "Platform": "Linux",
    "ServerURL": "<address-1>",
    "UpdaterServerURL": null,
    "UpdaterID": "<uuid-1>",
    "DeviceUUID": "<uuid-2>",
    "DeviceName": "<host-1>",
    "InstallationKey": "<key-1>",
    "UninstallationKey": "",
    "ServerUser": "<user-1>",
    "ServerPassword": "<password-1>",
    "LogLevel": "Debug",
    "ScanRoot": "<path-1>",
    "ScanThreadCount": 2,
    "DecryptOnly": true,
    "StatisticsProcesses": [
        "<text-1>",
        "<text-2>"
    ],
    "DeviceId": "<uuid-3>",
    "StateFile": "${STATE}",
    "Products": [
        {
            "Name": "Agent",
            "Version": "1.0.0",
            "InstallPath": "<path-2>"
        }
    ],
    "Unknown": {
        "<user-1>": [
            "<text-3>",
            {
                "Name": "<text-4>"
            }
        ]
    }
})");
    // From now on they are known.
    EXPECT_EQ(redaction.log(Line("a.cpp:1 f -- srv told ann on annas-laptop K, pw and 123456")),
              Line("a.cpp:1 f -- <host-2> told <user-1> on <host-1> <key-1>, <password-1> and <uuid-3>"));
}

TEST_F(RedactionTest, AShortValueOfTheSettingsIsRememberedOnlyIfItNamesOrOpensSomething) {
    redaction.settings(
        R"({"ServerPassword": "pw", "DeviceName": "x1", "UpdaterID": "x", "DeviceId": 0, "Other": "in"})");
    EXPECT_EQ(redaction.text("x is 0 in pw of x1"), "x is 0 in <password-1> of <host-1>");
}

TEST_F(RedactionTest, WhatIsNoJsonIsRefused) {
    EXPECT_THROW(redaction.settings("{\"ServerPassword\": \"secret\""), JsonException);
    EXPECT_THROW(redaction.report("secret"), JsonException);
}

TEST_F(RedactionTest, OfAReportNumbersAndShapeStay) {
    EXPECT_EQ(
        redaction.report(R"({"a": [1, -2.5, true, null, "word"], "/home/x": {}})"),
        "{\n    \"a\": [\n        1,\n        -2.5,\n        true,\n        null,\n        \"word\"\n    ],\n"
        "    \"<path-1>\": {}\n}");
}

}  // namespace
