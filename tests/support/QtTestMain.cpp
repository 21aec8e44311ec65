#include <gtest/gtest.h>

#include <QCoreApplication>

// For test programs whose subject needs a Qt application.
int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
