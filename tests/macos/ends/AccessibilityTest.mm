#import <AppKit/AppKit.h>
#include <gmock/gmock.h>
#include <unistd.h>

#import "RunLoop.h"
#import "accessibility/MacAXElement.h"
#import "accessibility/MacAccessibility.h"
#import "accessibility/MacWindowList.h"
#import "macos_usercommon/MacDispatch.h"

// The accessibility end, asked about a window of this process. Needs a session with a display.
namespace {

using fake::RunUntil;
using useragent::AXError;
using useragent::AXValue;

class AccessibilityTest : public testing::Test {
 protected:
    AccessibilityTest() {
        [NSApplication sharedApplication];
        window = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 300, 200)
                                             styleMask:NSWindowStyleMaskTitled
                                               backing:NSBackingStoreBuffered
                                                 defer:NO];
        window.releasedWhenClosed = NO;
        window.title = @"Of the test";
        [window makeKeyAndOrderFront:nil];
    }
    ~AccessibilityTest() override { [window close]; }

    // Asks on another thread: the main one answers.
    template <typename Action>
    bool runs(Action action) const {
        const auto done = std::make_shared<std::atomic<bool>>(false);
        dispatch->async(cmn::QueuePriority::normal, [action, done] {
            action();
            *done = true;
        });
        return RunUntil([done] { return done->load(); });
    }

    const std::shared_ptr<cmn::MacDispatch> dispatch = std::make_shared<cmn::MacDispatch>();
    const std::shared_ptr<useragent::MacAccessibility> accessibility =
        std::make_shared<useragent::MacAccessibility>(dispatch);
    NSWindow* window;
};

TEST_F(AccessibilityTest, TheOwnWindowIsInTheListWithItsProcess) {
    EXPECT_TRUE(RunUntil([&] {
        const auto windows = useragent::MacWindowList().copyOnScreenWindows();
        return windows && std::any_of(windows->begin(), windows->end(),
                                      [](const auto& one) { return one.ownerPid == getpid(); });
    }));
}

TEST_F(AccessibilityTest, AnElementKnowsItsProcess) {
    const auto application = accessibility->createApplication(getpid());
    ASSERT_NE(application, nullptr);
    std::int32_t pid = 0;
    EXPECT_EQ(accessibility->getPid(application, pid), AXError::success);
    EXPECT_EQ(pid, getpid());
}

TEST_F(AccessibilityTest, AttributesAreTextsAndElements) {
    if (!accessibility->isProcessTrusted()) {
        GTEST_SKIP() << "this program may not use accessibility";
    }
    const auto application = accessibility->createApplication(getpid());
    const auto role = std::make_shared<AXValue>();
    const auto children = std::make_shared<AXValue>();
    const auto unknown = std::make_shared<std::atomic<AXError>>(AXError::success);
    ASSERT_TRUE(runs([=, accessibility = accessibility] {
        accessibility->copyAttributeValue(application, useragent::kRoleAttribute, *role);
        accessibility->copyAttributeValue(application, useragent::kChildrenAttribute, *children);
        AXValue none;
        *unknown = accessibility->copyAttributeValue(application, "AXOfTheTest", none);
    }));
    const auto* text = std::get_if<useragent::AXStringRef>(role.get());
    ASSERT_NE(text, nullptr);
    std::array<char, 100> buffer{};
    ASSERT_TRUE((*text)->copyUTF8(buffer.data(), buffer.size()));
    EXPECT_STREQ(buffer.data(), "AXApplication");
    const auto* elements = std::get_if<std::vector<AXValue>>(children.get());
    ASSERT_NE(elements, nullptr);
    EXPECT_GT(elements->size(), 0U);
    EXPECT_NE(unknown->load(), AXError::success);
}

TEST(AXValueTest, OtherTypesAreOfNoInterest) {
    EXPECT_TRUE(std::holds_alternative<std::monostate>(
        useragent::ToAXValue(cmn::CFAutoPointer::Retained(kCFBooleanTrue))));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(useragent::ToAXValue(cmn::CFAutoPointer())));
    EXPECT_TRUE(std::holds_alternative<useragent::AXStringRef>(
        useragent::ToAXValue(cmn::CFAutoPointer::Retained(CFSTR("text")))));
}

}  // namespace
