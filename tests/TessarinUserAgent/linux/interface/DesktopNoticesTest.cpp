#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "interface/DesktopNotices.h"
#include "linux_bus/Loop.h"
#include "support/NotificationService.h"
#include "support/PrivateBus.h"
#include "support/WaitFor.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class DesktopNoticesTest : public testing::Test {
 protected:
    ~DesktopNoticesTest() override { place.loop->stop(); }

    void show(useragent::Notices& shower) {
        failure.reset();
        shower.show(
            {"Title", "Text", "Button"}, [this](const std::string& why) { failure = why; },
            [this] { ++pressed; });
    }
    bool isDone() {
        return fake::WaitFor([this] { return failure.has_value(); });
    }

    fake::PrivateBus bus;
    useragent::SessionBusPlace place{std::make_shared<cmn::bus::Loop>(), bus.address(), 20ms};
    std::optional<std::string> failure;
    int pressed = 0;
};

TEST_F(DesktopNoticesTest, ShowsANoteWithItsButtonAndHearsItPressed) {
    const fake::NotificationService service(bus.address());
    useragent::DesktopNotices notices(place);
    show(notices);
    ASSERT_TRUE(isDone());
    EXPECT_EQ(*failure, "");
    const QDBusMessage shown = service.shown().at(0);
    EXPECT_EQ(shown.signature(), "susssasa{sv}i");
    EXPECT_EQ(shown.arguments().at(3).toString(), "Title");
    EXPECT_EQ(shown.arguments().at(4).toString(), "Text");
    const QStringList buttons = shown.arguments().at(5).toStringList();
    EXPECT_EQ(buttons.value(1), "Button");
    EXPECT_TRUE(fake::WaitFor([&] {
        service.press(fake::NotificationService::kNumber, buttons.value(0));
        return pressed > 0;
    }));
}

TEST_F(DesktopNoticesTest, ButtonOfAnotherNoteIsNotItsOwn) {
    const fake::NotificationService service(bus.address());
    useragent::DesktopNotices notices(place);
    show(notices);
    ASSERT_TRUE(isDone());
    const QString button = service.shown().at(0).arguments().at(5).toStringList().value(0);
    for (int times = 0; times < 20; ++times) {
        service.press(fake::NotificationService::kNumber + 1, button);
        service.press(QString::number(fake::NotificationService::kNumber),
                      button);  // not as the standard has it
    }
    // Signals keep their order: those before the right one were heard.
    EXPECT_TRUE(fake::WaitFor([&] {
        service.press(fake::NotificationService::kNumber, button);
        return pressed > 0;
    }));
    EXPECT_LT(pressed, 20);
}

TEST_F(DesktopNoticesTest, WithoutAServiceItSaysSoAndTheNextIsTriedAnew) {
    useragent::DesktopNotices notices(place);
    show(notices);
    EXPECT_FALSE(failure) << "nothing is waited for";
    ASSERT_TRUE(isDone());
    EXPECT_THAT(*failure, HasSubstr("org.freedesktop.Notifications"));
    const fake::NotificationService service(bus.address());
    show(notices);
    ASSERT_TRUE(isDone());
    EXPECT_EQ(*failure, "");
}

TEST_F(DesktopNoticesTest, AnAnswerThatIsNoNumberIsAFailure) {
    fake::RawPeer odd(bus.address(), [](const QDBusMessage& call, QDBusConnection connection) {
        connection.send(call.createReply(QStringLiteral("4711")));
    });
    ASSERT_TRUE(odd.own("org.freedesktop.Notifications"));
    useragent::DesktopNotices notices(place);
    show(notices);
    ASSERT_TRUE(isDone());
    EXPECT_NE(*failure, "");
}

TEST_F(DesktopNoticesTest, AServiceThatHangsIsGivenUp) {
    fake::RawPeer hung(bus.address(), [](const QDBusMessage&, const QDBusConnection&) {});
    ASSERT_TRUE(hung.own("org.freedesktop.Notifications"));
    useragent::DesktopNotices notices(place, 50ms);
    show(notices);
    EXPECT_FALSE(failure) << "nothing is waited for";
    ASSERT_TRUE(isDone());
    EXPECT_NE(*failure, "");
}

TEST_F(DesktopNoticesTest, WithoutABusItSaysSo) {
    bus.kill();
    useragent::DesktopNotices notices(place);
    for (int times = 0; times < 2; ++times) {
        show(notices);
        ASSERT_TRUE(isDone()) << times;
        EXPECT_NE(*failure, "");
    }
}

TEST_F(DesktopNoticesTest, NothingIsToldAfterItsEnd) {
    const fake::NotificationService service(bus.address());
    {
        useragent::DesktopNotices notices(place);
        show(notices);
    }
    {
        useragent::DesktopNotices notices(place);
        show(notices);
        ASSERT_TRUE(fake::WaitFor([&] { return !service.shown().empty() || failure; }));
    }
    failure.reset();
    fake::WaitFor([] { return false; }, 100ms);
    EXPECT_FALSE(failure);
}

}  // namespace
