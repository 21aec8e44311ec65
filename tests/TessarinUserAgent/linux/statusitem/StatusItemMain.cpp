#include <gtest/gtest.h>

#include <QApplication>

#include "StatusItemFixture.h"

// On an X server and a session bus of its own: without a window system the toolkit has no status items.
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests)) {
        return RUN_ALL_TESTS();
    }
    const statusitem::Session session;
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("StatusItemTest"));
    QApplication::setQuitOnLastWindowClosed(false);
    return RUN_ALL_TESTS();
}
