#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLabel>
#include <QPointer>
#include <QPushButton>

#include "UserHome.h"
#include "filemanagers/FileManagerWindow.h"
#include "filemanagers/LinuxFileManagerExtension.h"
#include "support/WaitFor.h"

namespace useragent {
namespace {

class FileManagerWindowTest : public testing::Test {
 protected:
    fake::UserHome home;
    std::unique_ptr<LinuxFileManagerExtension> extension;

    void show(const std::string& desktop = {}) {
        home.currentDesktop = desktop.empty() ? home.currentDesktop : desktop;
        extension = std::make_unique<LinuxFileManagerExtension>(home.templates, home.session());
        extension->showExtensionManagementInterface();
        ASSERT_EQ(windows().size(), 1);
    }

    static QList<QWidget*> windows() {
        QList<QWidget*> shown;
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (window->objectName() == QLatin1String("fileManagerWindow")) {
                shown.append(window);
            }
        }
        return shown;
    }

    template <typename Widget>
    static Widget* find(const char* name) {
        Widget* widget = windows().value(0)->findChild<Widget*>(QLatin1String(name));
        EXPECT_NE(widget, nullptr) << name;
        return widget;
    }
    static std::string text(const char* name) { return find<QLabel>(name)->text().toStdString(); }
    static std::string button() { return find<QPushButton>("installButton")->text().toStdString(); }
    static void click(const char* name) { find<QPushButton>(name)->click(); }

    static void press(Qt::Key key) {
        QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier);
        QApplication::sendEvent(windows().value(0), &event);
    }
};

TEST_F(FileManagerWindowTest, InstallsAndRemovesForTheFileManagerOfTheDesktop) {
    show("X-Cinnamon");
    EXPECT_FALSE(extension->isExtensionEnabled());
    EXPECT_EQ(text("desktopLabel"), "The file manager of this desktop is Nemo.");
    EXPECT_EQ(find<QComboBox>("fileManagerBox")->currentText(), QStringLiteral("Nemo"));
    EXPECT_EQ(text("statusLabel"), "The entry is not installed.");
    EXPECT_EQ(button(), "&Install");

    click("installButton");
    EXPECT_TRUE(extension->isExtensionEnabled());
    EXPECT_TRUE(std::filesystem::exists(home.nemo()));
    EXPECT_EQ(text("statusLabel"), "The entry is installed.");
    EXPECT_NE(text("placeLabel"), "");
    EXPECT_EQ(button(), "&Remove");
    EXPECT_FALSE(find<QLabel>("messageLabel")->isVisible());

    click("installButton");
    EXPECT_FALSE(extension->isExtensionEnabled());
    EXPECT_EQ(button(), "&Install");
    EXPECT_TRUE(fake::FilesBelow(home.temporary.path()).empty());
}

TEST_F(FileManagerWindowTest, GrowsWithItsTexts) {
    show("XFCE");
    click("installButton");
    QApplication::processEvents();
    for (const QLabel* label : windows().value(0)->findChildren<QLabel*>()) {
        if (label->isVisible() && label->wordWrap()) {
            EXPECT_GE(label->height(), label->heightForWidth(label->width())) << label->text().toStdString();
        }
    }
}

TEST_F(FileManagerWindowTest, OffersTheOtherFileManagersToo) {
    home.currentDesktop = "XFCE";
    home.programs = {"dolphin"};
    show();
    auto* box = find<QComboBox>("fileManagerBox");
    QStringList offered;
    for (int row = 0; row < box->count(); ++row) {
        offered.append(box->itemText(row));
    }
    EXPECT_EQ(offered.join(QLatin1Char('|')).toStdString(),
              "Thunar|Dolphin|Nautilus (not found here)|Nemo (not found here)|Caja (not found here)");
    box->setCurrentIndex(1);
    click("installButton");
    EXPECT_TRUE(std::filesystem::exists(home.dolphin()));
    EXPECT_EQ(button(), "&Remove");
    box->setCurrentIndex(0);
    EXPECT_EQ(button(), "&Install");
    EXPECT_FALSE(extension->isExtensionEnabled()) << "that is another file manager's";
}

TEST_F(FileManagerWindowTest, SaysThatTheFileManagerIsNotKnown) {
    show();
    EXPECT_EQ(text("desktopLabel"), "The file manager of this desktop is not known.");
    EXPECT_FALSE(extension->isExtensionEnabled());
}

TEST_F(FileManagerWindowTest, ShowsAFailureAsPlainText) {
    home.currentDesktop = "XFCE";
    home.folders.configHome = home.temporary / "<b>bold<b> &amp; more";
    fake::WriteFile(home.thunar(), "<actions>");
    show();
    click("installButton");
    auto* message = find<QLabel>("messageLabel");
    EXPECT_TRUE(message->isVisible());
    EXPECT_EQ(message->textFormat(), Qt::PlainText);
    EXPECT_THAT(message->text().toStdString(),
                testing::HasSubstr("<b>bold<b> &amp; more/Thunar/uca.xml is damaged"));
    EXPECT_EQ(button(), "&Install");
    EXPECT_NE(message->focusPolicy() & Qt::TabFocus, 0) << "a screen reader's user has to get there";

    find<QComboBox>("fileManagerBox")->setCurrentIndex(1);
    EXPECT_FALSE(message->isVisible()) << "it was about another file manager";
}

TEST_F(FileManagerWindowTest, TakesNoTextForMarkup) {
    show("GNOME");
    const QList<QLabel*> labels = windows().value(0)->findChildren<QLabel*>();
    EXPECT_GE(labels.size(), 6);
    for (const QLabel* label : labels) {
        EXPECT_EQ(label->textFormat(), Qt::PlainText) << label->objectName().toStdString();
    }
}

TEST_F(FileManagerWindowTest, IsOneWindowHoweverOftenItIsAskedFor) {
    show();
    const QPointer<QWidget> first = windows().value(0);
    first->setWindowState(Qt::WindowMinimized);
    extension->showExtensionManagementInterface();
    EXPECT_EQ(windows().size(), 1);
    EXPECT_EQ(windows().value(0), first);
    EXPECT_FALSE(first->isMinimized());
    EXPECT_TRUE(first->isVisible());
    EXPECT_FALSE(first->isModal());
    EXPECT_FALSE(first->testAttribute(Qt::WA_QuitOnClose)) << "the agent goes on without it";
}

TEST_F(FileManagerWindowTest, ClosesWithEscapeAndWithItsButtonAndComesAgain) {
    show();
    press(Qt::Key_Escape);
    EXPECT_TRUE(fake::WaitFor([] { return windows().isEmpty(); }));
    extension->showExtensionManagementInterface();
    ASSERT_EQ(windows().size(), 1);
    click("closeButton");
    EXPECT_TRUE(fake::WaitFor([] { return windows().isEmpty(); }));
    extension->showExtensionManagementInterface();
    EXPECT_EQ(windows().size(), 1);
}

TEST_F(FileManagerWindowTest, GoesWithTheExtension) {
    show();
    extension.reset();
    EXPECT_TRUE(windows().isEmpty());
}

TEST_F(FileManagerWindowTest, CanBeUsedWithTheKeyboardAlone) {
    show("KDE");
    auto* box = find<QComboBox>("fileManagerBox");
    auto* install = find<QPushButton>("installButton");
    auto* close = find<QPushButton>("closeButton");
    EXPECT_EQ(find<QLabel>("fileManagerBoxLabel")->buddy(), box);
    EXPECT_TRUE(install->isDefault() || install->autoDefault());
    EXPECT_FALSE(close->autoDefault()) << "Enter shall not close the window by chance";
    EXPECT_EQ(box->nextInFocusChain(), install);
    EXPECT_EQ(install->nextInFocusChain(), close);
    EXPECT_EQ(windows().value(0)->focusWidget(), install);
    EXPECT_THAT(install->accessibleDescription().toStdString(), testing::HasSubstr("Dolphin"));
    EXPECT_FALSE(windows().value(0)->windowTitle().isEmpty());
}

TEST_F(FileManagerWindowTest, NoticesWhatWasInstalledMeanwhile) {
    show("MATE");
    EXPECT_EQ(button(), "&Install");
    home.entries().install(FileManager::caja);
    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(fake::WaitFor([&] { return other.isActiveWindow(); }));
    windows().value(0)->activateWindow();
    EXPECT_TRUE(fake::WaitFor([] { return button() == "&Remove"; }));
}

}  // namespace
}  // namespace useragent
