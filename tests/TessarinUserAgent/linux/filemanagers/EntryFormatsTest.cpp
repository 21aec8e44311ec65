#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <algorithm>

#include "EntriesTest.h"
#include "filemanagers/FileChange.h"

namespace useragent {
namespace {

using std::filesystem::path;
using testing::HasSubstr;

class ThunarEntryTest : public EntriesTest {
 protected:
    const std::string list =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- mine "
        "-->\n<actions>\n<action>\n\t<name>Öffnen</name>\n"
        "\t<unique-id>1-1</unique-id>\n</action>\n</actions>\n";
};

TEST_F(ThunarEntryTest, JoinsTheUsersActions) {
    fake::WriteFile(home.thunar(), list);
    entries.install(FileManager::thunar);
    const std::string with = fake::ReadFile(home.thunar());
    EXPECT_TRUE(with.starts_with(list.substr(0, list.find("</actions>") - 1)));
    EXPECT_THAT(with, HasSubstr("<unique-id>tessarin-properties</unique-id>"));
    entries.remove(FileManager::thunar);
    EXPECT_EQ(fake::ReadFile(home.thunar()), list);
}

TEST_F(ThunarEntryTest, LeavesADamagedListAloneAndSaysSo) {
    fake::WriteFile(home.thunar(), "<actions><action></actions>");
    const auto before = files();
    EXPECT_THAT(ErrorOf([&] { entries.install(FileManager::thunar); }), HasSubstr("uca.xml is damaged"));
    EXPECT_THAT(ErrorOf([&] { entries.remove(FileManager::thunar); }), HasSubstr("uca.xml is damaged"));
    EXPECT_FALSE(entries.isInstalled(FileManager::thunar));
    EXPECT_EQ(files(), before);
}

TEST_F(ThunarEntryTest, KeepsTheSystemsActionsThatTheUsersListHides) {
    const path system = home.folders.configFolders[0] / "Thunar/uca.xml";
    fake::WriteFile(system, list);
    entries.install(FileManager::thunar);
    EXPECT_THAT(fake::ReadFile(home.thunar()), HasSubstr("<unique-id>1-1</unique-id>"));
    EXPECT_EQ(fake::ReadFile(system), list);
    entries.remove(FileManager::thunar);
    EXPECT_FALSE(std::filesystem::exists(home.thunar()));
}

TEST_F(ThunarEntryTest, StartsWithAnEmptyListWhenTheSystemsIsDamaged) {
    fake::WriteFile(home.folders.configFolders[0] / "Thunar/uca.xml", "<actions>");
    entries.install(FileManager::thunar);
    EXPECT_TRUE(entries.isInstalled(FileManager::thunar));
}

TEST_F(ThunarEntryTest, KeepsAListThatTheUserAddedActionsToSince) {
    entries.install(FileManager::thunar);
    std::string text = fake::ReadFile(home.thunar());
    text.insert(text.find("</actions>"), "<action><name>mine</name></action>\n");
    fake::WriteFile(home.thunar(), text);
    entries.remove(FileManager::thunar);
    EXPECT_THAT(fake::ReadFile(home.thunar()), HasSubstr("<name>mine</name>"));
    EXPECT_FALSE(entries.isInstalled(FileManager::thunar));
}

TEST_F(ThunarEntryTest, WritesThroughALinkToTheList) {
    const path real = home.temporary / "dotfiles/uca.xml";
    fake::WriteFile(real, list);
    std::filesystem::create_directories(home.thunar().parent_path());
    std::filesystem::create_symlink(real, home.thunar());
    entries.install(FileManager::thunar);
    EXPECT_TRUE(std::filesystem::is_symlink(home.thunar()));
    EXPECT_THAT(fake::ReadFile(real), HasSubstr("tessarin-properties"));
    entries.remove(FileManager::thunar);
    EXPECT_TRUE(std::filesystem::is_symlink(home.thunar()));
    EXPECT_EQ(fake::ReadFile(real), list);
}

TEST_F(ThunarEntryTest, KeepsThePermissionsOfTheList) {
    fake::WriteFile(home.thunar(), list);
    const auto mode = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;
    std::filesystem::permissions(home.thunar(), mode);
    entries.install(FileManager::thunar);
    EXPECT_EQ(std::filesystem::status(home.thunar()).permissions(), mode);
}

TEST_F(ThunarEntryTest, WritesAStrangePathOfTheScriptAsOneWord) {
    home.folders.dataHome = home.temporary / "a&b's 50%<ü>";
    home.entries().install(FileManager::thunar);
    EXPECT_THAT(fake::ReadFile(home.thunar()),
                HasSubstr("a&amp;b'\\''s 50%%&lt;ü&gt;/tessarin/tessarin-properties' %F</command>"));
}

TEST_F(EntriesTest, WritesAStrangePathOfTheScriptForEachFormat) {
    home.folders.dataHome = home.temporary / "a \"$b\\'`c";
    home.folders.configHome = home.folders.dataHome;
    for (const FileManager manager : {FileManager::nautilus, FileManager::nemo, FileManager::dolphin}) {
        home.entries().install(manager);
    }
    EXPECT_THAT(fake::ReadFile(home.nautilus()), HasSubstr(R"(/a "$b\'\''`c/tessarin/tessarin-properties')"));
    EXPECT_THAT(fake::ReadFile(home.nemo()),
                HasSubstr(R"(/a "$b\\'\\''`c/tessarin/tessarin-properties' %U)"));
    EXPECT_THAT(fake::ReadFile(home.dolphin()),
                HasSubstr(R"(/a \\"\\$b\\\\'\\`c/tessarin/tessarin-properties" %F)"));
    home.folders.dataHome = home.temporary / "50%F";
    home.entries().install(FileManager::dolphin);
    EXPECT_THAT(fake::ReadFile(home.dolphin()), HasSubstr("/50%%F/"));
    EXPECT_THAT(ErrorOf([&] { home.entries().install(FileManager::nemo); }), HasSubstr("percent sign"));
}

TEST_F(EntriesTest, DolphinsFileIsAValidDesktopFile) {
    const QString validator = QStandardPaths::findExecutable(QStringLiteral("desktop-file-validate"));
    if (validator.isEmpty()) {
        GTEST_SKIP() << "desktop-file-validate is not installed";
    }
    entries.install(FileManager::dolphin);
    QProcess process;
    process.start(validator, {QString::fromStdString(home.dolphin().string())});
    ASSERT_TRUE(process.waitForFinished(60'000));
    QStringList complaints =
        QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    // A service menu has two keys which the general format knows only for applications.
    for (const char* key : {"\"MimeType\"", "\"Actions\""}) {
        const auto known = std::find_if(complaints.begin(), complaints.end(), [&](const QString& complaint) {
            return complaint.contains(QLatin1String(key)) &&
                   complaint.contains(QLatin1String("only valid for type \"Application\""));
        });
        if (known != complaints.end()) {
            complaints.erase(known);
        }
    }
    EXPECT_TRUE(complaints.isEmpty()) << complaints.join(QLatin1Char('\n')).toStdString();
}

TEST_F(EntriesTest, AFailedChangeLeavesTheOldFile) {
    const path file = home.temporary / "some/new/file";
    FileChange change(file, "text");
    change.apply();
    EXPECT_EQ(fake::ReadFile(file), "text");
    change.undo();
    EXPECT_FALSE(std::filesystem::exists(home.temporary / "some"));

    fake::WriteFile(file, "before");
    FileChange overwrite(file, "after", true);
    overwrite.apply();
    EXPECT_TRUE(fake::IsExecutable(file));
    overwrite.undo();
    EXPECT_EQ(fake::ReadFile(file), "before");
}

}  // namespace
}  // namespace useragent
