#include <gtest/gtest.h>

#include <QApplication>

#include "StatusItemFixture.h"

// The address sanitizer's strict check of strings takes the keyboard library's copying of the first part of a
// longer text for an overflow.
extern "C" const char* __asan_default_suppressions();   // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __asan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
    return "interceptor_via_lib:libxkbcommon-x11.so";
}

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
