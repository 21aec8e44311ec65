#include <gtest/gtest.h>

#include <QColor>
#include <QImage>
#include <QPainter>
#include <cstdlib>

#include "statusitem/StatusIcons.h"

using useragent::StatusImage;

namespace {

// As it looks to somebody who sees no colours.
QImage InGrey(const QIcon& icon, int size, const QColor& background) {
    QImage image(size, size, QImage::Format_RGB32);
    image.fill(background);
    QPainter painter(&image);
    painter.drawPixmap(0, 0, icon.pixmap(size, size));
    painter.end();
    return image.convertToFormat(QImage::Format_Grayscale8);
}

// The part of the pixels that differ clearly, 0 to 1.
double Difference(const QImage& one, const QImage& other) {
    int different = 0;
    for (int y = 0; y < one.height(); ++y) {
        for (int x = 0; x < one.width(); ++x) {
            different += std::abs(qGray(one.pixel(x, y)) - qGray(other.pixel(x, y))) > 60 ? 1 : 0;
        }
    }
    return static_cast<double>(different) / (one.width() * one.height());
}

QImage Plain(int size, const QColor& background) {
    return InGrey(QIcon(), size, background);
}

const QColor kLightPanel(0xf0, 0xf0, 0xf0);
const QColor kDarkPanel(0x2b, 0x2b, 0x2b);

}  // namespace

TEST(StatusIconsTest, HaveAPixmapOfEverySizeThatPanelsAskFor) {
    for (const QIcon& icon :
         {useragent::StatusIcon(StatusImage::menuIcon), useragent::StatusIcon(StatusImage::menuIconRed),
          useragent::ApplicationIcon(), useragent::MenuItemIcon({"", true, useragent::MenuImage::none}),
          useragent::MenuItemIcon({"", false, useragent::MenuImage::accessibility})}) {
        for (const int size : {16, 22, 24, 32, 44, 48, 64, 96, 128}) {
            EXPECT_TRUE(icon.availableSizes().contains(QSize(size, size))) << size;
            EXPECT_GT(Difference(InGrey(icon, size, kLightPanel), Plain(size, kLightPanel)), 0.2) << size;
        }
    }
}

TEST(StatusIconsTest, AreSeenOnLightAndOnDarkPanels) {
    for (const StatusImage image : {StatusImage::menuIcon, StatusImage::menuIconRed}) {
        for (const QColor& panel : {kLightPanel, kDarkPanel}) {
            EXPECT_GT(Difference(InGrey(useragent::StatusIcon(image), 16, panel), Plain(16, panel)), 0.2)
                << static_cast<int>(image) << " on " << panel.name().toStdString();
        }
    }
}

TEST(StatusIconsTest, StatesAreToldApartByShape) {
    for (const int size : {16, 22, 48}) {
        for (const QColor& panel : {kLightPanel, kDarkPanel}) {
            const QImage normal = InGrey(useragent::StatusIcon(StatusImage::menuIcon), size, panel);
            const QImage red = InGrey(useragent::StatusIcon(StatusImage::menuIconRed), size, panel);
            EXPECT_GT(Difference(normal, red), 0.1) << size << " on " << panel.name().toStdString();
        }
    }
}

TEST(StatusIconsTest, AnItemOfTheMenuWithoutAnImageHasAnEmptyOneOfTheSameSizes) {
    const QIcon empty = useragent::MenuItemIcon({"", false, useragent::MenuImage::none});
    const QIcon other = useragent::MenuItemIcon({"", false, useragent::MenuImage::accessibility});
    EXPECT_FALSE(empty.isNull());
    EXPECT_EQ(empty.availableSizes(), other.availableSizes());
    EXPECT_EQ(Difference(InGrey(empty, 32, kLightPanel), Plain(32, kLightPanel)), 0);
}

TEST(StatusIconsTest, RedItemOfTheMenuHasAMarkWhateverItsImage) {
    using useragent::MenuImage;
    EXPECT_FALSE(useragent::MenuItemIcon({"", false, MenuImage::accessibility}).isNull());
    const QImage mark = useragent::MenuItemIcon({"", true, MenuImage::none}).pixmap(16, 16).toImage();
    EXPECT_GT(mark.pixelColor(3, 8).red(), 150);
    EXPECT_LT(mark.pixelColor(3, 8).green(), 60);
    EXPECT_EQ(useragent::MenuItemIcon({"", true, MenuImage::accessibility}).pixmap(16, 16).toImage(), mark);
}
