#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "UserHome.h"
#include "filemanagers/FileManagerCommand.h"
#include "support/Environment.h"

namespace useragent {
namespace {

using testing::HasSubstr;

class FileManagerCommandTest : public testing::Test {
 protected:
    fake::UserHome home;
    std::string out;
    std::string err;

    int run(const std::vector<std::string>& arguments) {
        std::ostringstream outStream;
        std::ostringstream errStream;
        const int code =
            RunFileManagerCommand(arguments, home.entries(), home.session(), outStream, errStream);
        out = outStream.str();
        err = errStream.str();
        return code;
    }
};

TEST_F(FileManagerCommandTest, InstallsAndRemovesForTheFileManagerOfTheDesktop) {
    home.currentDesktop = "XFCE";
    EXPECT_EQ(run({"status"}), 3);
    EXPECT_EQ(out, "Thunar: not installed\n");
    EXPECT_EQ(run({"install"}), 0);
    EXPECT_EQ(out, "Thunar: installed\n");
    EXPECT_EQ(run({"status"}), 0);
    EXPECT_EQ(run({"status", "nemo"}), 3);
    EXPECT_EQ(run({"remove"}), 0);
    EXPECT_EQ(out, "Thunar: not installed\n");
    EXPECT_EQ(err, "");
    EXPECT_EQ(run({"remove"}), 0);
}

TEST_F(FileManagerCommandTest, TakesTheNameOfAFileManager) {
    for (const FileManager manager : kFileManagers) {
        EXPECT_EQ(run({"install", ProgramOf(manager)}), 0) << err;
        EXPECT_TRUE(home.entries().isInstalled(manager));
        EXPECT_EQ(run({"remove", FactsOf(manager).name}), 0) << err;
        EXPECT_FALSE(home.entries().isInstalled(manager));
    }
}

TEST_F(FileManagerCommandTest, AsksForANameOnAnUnknownDesktop) {
    EXPECT_EQ(run({"install"}), 1);
    EXPECT_THAT(err, HasSubstr("is not known"));
    EXPECT_EQ(out, "");
}

TEST_F(FileManagerCommandTest, ShowsItsArgumentsWhenTheyAreWrong) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {}, {"uninstall"}, {"install", "finder"}, {"install", "nemo", "caja"}, {"nemo"}}) {
        EXPECT_EQ(run(arguments), 2);
        EXPECT_THAT(err, HasSubstr("install|remove|status"));
        EXPECT_EQ(out, "");
    }
}

TEST_F(FileManagerCommandTest, ReportsAFailure) {
    fake::WriteFile(home.thunar(), "<actions>");
    EXPECT_EQ(run({"install", "thunar"}), 1);
    EXPECT_THAT(err, HasSubstr("uca.xml is damaged"));
    EXPECT_EQ(out, "");
}

TEST_F(FileManagerCommandTest, UsesTheDesktopAndTheTemplatesOfTheProgramItself) {
    const fake::Environment data("XDG_DATA_HOME", home.folders.dataHome.string());
    const fake::Environment config("XDG_CONFIG_HOME", home.folders.configHome.string());
    const fake::Environment desktop("XDG_CURRENT_DESKTOP", "MATE");
    home.entries().install(FileManager::caja);
    std::ostringstream outStream;
    std::ostringstream errStream;
    EXPECT_EQ(RunFileManagerCommand({"status"}, outStream, errStream), 0);
    EXPECT_EQ(outStream.str(), "Caja: installed\n");
    // The test program lies in no application folder.
    EXPECT_EQ(RunFileManagerCommand({"install", "nemo"}, outStream, errStream), 1);
    EXPECT_THAT(errStream.str(), HasSubstr("Contents/Resources/file-managers"));
    EXPECT_EQ(RunFileManagerCommand({"remove"}, outStream, errStream), 0);
    EXPECT_TRUE(fake::FilesBelow(home.temporary.path()).empty());
}

// The script beside the templates, within an application folder.
class InstallScriptTest : public testing::Test {
 protected:
    fake::TemporaryFolder folder;
    const std::filesystem::path contents = folder / "An app/Contents";
    const std::filesystem::path script = contents / "Resources/file-managers/install.sh";
    const std::filesystem::path note = folder / "note";

    InstallScriptTest() {
        std::filesystem::create_directories(script.parent_path());
        std::filesystem::copy(std::string(FILE_MANAGER_TEMPLATES) + "/install.sh", script);
    }

    void makeAgent(const std::filesystem::path& agent) const {
        fake::WriteFile(agent, "#!/bin/sh\nprintf '%s|' \"$@\" >'" + note.string() + "'\nexit 3\n");
        std::filesystem::permissions(agent, std::filesystem::perms::owner_all);
    }

    int run(std::vector<std::string> arguments, std::map<std::string, std::string> environment = {}) const {
        arguments.insert(arguments.begin(), script.string());
        environment["PATH"] = "/usr/bin:/bin";
        return fake::ExitCodeOf({folder.path(), arguments, environment, {}});
    }
};

TEST_F(InstallScriptTest, RunsTheAgentOfItsApplicationFolder) {
    makeAgent(contents / "Linux/TessarinUserAgent");
    EXPECT_EQ(run({"status", "two words"}), 3);
    EXPECT_EQ(fake::ReadFile(note), "--file-manager-action|status|two words|");
    EXPECT_EQ(run({}), 3);
    EXPECT_EQ(fake::ReadFile(note), "--file-manager-action|install|");
}

TEST_F(InstallScriptTest, RunsTheAgentThatTheEnvironmentNames) {
    makeAgent(folder / "my agent");
    EXPECT_EQ(run({"remove"}, {{"TESSARIN_AGENT", (folder / "my agent").string()}}), 3);
    EXPECT_EQ(fake::ReadFile(note), "--file-manager-action|remove|");
}

TEST_F(InstallScriptTest, FailsWithoutAnAgent) {
    EXPECT_EQ(run({"install"}), 1);
    EXPECT_FALSE(std::filesystem::exists(note));
}

}  // namespace
}  // namespace useragent
