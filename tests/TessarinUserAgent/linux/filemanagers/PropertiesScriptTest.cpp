#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "UserHome.h"
#include "useragent/PropertiesURL.h"

namespace useragent {
namespace {

using std::filesystem::path;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kEnd(1, '\0');
const std::string kStart = "tessarin-scheme://showProperties?path=";

// Every byte that a name can have, and what a careless script would trip over.
std::vector<std::string> NastyNames() {
    std::string everyByte;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/') {
            everyByte += static_cast<char>(byte);
        }
    }
    return {everyByte,    "plain.txt", "two  words ", "-rf",      "--urls",      "--",          "it's",
            "\"quoted\"", "100%",      "%20",         "a\nb",     "ends\n\n",    "tab\t",       "$(touch x)",
            "`id`",       "a;b&c|d",   "*",           "?x=1&y#z", "back\\slash", "\\n\\101\\0", "~",
            "über",       "日本",      "\xFF\xFE",    "a+b",      "!history",    "[a-z]"};
}

class PropertiesScriptTest : public testing::Test {
 protected:
    fake::TemporaryFolder folder;
    fake::RecordingOpener opener;
    const std::string script = std::string(FILE_MANAGER_TEMPLATES) + "/tessarin-properties";

    int run(std::vector<std::string> arguments, const std::string& input = {}) {
        arguments.insert(arguments.begin(), script);
        return fake::ExitCodeOf({folder.path(), arguments, {{"PATH", opener.searchPath()}}, input});
    }

    // The paths that the agent would be asked for, each from a call of its own with one argument.
    std::vector<std::string> requestedPaths() const {
        std::vector<std::string> paths;
        for (std::string call : opener.calls()) {
            EXPECT_TRUE(call.starts_with(kStart)) << call;
            EXPECT_EQ(call.find('\0'), call.size() - 1) << call;
            call.pop_back();
            // Nothing that a program on the way could take for something else.
            EXPECT_EQ(
                call.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/%",
                                       kStart.size()),
                std::string::npos)
                << call;
            const auto request = ParsePropertiesURL(call);
            EXPECT_TRUE(request && request->path) << call;
            paths.push_back(request ? request->path.value_or("") : "");
        }
        std::sort(paths.begin(), paths.end());
        return paths;
    }
};

TEST_F(PropertiesScriptTest, AsksOnceForEachFileWhateverItsName) {
    std::vector<std::string> expected;
    for (const std::string& name : NastyNames()) {
        expected.push_back("/some folder/" + name);
    }
    EXPECT_EQ(run(expected), 0);
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(requestedPaths(), expected);
}

TEST_F(PropertiesScriptTest, InstalledItAsksTheAgentItselfWithTheAddressAndTheLocaleAsTheyAre) {
    // Openers may change both.
    const path contents = folder / "it's here/Contents";
    const path agent = contents / "Linux/TessarinUserAgent";
    std::filesystem::create_directories(contents / "Resources");
    std::filesystem::copy(FILE_MANAGER_TEMPLATES, contents / "Resources/file-managers");
    fake::WriteFile(agent, "#!/bin/sh\nprintf '%s %s' \"$LC_ALL\" \"$*\" >\"${0%/*}/asked\"\n");
    std::filesystem::permissions(agent, std::filesystem::perms::owner_all);
    fake::UserHome home;
    FileManagerEntries(contents / "Resources/file-managers", home.folders).install(FileManager::dolphin);
    EXPECT_EQ(fake::ExitCodeOf({folder.path(),
                                {home.helper().string(), "/a b.txt"},
                                {{"PATH", opener.searchPath()}, {"LC_ALL", "C.UTF-8"}},
                                {}}),
              0);
    EXPECT_EQ(fake::ReadFile(contents / "Linux/asked"), "C.UTF-8 " + kStart + "/a%20b.txt");
    EXPECT_THAT(opener.calls(), IsEmpty());
    std::filesystem::remove(agent);
    EXPECT_EQ(fake::ExitCodeOf(
                  {folder.path(), {home.helper().string(), "/a b.txt"}, {{"PATH", opener.searchPath()}}, {}}),
              0);
    EXPECT_THAT(requestedPaths(), ElementsAre("/a b.txt"));
}

TEST_F(PropertiesScriptTest, RelativeNamesAreOfTheWorkingFolder) {
    std::vector<std::string> arguments{"--"};
    std::vector<std::string> expected;
    for (const std::string& name : NastyNames()) {
        arguments.push_back(name);
        expected.push_back(folder.path().string() + "/" + name);
    }
    EXPECT_EQ(run(arguments), 0);
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(requestedPaths(), expected);
}

TEST_F(PropertiesScriptTest, WritesOneExactRequest) {
    EXPECT_EQ(run({"/a b/\xC3\xBC%-_.~"}), 0);
    EXPECT_THAT(opener.calls(), ElementsAre(kStart + "/a%20b/%C3%BC%25-_.~" + kEnd));
}

TEST_F(PropertiesScriptTest, TakesTheUrlsOfFiles) {
    EXPECT_EQ(run({"--urls"}, "file:///a%20b/100%25&c'd\n\nfile://localhost/%FF%0A+;=x"), 0);
    EXPECT_THAT(requestedPaths(), ElementsAre("/a b/100%&c'd", "/\xFF\n+;=x"));
    EXPECT_EQ(run({"file:///c%23"}), 0);
    EXPECT_THAT(requestedPaths(), testing::Contains("/c#"));
}

TEST_F(PropertiesScriptTest, LeavesOutFilesOfOtherMachines) {
    EXPECT_EQ(run({"--urls"}, "sftp://host/a\nfile://host/b\nfile:///c\ntrash:///d\n"), 1);
    EXPECT_THAT(requestedPaths(), ElementsAre("/c"));
}

TEST_F(PropertiesScriptTest, DoesNothingWithoutFiles) {
    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(run({"--"}), 0);
    EXPECT_EQ(run({"--urls"}), 0);
    EXPECT_THAT(opener.calls(), IsEmpty());
}

TEST_F(PropertiesScriptTest, FailsWhenTheRequestCannotBeSent) {
    opener.failFromNowOn();
    EXPECT_EQ(run({"/a"}), 1);
}

// What the file managers do with the entries, as far as it can be done without them.
class InstalledScriptTest : public PropertiesScriptTest {
 protected:
    fake::UserHome home;

    int runScript(const path& entry, const std::string& variable, const std::string& urls,
                  std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), entry.string());
        return fake::ExitCodeOf(
            {folder.path(), arguments, {{"PATH", opener.searchPath()}, {variable, urls}}, {}});
    }
};

TEST_F(InstalledScriptTest, OfNautilusTakesTheListOfTheSelection) {
    home.folders.dataHome = home.temporary / "it's a \"home\"";
    home.entries().install(FileManager::nautilus);
    EXPECT_EQ(runScript(home.nautilus(), "NAUTILUS_SCRIPT_SELECTED_URIS", "file:///a%0Ab\nfile:///%2520\n",
                        {"wrong"}),
              0);
    EXPECT_THAT(requestedPaths(), ElementsAre("/%20", "/a\nb"));
}

TEST_F(InstalledScriptTest, OfCajaTakesTheListOfTheSelection) {
    home.entries().install(FileManager::caja);
    EXPECT_EQ(runScript(home.caja(), "CAJA_SCRIPT_SELECTED_URIS", "file:///a\n", {"wrong"}), 0);
    EXPECT_THAT(requestedPaths(), ElementsAre("/a"));
}

TEST_F(InstalledScriptTest, TakesTheArgumentsWithoutAList) {
    home.entries().install(FileManager::nautilus);
    EXPECT_EQ(runScript(home.nautilus(), "CAJA_SCRIPT_SELECTED_URIS", "file:///wrong\n", {"--urls"}), 0);
    EXPECT_THAT(requestedPaths(), ElementsAre(folder.path().string() + "/--urls"));
}

TEST_F(InstalledScriptTest, NeedsNothingOfTheApplicationFolder) {
    home.templates = home.temporary / "templates";
    std::filesystem::copy(FILE_MANAGER_TEMPLATES, home.templates);
    home.entries().install(FileManager::nautilus);
    std::filesystem::remove_all(home.templates);
    EXPECT_EQ(runScript(home.nautilus(), "NAUTILUS_SCRIPT_SELECTED_URIS", "file:///a\n", {}), 0);
    EXPECT_THAT(requestedPaths(), ElementsAre("/a"));
}

}  // namespace
}  // namespace useragent
