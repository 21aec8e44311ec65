#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusVariant>

#include "StatusItemFixture.h"
#include "support/RawPeer.h"
#include "support/WaitFor.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// What panels ask that go by the interface and not by what is there, in their own words.
class TrayQuestionsTest : public statusitem::StatusItemFixture {
 protected:
    QDBusMessage ask(const char* path, const char* interface, const char* member,
                     const QVariantList& arguments = {}) {
        const QDBusMessage question = fake::RawPeer::message(name, path, interface, member, arguments);
        const QDBusPendingCall pending = connection.asyncCall(question);
        EXPECT_TRUE(fake::WaitFor([&] { return pending.isFinished(); }));
        return pending.reply();
    }
    QDBusMessage askMenu(const char* member, const QVariantList& arguments) {
        return ask("/MenuBar", statusitem::kMenuInterface, member, arguments);
    }
    QDBusMessage askItem(const char* member, const QVariantList& arguments) {
        return ask("/StatusNotifierItem", "org.freedesktop.DBus.Properties", member, arguments);
    }
    // Number, names of properties, and number of children of a layout.
    struct Seen {
        int number;
        QStringList properties;
        qsizetype children;
        bool operator==(const Seen&) const = default;
    };
    Seen layout(int parent, int depth, const QStringList& names) {
        const auto argument =
            askMenu("GetLayout", {parent, depth, names}).arguments().value(1).value<QDBusArgument>();
        EXPECT_EQ(argument.currentSignature(), QStringLiteral("(ia{sv}av)"));
        Seen seen{};
        QVariantMap properties;
        QVariantList children;
        argument.beginStructure();
        argument >> seen.number >> properties >> children;
        argument.endStructure();
        return {seen.number, properties.keys(), children.size()};
    }

    statusitem::PanelStandIn panel{address()};
    const std::string name = createItemIn(panel);
    QDBusConnection connection =
        QDBusConnection::connectToBus(QString::fromStdString(address()), QStringLiteral("tray-questions"));
};

TEST_F(TrayQuestionsTest, LayoutIsGivenFromAnyItemToAnyDepthWithTheWantedProperties) {
    EXPECT_EQ(layout(0, -1, {}), (Seen{0, {"children-display"}, 7}));
    EXPECT_EQ(layout(0, 1, {"label"}), (Seen{0, {}, 7}));
    EXPECT_EQ(layout(0, 0, {}), (Seen{0, {"children-display"}, 0}));
    EXPECT_EQ(layout(1, -1, {}), (Seen{1, {"enabled", "icon-data", "label"}, 0}));
    EXPECT_EQ(layout(1, -1, {"enabled", "unheard-of"}), (Seen{1, {"enabled"}, 0}));
    EXPECT_EQ(layout(4711, -1, {}), (Seen{4711, {}, 0}));
}

TEST_F(TrayQuestionsTest, PropertiesOfTheMenuThatAreNotThereAreEmpty) {
    const auto get = [this](int number, const char* property) {
        return askMenu("GetProperty", {number, property})
            .arguments()
            .value(0)
            .value<QDBusVariant>()
            .variant();
    };
    EXPECT_EQ(get(1, "enabled"), QVariant(true));
    EXPECT_EQ(get(0, "children-display"), QVariant("submenu"));
    EXPECT_EQ(get(1, "unheard-of"), QVariant(""));
    EXPECT_EQ(get(4711, "label"), QVariant(""));
}

TEST_F(TrayQuestionsTest, GroupsNameTheItemsThatAreNotThere) {
    const auto numbers = [](const QVariant& answer) { return qdbus_cast<QList<int>>(answer); };
    onNeedsUpdate = [this] { fillMenu(false); };
    const QDBusMessage shown = askMenu("AboutToShowGroup", {QVariant::fromValue(QList<int>{0, 1, 4711, -1})});
    EXPECT_EQ(numbers(shown.arguments().value(0)), QList<int>{0});
    EXPECT_EQ(numbers(shown.arguments().value(1)), (QList<int>{4711, -1}));
    EXPECT_EQ(askMenu("AboutToShow", {1}).arguments(), QVariantList{false});
    EXPECT_EQ(panel.group(name, {}).size(), 8U) << "no numbers mean all";
    EXPECT_THAT(panel.group(name, {4711}), IsEmpty());
}

TEST_F(TrayQuestionsTest, ItemGivesAllItsPropertiesAndRefusesWhatItHasNot) {
    const auto all = qdbus_cast<QVariantMap>(
        askItem("GetAll", {QStringLiteral("org.kde.StatusNotifierItem")}).arguments().value(0));
    EXPECT_EQ(all.keys(), (QStringList{"AttentionIconName", "AttentionIconPixmap", "AttentionMovieName",
                                       "Category", "IconAccessibleDesc", "IconName", "IconPixmap", "Id",
                                       "ItemIsMenu", "Menu", "OverlayIconName", "OverlayIconPixmap", "Status",
                                       "Title", "ToolTip", "WindowId"}));
    EXPECT_EQ(all.value("WindowId"), QVariant(0));
    EXPECT_EQ(all.value("ToolTip").value<QDBusArgument>().currentSignature(), QStringLiteral("(sa(iiay)ss)"));
    EXPECT_EQ(askItem("Get", {"org.kde.StatusNotifierItem", "IconThemePath"}).type(),
              QDBusMessage::ErrorMessage);
    EXPECT_EQ(askItem("Set", {"org.kde.StatusNotifierItem", "Title", QVariant::fromValue(QDBusVariant("t"))})
                  .errorName(),
              QStringLiteral("org.freedesktop.DBus.Error.PropertyReadOnly"));
    EXPECT_EQ(ask("/StatusNotifierItem", "org.kde.StatusNotifierItem", "Scroll", {1, "vertical"}).type(),
              QDBusMessage::ReplyMessage);
    EXPECT_EQ(ask("/StatusNotifierItem", "org.kde.StatusNotifierItem", "Activate", {"1", "2"}).errorName(),
              QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"));
    EXPECT_EQ(ask("/", "org.kde.StatusNotifierItem", "Activate", {1, 2}).errorName(),
              QStringLiteral("org.freedesktop.DBus.Error.UnknownObject"));
}

TEST_F(TrayQuestionsTest, SignalsAreDescribedAlsoThoseThatAreNeverSent) {
    const auto describe = [this](const char* path) {
        return ask(path, "org.freedesktop.DBus.Introspectable", "Introspect")
            .arguments()
            .value(0)
            .toString()
            .toStdString();
    };
    const std::string itemXml = describe("/StatusNotifierItem");
    for (const char* const signal :
         {"NewTitle", "NewIcon", "NewToolTip", "NewAttentionIcon", "NewOverlayIcon", "NewStatus"}) {
        EXPECT_THAT(itemXml, HasSubstr(std::string("<signal name=\"") + signal + "\">"));
    }
    const std::string menuXml = describe("/MenuBar");
    for (const char* const signal : {"ItemsPropertiesUpdated", "LayoutUpdated", "ItemActivationRequested"}) {
        EXPECT_THAT(menuXml, HasSubstr(std::string("<signal name=\"") + signal + "\">"));
    }
}

}  // namespace
