#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Nothing here may reach the session of whoever runs the tests.
    qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    QApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
