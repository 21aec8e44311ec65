#include "statusitem/BusMenu.h"

#include <QAction>
#include <QBuffer>
#include <QGuiApplication>
#include <QIcon>
#include <QMenu>
#include <QPixmap>
#include <algorithm>
#include <utility>

namespace useragent {
namespace {

// The layout never changes: items are rewritten, not added or removed.
constexpr std::uint32_t kRevision = 1;
// Twice what menus show: panels of any density only make it smaller.
constexpr QSize kIconSize(32, 32);

// From one mark of a keyboard shortcut to the other's.
std::string Label(QString text) {
    return text.replace(QLatin1String("&&"), QLatin1String("&"))
        .replace(QLatin1Char('_'), QLatin1String("__"))
        .toStdString();
}

std::vector<std::uint8_t> Png(const QIcon& icon) {
    QByteArray data;
    QBuffer buffer(&data);
    buffer.open(QIODevice::WriteOnly);
    icon.pixmap(kIconSize, 1.0).save(&buffer, "PNG");
    return {data.begin(), data.end()};
}

BusMenu::Properties PropertiesOf(const QAction& action) {
    if (action.isSeparator()) {
        return {{"type", std::string("separator")}};
    }
    BusMenu::Properties properties{{"label", Label(action.text())}, {"enabled", action.isEnabled()}};
    if (!action.icon().isNull()) {
        properties.emplace("icon-data", Png(action.icon()));
    }
    return properties;
}

}  // namespace

BusMenu::BusMenu(StatusMenu& menu, std::chrono::milliseconds longestMenu, Events events)
    : menu_(menu), events_(std::move(events)) {
    open_.setSingleShot(true);
    open_.setInterval(longestMenu);
    connect(&open_, &QTimer::timeout, this, [this] { events_.closed(); });
    for (QAction* const action : menu.drawnMenu().actions()) {
        actions_.append(action);
        sent_.push_back(PropertiesOf(*action));
        connect(action, &QAction::changed, this,
                [this, number = static_cast<Number>(actions_.size())] { actionChanged(number); });
    }
}

cmn::bus::Interface BusMenu::interface() {
    return cmn::bus::Interface(kInterface)
        .property("Version", [] { return std::uint32_t{3}; })
        .property("TextDirection", [] { return QGuiApplication::isRightToLeft() ? "rtl" : "ltr"; })
        .property("Status", [] { return "normal"; })
        .property("IconThemePath", [] { return Names(); })
        .method("GetLayout", {"parentId", "recursionDepth", "propertyNames", "revision", "layout"}, this,
                &BusMenu::getLayout)
        .method("GetGroupProperties", {"ids", "propertyNames", "properties"}, this,
                &BusMenu::getGroupProperties)
        .method("GetProperty", {"id", "name", "value"}, this, &BusMenu::getProperty)
        .method("Event", {"id", "eventId", "data", "timestamp"}, this, &BusMenu::menuEvent)
        .method("EventGroup", {"events", "idErrors"}, this, &BusMenu::eventGroup)
        .method("AboutToShow", {"id", "needUpdate"}, this, &BusMenu::aboutToShow)
        .method("AboutToShowGroup", {"ids", "updatesNeeded", "idErrors"}, this, &BusMenu::aboutToShowGroup)
        .signal<std::vector<Item>, std::vector<Removed>>("ItemsPropertiesUpdated",
                                                         {"updatedProps", "removedProps"})
        // Never sent: panels that generate code from the description expect them.
        .signal<std::uint32_t, Number>("LayoutUpdated", {"revision", "parent"})
        .signal<Number, std::uint32_t>("ItemActivationRequested", {"id", "timestamp"});
}

bool BusMenu::isItem(Number number) const {
    return number >= 1 && number <= actions_.size() && !actions_.at(number - 1).isNull();
}

BusMenu::Properties BusMenu::properties(Number number, const Names& names) const {
    Properties all;
    if (isItem(number)) {
        all = PropertiesOf(*actions_.at(number - 1));
    } else if (number == 0) {
        all.emplace("children-display", std::string("submenu"));
    }
    if (!names.empty()) {
        std::erase_if(all, [&names](const auto& property) {
            return std::find(names.begin(), names.end(), property.first) == names.end();
        });
    }
    return all;
}

void BusMenu::actionChanged(Number number) {
    const Properties now = properties(number);
    const Properties before = std::exchange(sent_.at(static_cast<std::size_t>(number) - 1), now);
    Properties updated;
    for (const auto& property : now) {
        const auto known = before.find(property.first);
        if (known == before.end() || *known != property) {
            updated.insert(property);
        }
    }
    Names removed;
    for (const auto& property : before) {
        if (!now.contains(property.first)) {
            removed.push_back(property.first);
        }
    }
    if (updated.empty() && removed.empty()) {
        return;
    }
    changed_ = true;
    events_.changed(updated.empty() ? std::vector<Item>() : std::vector{Item(number, updated)},
                    removed.empty() ? std::vector<Removed>() : std::vector{Removed(number, removed)});
}

std::tuple<std::uint32_t, BusMenu::Layout> BusMenu::getLayout(Number parent, std::int32_t depth,
                                                              const Names& names) {
    std::vector<cmn::bus::AnyValue> children;
    if (parent == 0 && depth != 0) {
        for (Number number = 1; number <= actions_.size(); ++number) {
            children.emplace_back(Layout(number, properties(number, names), {}));
        }
    }
    return {kRevision, Layout(parent, properties(parent, names), std::move(children))};
}

std::vector<BusMenu::Item> BusMenu::getGroupProperties(const Numbers& numbers, const Names& names) {
    std::vector<Item> items;
    // No numbers mean all.
    for (Number number = 0; number <= actions_.size(); ++number) {
        if (numbers.empty() || std::find(numbers.begin(), numbers.end(), number) != numbers.end()) {
            items.emplace_back(number, properties(number, names));
        }
    }
    return items;
}

BusMenu::Value BusMenu::getProperty(Number number, const std::string& name) {
    const Properties found = properties(number, {name});
    return found.empty() ? Value(std::string()) : found.begin()->second;
}

void BusMenu::menuEvent(Number number, const std::string& what, const AnyData& /*data*/,
                        std::uint32_t /*timestamp*/) {
    if (what == "clicked" && isItem(number)) {
        // The panel has its answer first, whatever the selection does.
        QMetaObject::invokeMethod(actions_.at(number - 1), &QAction::trigger, Qt::QueuedConnection);
    } else if (what == "opened" && number == 0) {
        open_.start();
        if (!std::exchange(upToDate_, false)) {
            // From panels that do not ask before.
            update();
        }
    } else if (what == "closed" && number == 0) {
        upToDate_ = false;
        open_.stop();
        events_.closed();
    }
}

BusMenu::Numbers BusMenu::eventGroup(const std::vector<Event>& events) {
    Numbers unknown;
    for (const auto& [number, what, data, timestamp] : events) {
        if (!isKnown(number)) {
            unknown.push_back(number);
        }
        menuEvent(number, what, data, timestamp);
    }
    return unknown;
}

bool BusMenu::update() {
    changed_ = false;
    menu_.update();
    return changed_;
}

bool BusMenu::aboutToShow(Number number) {
    if (number != 0) {
        return false;
    }
    upToDate_ = true;
    open_.start();
    return update();
}

std::tuple<BusMenu::Numbers, BusMenu::Numbers> BusMenu::aboutToShowGroup(const Numbers& numbers) {
    Numbers changed;
    Numbers unknown;
    for (const Number number : numbers) {
        if (!isKnown(number)) {
            unknown.push_back(number);
        } else if (aboutToShow(number)) {
            changed.push_back(number);
        }
    }
    return {changed, unknown};
}

}  // namespace useragent
