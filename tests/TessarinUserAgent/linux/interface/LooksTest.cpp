#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QFontDatabase>
#include <QImage>
#include <QPainter>
#include <QStyleFactory>
#include <cmath>
#include <cstdlib>

#include "interface/PropertiesForm.h"
#include "statusitem/StatusIcons.h"

// What the user sees, beside pictures of how it should look. Both are compared as small pictures: smoothing
// of letters and edges may differ, what stands where may not. With TESSARIN_WRITE_REFERENCES set the pictures
// are written instead.
namespace {

using useragent::FileFiltersViewController;
using useragent::FilterRecord;
using useragent::StatusImage;

constexpr double kMeanDifference = 2.5;  // of 255 steps of brightness
constexpr int kLargestDifference = 60;   // of one spot

QImage Small(const QImage& image, int times) {
    return image.convertToFormat(QImage::Format_RGB32)
        .scaled(image.width() / times, image.height() / times, Qt::IgnoreAspectRatio,
                Qt::SmoothTransformation);
}

void ExpectLike(const QImage& shown, const char* name, int times) {
    const QString file = QDir(TESSARIN_REFERENCES).filePath(QString(name) + ".png");
    if (std::getenv("TESSARIN_WRITE_REFERENCES") != nullptr) {
        ASSERT_TRUE(shown.save(file));
        GTEST_SKIP() << "written";
    }
    const QImage reference(file);
    ASSERT_EQ(shown.size(), reference.size()) << name;
    const QImage left = Small(shown, times);
    const QImage right = Small(reference, times);
    double sum = 0;
    int largest = 0;
    for (int y = 0; y < left.height(); ++y) {
        for (int x = 0; x < left.width(); ++x) {
            const QColor a = left.pixelColor(x, y);
            const QColor b = right.pixelColor(x, y);
            for (const int difference : {std::abs(a.red() - b.red()), std::abs(a.green() - b.green()),
                                         std::abs(a.blue() - b.blue())}) {
                sum += difference;
                largest = std::max(largest, difference);
            }
        }
    }
    EXPECT_LT(sum / (3.0 * left.width() * left.height()), kMeanDifference) << name;
    EXPECT_LT(largest, kLargestDifference) << name;
    if (testing::Test::HasFailure()) {
        shown.save(QString(name) + "-shown.png");
    }
}

QImage OnPanel(StatusImage image, const QColor& panel) {
    QImage shown(48, 48, QImage::Format_RGB32);
    shown.fill(panel);
    QPainter painter(&shown);
    useragent::StatusIcon(image).paint(&painter, shown.rect());
    return shown;
}

TEST(LooksTest, TheIconsOfBothStatesOnALightAndADarkPanel) {
    ExpectLike(OnPanel(StatusImage::menuIcon, Qt::white), "icon-light", 2);
    ExpectLike(OnPanel(StatusImage::menuIcon, QColor(40, 40, 40)), "icon-dark", 2);
    ExpectLike(OnPanel(StatusImage::menuIconRed, Qt::white), "icon-red-light", 2);
    ExpectLike(OnPanel(StatusImage::menuIconRed, QColor(40, 40, 40)), "icon-red-dark", 2);
}

FilterRecord Record(const char* name, const char* sensitive, const char* cost, const char* matches) {
    return FilterRecord(cmn::ScanRecord{{"Name", name},
                                        {"SensitiveType", sensitive},
                                        {"costUsd", cost},
                                        {"MatchCount", matches},
                                        {"IsEncrypted", sensitive},
                                        {"AmazonID", "5f1c-22"}});
}

void ExpectWindowLike(const QPalette& palette, const char* name) {
    if (!QFontDatabase::families().contains("DejaVu Sans")) {
        FAIL() << "the font of the pictures is not installed: fonts-dejavu-core";
    }
    QApplication::setStyle(QStyleFactory::create("Fusion"));
    QApplication::setPalette(palette);
    QFont font("DejaVu Sans");
    font.setPixelSize(12);
    QApplication::setFont(font);
    auto controller = std::make_unique<FileFiltersViewController>(FileFiltersViewController::Environment{
        [] { return cmn::proto::TSettings(); },
        [] { return useragent::WallTime(std::chrono::hours(24 * 30)); }});
    controller->setFileName("/home/someone/Documents/customers of the last quarter/customers-and-cards.csv");
    controller->setFiltersArray(
        {Record("E-mail addresses", "0", "0.5", "3"), Record("Payment card numbers", "1", "150", "2")});
    useragent::PropertiesForm form([] {});
    form.load(std::move(controller));
    form.show();
    form.activateWindow();
    QCoreApplication::processEvents();
    ExpectLike(form.grab().toImage(), name, 4);
}

TEST(LooksTest, ThePropertiesWindow) {
    ExpectWindowLike(QPalette(QColor(239, 239, 239)), "properties");
}

TEST(LooksTest, ThePropertiesWindowInADarkTheme) {
    ExpectWindowLike(QPalette(QColor(50, 50, 54)), "properties-dark");
}

}  // namespace
