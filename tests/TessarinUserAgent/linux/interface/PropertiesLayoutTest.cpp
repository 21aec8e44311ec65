#include <gtest/gtest.h>

#include <QApplication>
#include <QFontDatabase>
#include <QHeaderView>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QStyleFactory>
#include <QTableView>
#include <algorithm>
#include <cmath>
#include <memory>

#include "interface/FilterTableModel.h"
#include "interface/PathField.h"
#include "interface/PropertiesForm.h"

// Where things stand in the properties window, and what can be told apart in it.
namespace {

using useragent::FileFiltersViewController;
using useragent::FilterRecord;
using useragent::FilterRecords;
using useragent::FilterTableModel;
using useragent::PathField;

constexpr int kCountColumn = 2;
constexpr int kCostColumn = 3;

const char* const kStops[] = {"fileNameLabel",         "fileStateLabel",          "serverIDLabel",
                              "totalRiskLabel",        "totalSensetiveRiskLabel", "tableView",
                              "encryptionStatusLabel", "encryptionPredictLabel",  "encryptionInfo"};

FilterRecord Record(const std::string& name, const char* cost, const char* matches, bool encrypts = false) {
    return FilterRecord(cmn::ScanRecord{{"Name", name},
                                        {"costUsd", cost},
                                        {"MatchCount", matches},
                                        {"IsEncrypted", encrypts ? "1" : "0"},
                                        {"IsPrimaryForEncryption", encrypts ? "1" : "0"}});
}

// One whose temporary decryption lasts for ever.
FilterRecord Decrypted(const std::string& name) {
    return FilterRecord(cmn::ScanRecord{{"Name", name}, {"ForceEncryptDate", "9000000000000000000"}});
}

QPalette LightTheme() {
    return {QColor(239, 239, 239)};
}
QPalette DarkTheme() {
    return {QColor(50, 50, 54)};
}
// Its selections are hardly told from the background.
QPalette FaintTheme() {
    QPalette palette = DarkTheme();
    palette.setColor(QPalette::Highlight, QColor(30, 30, 90));
    return palette;
}

double Luminance(const QColor& colour) {
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
}

// 1 to 21, as the guidelines for accessible pages define it.
double Contrast(const QColor& one, const QColor& other) {
    const auto [darker, lighter] = std::minmax({Luminance(one), Luminance(other)});
    return (lighter + 0.05) / (darker + 0.05);
}

class PropertiesLayoutTest : public testing::Test {
 protected:
    PropertiesLayoutTest() {
        QApplication::setStyle(QStyleFactory::create("Fusion"));
        QApplication::setPalette(LightTheme());
        QFont font("DejaVu Sans");
        font.setPixelSize(12);
        QApplication::setFont(font);
    }

    void open(FilterRecords records, QSize size = {400, 300}, const std::string& path = "/a.txt") {
        auto controller = std::make_unique<FileFiltersViewController>(FileFiltersViewController::Environment{
            [] { return cmn::proto::TSettings(); },
            [] { return useragent::WallTime(std::chrono::hours(24)); }});
        controller->setFiltersArray(std::move(records));
        controller->setFileName(path);
        form = std::make_unique<useragent::PropertiesForm>([] {});
        form->load(std::move(controller));
        form->resize(size);
        form->show();
        form->activateWindow();
        QCoreApplication::processEvents();
    }
    QTableView& table() { return *form->findChild<QTableView*>("tableView"); }
    QPlainTextEdit& explanation() { return *form->findChild<QPlainTextEdit*>("encryptionInfo"); }
    PathField& field(const char* name) { return *form->findChild<PathField*>(name); }

    // What a cell needs to show all of its text, in pixels: as the style lays it out.
    int needed(int row, int column) {
        QStyleOptionViewItem option;
        option.font = table().font();
        option.fontMetrics = table().fontMetrics();
        return table().itemDelegate()->sizeHint(option, table().model()->index(row, column)).width();
    }
    QRect cell(int row, int column) {
        const QRect place = table().visualRect(table().model()->index(row, column));
        return {table().viewport()->mapTo(form.get(), place.topLeft()), place.size()};
    }
    QImage shown() { return form->grab().toImage(); }

    std::unique_ptr<useragent::PropertiesForm> form;
};

TEST_F(PropertiesLayoutTest, ColumnsOfNumbersAreAsWideAsTheirLongestNumber) {
    open({Record("A", "0.5", "20000000"), Record("B", "150", "3"), Record("C", "100", "30000000")});
    for (const int column : {kCountColumn, kCostColumn}) {
        int longest = 0;
        for (int row = 0; row < 3; ++row) {
            longest = std::max(longest, needed(row, column));
        }
        EXPECT_GE(table().columnWidth(column), longest);
        EXPECT_LE(table().columnWidth(column),
                  std::max(longest, table().horizontalHeader()->sectionSizeHint(column)) + 1);
    }
    EXPECT_FALSE(table().horizontalScrollBar()->isVisible());
}

TEST_F(PropertiesLayoutTest, ANumberBelowThousandsOfOthersCountsAsWell) {
    FilterRecords records(5'000, Record("A", "0.5", "3"));
    records.push_back(Record("B", "100", "30000000"));
    open(std::move(records));
    for (const int column : {kCountColumn, kCostColumn}) {
        EXPECT_GE(table().columnWidth(column), needed(5'000, column));
    }
}

TEST_F(PropertiesLayoutTest, ANumberThatIsWiderThanTheWindowIsScrolledToAndNotCut) {
    FilterRecords records(40, Decrypted("E-mail addresses"));  // the explanation takes what it can get
    records.push_back(Record("B", "1e300", "1"));
    open(std::move(records));
    EXPECT_GE(table().columnWidth(kCostColumn), needed(40, kCostColumn));
    EXPECT_TRUE(table().horizontalScrollBar()->isVisible());
    EXPECT_EQ(table().horizontalScrollMode(), QAbstractItemView::ScrollPerPixel);
    EXPECT_GE(table().columnWidth(FilterTableModel::kNameColumn),
              table().fontMetrics().horizontalAdvance("E-mail"));
    // Beside the scroll bar there is still a row.
    EXPECT_GE(table().viewport()->height(), table().rowHeight(0));
}

TEST_F(PropertiesLayoutTest, TheUserCannotCutANumberEither) {
    open({Record("A", "0.5", "20000000")});
    for (const int column : {kCountColumn, kCostColumn}) {
        EXPECT_EQ(table().horizontalHeader()->sectionResizeMode(column), QHeaderView::ResizeToContents);
    }
}

TEST_F(PropertiesLayoutTest, OfDigitsOfDifferentWidthTheWidestCounts) {
    const QString digits = "0123456789";
    const auto byWidth = [&digits](const QFont& font) {
        return std::minmax_element(
            digits.begin(), digits.end(), [metrics = QFontMetricsF(font)](QChar one, QChar other) {
                return metrics.horizontalAdvance(one) < metrics.horizontalAdvance(other);
            });
    };
    for (const QString& family : QFontDatabase::families()) {
        QFont font(family);
        font.setPixelSize(20);
        const auto [narrowest, widest] = byWidth(font);
        if (QFontMetricsF(font).horizontalAdvance(*narrowest) <
            QFontMetricsF(font).horizontalAdvance(*widest)) {
            QApplication::setFont(font);
            const std::string narrow = QString(8, *narrowest).toStdString();
            const std::string wide = QString(8, *widest).toStdString();
            open({Record("A", "1", narrow.c_str()), Record("B", "1", wide.c_str())});
            EXPECT_GE(table().columnWidth(kCountColumn), needed(1, kCountColumn));
            return;
        }
    }
    GTEST_SKIP() << "all fonts here have digits of one width";
}

TEST_F(PropertiesLayoutTest, ALongNameIsCutAtItsEndAndHasATooltip) {
    const std::string name = "Payment card numbers of <b>all</b> kinds, and " + std::string(100, 'x');
    open({Record(name, "1", "1"), Record("B", "1", "1")});
    EXPECT_LT(table().columnWidth(FilterTableModel::kNameColumn), needed(0, FilterTableModel::kNameColumn));
    EXPECT_FALSE(table().horizontalScrollBar()->isVisible());
    EXPECT_EQ(table().textElideMode(), Qt::ElideRight);
    const QModelIndex index = table().model()->index(0, FilterTableModel::kNameColumn);
    EXPECT_EQ(index.data(Qt::ToolTipRole).toString().toStdString(),
              "<qt>" + QString::fromStdString(name).toHtmlEscaped().toStdString() + "</qt>");
    EXPECT_FALSE(index.siblingAtColumn(kCountColumn).data(Qt::ToolTipRole).isValid());
}

TEST_F(PropertiesLayoutTest, AmountsOfMoneyShrinkLikeThePath) {
    open({Record("A", "1e300", "1")});
    EXPECT_LE(form->minimumSizeHint().width(), 400);
    EXPECT_EQ(form->size(), QSize(400, 300));
    const PathField& total = field("totalRiskLabel");
    EXPECT_GT(total.text().size(), 300);
    EXPECT_LT(total.elidedText().size(), 30);
    EXPECT_TRUE(total.elidedText().contains(QChar(0x2026)));
    EXPECT_TRUE(total.toolTip().contains(total.text()));
    EXPECT_EQ(field("totalSensetiveRiskLabel").elidedText(), "$0.00");
}

TEST_F(PropertiesLayoutTest, TheExplanationHasTheHeightThatItsTextNeedsAndTheTableTheRest) {
    open({Record("Payment card numbers", "1", "1", true)});
    const int spacing = explanation().fontMetrics().lineSpacing();
    for (int width = 400; width <= 900; width += 4) {
        form->resize(form->minimumSizeHint());  // here it scrolls
        QCoreApplication::processEvents();
        EXPECT_GT(explanation().verticalScrollBar()->maximum(), 0);
        form->resize(width, 300);
        QCoreApplication::processEvents();
        EXPECT_EQ(explanation().verticalScrollBar()->maximum(), 0) << width;
        const int lines = explanation().document()->lineCount();
        EXPECT_GE(lines, 2);
        EXPECT_GE(explanation().viewport()->height(), lines * spacing + 8) << width;
        EXPECT_LE(explanation().viewport()->height(), lines * spacing + 16) << width;
    }
    const int before = explanation().height();
    const int tableBefore = table().height();
    form->resize(form->width(), 700);
    QCoreApplication::processEvents();
    EXPECT_EQ(explanation().height(), before);
    EXPECT_EQ(table().height(), tableBefore + 400);
}

TEST_F(PropertiesLayoutTest, WithoutAnExplanationTheTableHasTheRoom) {
    open({});
    EXPECT_LT(explanation().height(), 2 * explanation().fontMetrics().lineSpacing() + 10);
    EXPECT_EQ(explanation().verticalScrollBar()->maximum(), 0);
    EXPECT_GT(table().height(), 100);
}

TEST_F(PropertiesLayoutTest, AnExplanationThatDoesNotFitScrollsAndLeavesTheTableARow) {
    open(FilterRecords(40, Decrypted("A")));
    EXPECT_EQ(form->size(), QSize(400, 300));
    EXPECT_LE(form->minimumSizeHint().height(), 300);
    EXPECT_TRUE(explanation().verticalScrollBar()->isVisible());
    EXPECT_GE(table().viewport()->height(), table().rowHeight(0));
    form->resize(400, 1200);
    QCoreApplication::processEvents();
    EXPECT_EQ(explanation().verticalScrollBar()->maximum(), 0);
}

TEST_F(PropertiesLayoutTest, AnExplanationThatIsTooLongToMeasureScrolls) {
    open({Record(std::string(30'000, 'x'), "1", "1", true)});
    const QScrollBar& bar = *explanation().verticalScrollBar();
    for (int height = 300; height <= 2'000; height += 400) {
        form->resize(2'000, height);
        QCoreApplication::processEvents();
        EXPECT_EQ(bar.isVisible(), bar.maximum() > 0) << height;
        EXPECT_GE(table().viewport()->height(), table().rowHeight(0)) << height;
    }
}

// How clearly two looks of the same place differ: the largest contrast that holds for at least `pixels`
// pixels.
double ClearestDifference(const QImage& one, const QImage& other, const QRect& place, int pixels) {
    std::vector<double> contrasts;
    for (int y = place.top(); y <= place.bottom(); ++y) {
        for (int x = place.left(); x <= place.right(); ++x) {
            contrasts.push_back(Contrast(one.pixelColor(x, y), other.pixelColor(x, y)));
        }
    }
    std::sort(contrasts.rbegin(), contrasts.rend());
    return contrasts.at(static_cast<std::size_t>(pixels));
}

TEST_F(PropertiesLayoutTest, TheFocusIsSeenOnEveryStop) {
    for (const QPalette& theme : {LightTheme(), DarkTheme(), FaintTheme()}) {
        QApplication::setPalette(theme);
        open({Record("A", "1", "1", true)});
        for (const char* stop : kStops) {
            auto* const widget = form->findChild<QWidget*>(stop);
            auto* const other = form->findChild<QWidget*>(stop == kStops[0] ? kStops[8] : kStops[0]);
            other->setFocus(Qt::TabFocusReason);
            QCoreApplication::processEvents();
            const QImage without = shown();
            widget->setFocus(Qt::TabFocusReason);
            QCoreApplication::processEvents();
            ASSERT_EQ(QApplication::focusWidget(), widget) << stop;
            const QRect around(widget->mapTo(form.get(), QPoint(-2, -2)), widget->size() + QSize(4, 4));
            // As many pixels as the two long sides of a line around it have; three to one is what can be
            // seen.
            EXPECT_GE(ClearestDifference(without, shown(), around & form->rect(), 2 * widget->width()), 3.0)
                << stop << " on " << theme.color(QPalette::Window).name().toStdString();
        }
    }
}

TEST_F(PropertiesLayoutTest, TheFocusIsNotShownInAWindowThatHasNone) {
    open({});
    const QImage focused = shown();
    form->clearFocus();
    form->focusWidget()->clearFocus();
    QCoreApplication::processEvents();
    const QRect around(table().mapTo(form.get(), QPoint(-2, -2)), table().size() + QSize(4, 4));
    EXPECT_GE(ClearestDifference(focused, shown(), around, 2 * table().width()), 3.0);
}

TEST_F(PropertiesLayoutTest, ACheckBoxIsSeenInEveryThemeAndItsTwoStatesAreToldApart) {
    for (const QPalette& theme : {LightTheme(), DarkTheme()}) {
        QApplication::setPalette(theme);
        FilterRecord sensitive(cmn::ScanRecord{{"Name", "A"}, {"SensitiveType", "1"}});
        // Three rows: the first and the last have the same background.
        open({Record("B", "1", "1"), Record("C", "1", "1"), sensitive}, {400, 400});
        const QImage image = shown();
        const auto contrasting = [&](int row) {
            const QRect place = cell(row, FilterTableModel::kCheckBoxColumn).adjusted(1, 1, -2, -2);
            const QColor background = image.pixelColor(place.bottomRight());
            int pixels = 0;
            for (int y = place.top(); y <= place.bottom(); ++y) {
                for (int x = place.left(); x <= place.right(); ++x) {
                    pixels += Contrast(image.pixelColor(x, y), background) >= 3.0 ? 1 : 0;
                }
            }
            return pixels;
        };
        EXPECT_GE(contrasting(0), 30) << "not the four sides of a box";
        EXPECT_GE(contrasting(2), contrasting(0) + 8) << "no tick";
    }
}

TEST_F(PropertiesLayoutTest, AControlCharacterInANameIsShownAsABlank) {
    open({Record("A\nB\tC", "1", "1", true)}, {400, 300}, "/home/u/a\nb.txt");
    const QModelIndex name = table().model()->index(0, FilterTableModel::kNameColumn);
    EXPECT_EQ(name.data(), "A B C");
    EXPECT_EQ(name.data(Qt::ToolTipRole), "<qt>A B C</qt>");
    EXPECT_EQ(name.data(Qt::AccessibleTextRole), "A B C");
    EXPECT_EQ(field("fileNameLabel").text(), "/home/u/a b.txt");
    EXPECT_TRUE(explanation().toPlainText().startsWith("The file is flagged by A B C, which"));
}

}  // namespace
