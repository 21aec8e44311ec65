#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QCoreApplication>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QPlainTextEdit>
#include <QShortcut>
#include <QStandardItemModel>
#include <QTableView>

#include "interface/FilterTableModel.h"
#include "interface/PathField.h"
#include "interface/PropertiesForm.h"
#include "interface/QtApplicationInterface.h"
#include "support/LogCapture.h"

namespace {

using useragent::FileFiltersViewController;
using useragent::FilterRecord;
using useragent::FilterTableModel;
using useragent::PathField;
using useragent::PropertiesForm;

const useragent::WallTime kNow{std::chrono::seconds(1'795'219'200)};

FilterRecord Record(const std::string& name, bool sensitive, const char* cost = "0.5",
                    const char* matches = "3") {
    return FilterRecord(cmn::ScanRecord{{"Name", name},
                                        {"SensitiveType", sensitive ? "1" : "0"},
                                        {"costUsd", cost},
                                        {"MatchCount", matches},
                                        {"AmazonID", "<i>id</i>"}});
}

class PropertiesFormTest : public testing::Test {
 protected:
    PropertiesForm& open(useragent::FilterRecords records, const std::string& path = "/home/u/<b>a</b>.txt") {
        auto controller = std::make_unique<FileFiltersViewController>(FileFiltersViewController::Environment{
            [] { return cmn::proto::TSettings(); }, [] { return kNow; }});
        controller->setFiltersArray(std::move(records));
        controller->setFileName(path);
        form = std::make_unique<PropertiesForm>([this] { ++closed; });
        form->load(std::move(controller));
        return *form;
    }
    template <typename Widget>
    Widget& find(const char* name) {
        auto* const widget = form->findChild<Widget*>(name);
        if (widget == nullptr) {
            throw std::runtime_error(std::string("no widget ") + name);
        }
        return *widget;
    }
    QString label(const char* name) { return find<QLabel>(name).text(); }
    // A cell by the identifier of its column.
    QModelIndex cell(int row, const char* identifier) {
        const QAbstractItemModel& model = *find<QTableView>("tableView").model();
        for (int column = 0; column < model.columnCount(); ++column) {
            if (model.headerData(column, Qt::Horizontal, FilterTableModel::kIdentifierRole) == identifier) {
                return model.index(row, column);
            }
        }
        return {};
    }

    std::unique_ptr<PropertiesForm> form;
    int closed = 0;
};

TEST_F(PropertiesFormTest, IsATitledWindowThatCanBeResizedAndClosedButNotMinimised) {
    open({});
    EXPECT_EQ(form->windowTitle(), "Tessarin Properties");
    EXPECT_EQ(form->size(), QSize(400, 300));
    EXPECT_TRUE(form->isWindow());
    EXPECT_FALSE(form->windowFlags() & Qt::WindowMinimizeButtonHint);
    EXPECT_TRUE(form->windowFlags() & Qt::WindowCloseButtonHint);
    EXPECT_TRUE(form->windowFlags() & Qt::WindowStaysOnTopHint);
    EXPECT_FALSE(form->isModal());
    EXPECT_GT(form->maximumSize().width(), 10'000);
    EXPECT_LE(form->minimumSizeHint().width(), 400);
    EXPECT_LE(form->minimumSizeHint().height(), 300);
}

TEST_F(PropertiesFormTest, ComesBackWhenItIsMinimisedAllTheSame) {
    open({});
    form->show();
    form->showMinimized();
    QCoreApplication::processEvents();
    EXPECT_FALSE(form->isMinimized());
    EXPECT_TRUE(form->isVisible());
}

TEST_F(PropertiesFormTest, ShowsWhatTheControllerSays) {
    open({Record("Cards", true), Record("Dates", false)});
    EXPECT_EQ(find<PathField>("totalRiskLabel").text(), "$3.00");
    EXPECT_EQ(find<PathField>("totalSensetiveRiskLabel").text(), "$1.50");
    EXPECT_EQ(label("fileStateLabel"), "Scanned: Pending server sync");
    EXPECT_EQ(label("encryptionStatusLabel"), "Status: Not Encrypted");
    EXPECT_EQ(label("encryptionPredictLabel"), "The file should not be encrypted");
    EXPECT_EQ(find<QPlainTextEdit>("encryptionInfo").toPlainText(), "");
}

TEST_F(PropertiesFormTest, TheTableHasARowForEachClassifierWithReadableHeaders) {
    open({Record("Cards", true), Record("<b>Dates</b>", false)});
    const QAbstractItemModel& model = *find<QTableView>("tableView").model();
    EXPECT_EQ(model.rowCount(), 2);
    EXPECT_EQ(model.columnCount(), 4);
    EXPECT_EQ(cell(1, "Name").data(), "<b>Dates</b>");
    EXPECT_EQ(cell(0, "Count").data(), "3");
    EXPECT_EQ(cell(0, "costUsd").data(), "1.50");
    EXPECT_EQ(model.headerData(cell(0, "costUsd").column(), Qt::Horizontal), "Risk (USD)");
    EXPECT_EQ(model.headerData(cell(0, "SensitiveType").column(), Qt::Horizontal), "Sensitive");
}

TEST_F(PropertiesFormTest, TheTableHasNothingBesideItsCells) {
    open({Record("Cards", true)});
    const QAbstractItemModel& model = *find<QTableView>("tableView").model();
    const QStandardItemModel larger(2, 5);
    for (const QModelIndex& other : {QModelIndex(), larger.index(1, 0), larger.index(0, 4)}) {
        EXPECT_FALSE(model.data(other).isValid());
    }
    EXPECT_EQ(model.flags({}), Qt::NoItemFlags);
    EXPECT_EQ(model.rowCount(model.index(0, 0)), 0);
    EXPECT_EQ(model.columnCount(model.index(0, 0)), 0);
    for (const int section : {-1, 4}) {
        EXPECT_FALSE(model.headerData(section, Qt::Horizontal).isValid());
    }
    EXPECT_FALSE(model.headerData(0, Qt::Vertical).isValid());
}

TEST_F(PropertiesFormTest, TheCheckBoxShowsTheTypeAndCannotBeSwitched) {
    open({Record("Cards", true), Record("Dates", false)});
    for (int row = 0; row < 2; ++row) {
        const QModelIndex box = cell(row, "SensitiveType");
        EXPECT_EQ(box.data(Qt::CheckStateRole), row == 0 ? Qt::Checked : Qt::Unchecked);
        EXPECT_FALSE(box.flags() & Qt::ItemIsEnabled);
        EXPECT_FALSE(box.data(Qt::DisplayRole).isValid());
        EXPECT_EQ(box.data(Qt::AccessibleTextRole), row == 0 ? "sensitive" : "not sensitive");
    }
}

TEST_F(PropertiesFormTest, NoTextIsTakenForMarkup) {
    open({Record("Cards", true)});
    EXPECT_EQ(find<PathField>("fileNameLabel").text(), "/home/u/<b>a</b>.txt");
    EXPECT_EQ(find<PathField>("serverIDLabel").text(), "<i>id</i>");
    EXPECT_TRUE(find<PathField>("fileNameLabel").toolTip().contains("&lt;b&gt;"));
    for (const QLabel* each : form->findChildren<QLabel*>()) {
        if (each->objectName().endsWith("Label")) {
            EXPECT_EQ(each->textFormat(), Qt::PlainText) << each->objectName().toStdString();
        }
    }
}

TEST_F(PropertiesFormTest, ALongPathLosesItsMiddleUntilItIsFocusedAndItsTooltipIsWhole) {
    const std::string path = "/home/u/" + std::string(300, 'x') + "/report.txt";
    open({}, path);
    form->show();
    auto& field = find<PathField>("fileNameLabel");
    const QString elided = field.elidedText();
    EXPECT_LT(elided.size(), 100);
    EXPECT_TRUE(elided.startsWith("/home"));
    EXPECT_TRUE(elided.endsWith(".txt"));
    EXPECT_EQ(field.text().toStdString(), path);
    EXPECT_TRUE(field.toolTip().contains(QString::fromStdString(path)));
    EXPECT_TRUE(field.isReadOnly());
    field.selectAll();
    EXPECT_EQ(field.selectedText().toStdString(), path);
}

TEST_F(PropertiesFormTest, AShortPathIsShownWhole) {
    open({}, "/a.txt");
    form->show();
    EXPECT_EQ(find<PathField>("fileNameLabel").elidedText(), "/a.txt");
}

TEST_F(PropertiesFormTest, EscapeClosesTheWindowAndTellsOnce) {
    open({});
    form->show();
    auto* const escape = form->findChild<QShortcut*>();
    ASSERT_NE(escape, nullptr);
    EXPECT_EQ(escape->key(), QKeySequence(Qt::Key_Escape));
    emit escape->activated();
    EXPECT_FALSE(form->isVisible());
    EXPECT_EQ(closed, 1);
    form->close();
    EXPECT_EQ(closed, 1);
}

TEST_F(PropertiesFormTest, EveryValueIsReachedByTabAndNamedForAScreenReader) {
    open({Record("Cards", true)});
    for (const char* name :
         {"fileNameLabel", "fileStateLabel", "serverIDLabel", "totalRiskLabel", "totalSensetiveRiskLabel",
          "tableView", "encryptionStatusLabel", "encryptionPredictLabel", "encryptionInfo"}) {
        auto& widget = find<QWidget>(name);
        EXPECT_TRUE(widget.focusPolicy() & Qt::TabFocus) << name;
        QAccessibleInterface* const accessible = QAccessible::queryAccessibleInterface(&widget);
        ASSERT_NE(accessible, nullptr) << name;
        EXPECT_FALSE(accessible->text(QAccessible::Name).isEmpty()) << name;
    }
    EXPECT_FALSE(find<QTableView>("tableView").tabKeyNavigation());
    EXPECT_FALSE(find<QPlainTextEdit>("encryptionInfo").isUndoRedoEnabled() &&
                 !find<QPlainTextEdit>("encryptionInfo").isReadOnly());
}

TEST_F(PropertiesFormTest, ManyRecordsAreRowsOfOneHeight) {
    useragent::FilterRecords records;
    for (int i = 0; i < 10'000; ++i) {
        records.push_back(Record("Classifier " + std::to_string(i), i % 2 == 0));
    }
    open(std::move(records));
    form->show();
    auto& table = find<QTableView>("tableView");
    EXPECT_EQ(table.model()->rowCount(), 10'000);
    EXPECT_EQ(table.verticalHeader()->sectionResizeMode(0), QHeaderView::Fixed);
    table.scrollToBottom();
    QCoreApplication::processEvents();
    EXPECT_EQ(cell(9'999, "Name").data(), "Classifier 9999");
    EXPECT_GE(table.rowAt(table.viewport()->height() - 1), 9'998);
}

TEST(QtApplicationInterfaceTest, AWindowGoesWithItsHandleEvenWhileItCloses) {
    useragent::QtApplicationInterface interface({}, true);
    std::unique_ptr<useragent::PropertiesWindow> window;
    window = interface.createPropertiesWindow([&window] { window.reset(); });
    ASSERT_NE(window, nullptr);
    for (const QWidget* const made : QApplication::topLevelWidgets()) {
        EXPECT_FALSE(made->isVisible());
    }
    window->show(std::make_unique<FileFiltersViewController>(FileFiltersViewController::Environment{
                     [] { return cmn::proto::TSettings(); }, [] { return kNow; }}),
                 {});
    const auto shown = QApplication::topLevelWidgets();
    ASSERT_EQ(shown.size(), 1);
    shown.first()->close();
    EXPECT_EQ(window, nullptr);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(QApplication::topLevelWidgets().isEmpty());
}

TEST(QtApplicationInterfaceTest, MakesNoWindowThatNobodyWouldSee) {
    fake::LogCapture log;
    useragent::QtApplicationInterface interface({}, false);
    EXPECT_EQ(interface.createPropertiesWindow([] {}), nullptr);
    EXPECT_EQ(log.count("A properties window cannot be made: the agent has no display"), 1U);
    EXPECT_TRUE(QApplication::topLevelWidgets().isEmpty());
}

TEST(QtApplicationInterfaceTest, ATimerTicksAgainAndAgain) {
    useragent::QtApplicationInterface interface({}, true);
    int ticks = 0;
    interface.scheduleRepeatingTimer(std::chrono::seconds(0), [&ticks] { ++ticks; });
    while (ticks < 3) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

}  // namespace
