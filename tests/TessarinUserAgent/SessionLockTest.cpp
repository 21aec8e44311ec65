#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "SessionLock.h"
#include "support/LogCapture.h"

namespace {

using useragent::SessionLock;

TEST(SessionLockTest, IsHeldByOneAtATime) {
    const fake::TemporaryFolder folder;
    const auto file = folder / "agent.lock";
    std::optional<SessionLock> first(std::in_place, file);
    EXPECT_TRUE(first->isHeld());
    {
        const SessionLock second(file);
        EXPECT_FALSE(second.isHeld());
    }
    EXPECT_FALSE(SessionLock(file).isHeld()) << "one that was refused took the lock with it";
    first.reset();
    EXPECT_TRUE(SessionLock(file).isHeld());
}

TEST(SessionLockTest, OfAnotherUserIsAnotherOne) {
    const fake::TemporaryFolder folder;
    const SessionLock one(folder / "one.lock");
    EXPECT_TRUE(SessionLock(folder / "other.lock").isHeld());
}

TEST(SessionLockTest, ThatCannotBeMadeKeepsNoAgentFromRunning) {
    const fake::TemporaryFolder folder;
    EXPECT_TRUE(SessionLock(folder / "missing" / "agent.lock").isHeld());
    std::filesystem::create_symlink(folder / "elsewhere", folder / "link.lock");
    EXPECT_TRUE(SessionLock(folder / "link.lock").isHeld());
    EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
}

}  // namespace
