#include <gtest/gtest.h>

#include <filesystem>

#include "common/bundle.h"

namespace {

using cmn::BundlePathOf;
using cmn::SharedPathOf;

std::filesystem::path SharedPathFor(const std::filesystem::path& executable) {
    return SharedPathOf(BundlePathOf(executable), executable);
}

TEST(BundlePathTest, IsTheApplicationFolderAroundTheExecutable) {
    EXPECT_EQ(BundlePathOf("/A/B/X.app/Contents/MacOS/X"), "/A/B/X.app");
    EXPECT_EQ(BundlePathOf("/A/B/X.app/Contents/Linux/X"), "/A/B/X.app");
    EXPECT_EQ(BundlePathOf("/X.app/Contents/Linux/Y"), "/X.app");
}

TEST(BundlePathTest, IsTheExecutablesFolderWithoutABundle) {
    EXPECT_EQ(BundlePathOf("/usr/bin/x"), "/usr/bin");
    EXPECT_EQ(BundlePathOf("/A/X.app/x"), "/A/X.app");
    EXPECT_EQ(BundlePathOf("/A/X.app/Contents/x"), "/A/X.app/Contents");
    EXPECT_EQ(BundlePathOf("/A/X/Contents/Linux/x"), "/A/X/Contents/Linux");
    EXPECT_EQ(BundlePathOf("/A/X.app/Other/Linux/x"), "/A/X.app/Other/Linux");
    EXPECT_EQ(BundlePathOf("/A/X.app/Contents/Linux/deeper/x"), "/A/X.app/Contents/Linux/deeper");
    EXPECT_EQ(BundlePathOf("/x"), "/");
    EXPECT_EQ(BundlePathOf(""), "");
}

TEST(SharedPathTest, IsTheFolderThatHoldsTheBundle) {
    EXPECT_EQ(SharedPathFor("/A/B/X.app/Contents/Linux/X"), "/A/B");
    EXPECT_EQ(SharedPathFor("/X.app/Contents/Linux/X"), "/");
}

TEST(SharedPathTest, IsTheFolderOfABareExecutable) {
    EXPECT_EQ(SharedPathFor("/usr/bin/x"), "/usr/bin");
    EXPECT_EQ(SharedPathFor(""), "");
}

}  // namespace
