#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "linux_bus/Object.h"
#include "statusitem/StatusMenu.h"

class QAction;

namespace useragent {

// com.canonical.dbusmenu: the menu for panels that draw it themselves. Items are numbered from 1, 0 is the
// menu. Tells the panel of an item only what has changed. Main thread.
class BusMenu : public QObject {
    Q_OBJECT

 public:
    static constexpr const char* kPath = "/MenuBar";
    static constexpr const char* kInterface = "com.canonical.dbusmenu";

    using Number = std::int32_t;
    using Value = std::variant<std::monostate, bool, std::string, std::vector<std::uint8_t>>;
    using Properties = std::map<std::string, Value>;
    using Item = std::tuple<Number, Properties>;
    using Removed = std::tuple<Number, std::vector<std::string>>;  // names of properties that have gone

    struct Events {
        std::function<void()> closed;  // a menu that was open is so no more
        std::function<void(const std::vector<Item>&, const std::vector<Removed>&)> changed;
    };

    // The menu must outlive this object.
    BusMenu(StatusMenu& menu, std::chrono::milliseconds longestMenu, Events events);

    // Calls this object.
    cmn::bus::Interface interface();

    // Whether the panel has asked for the menu or opened it, and has not closed it since. Some panels never
    // say that they close it: after `longestMenu` it counts as closed.
    bool isOpen() const { return open_.isActive(); }

 private:
    using Names = std::vector<std::string>;
    using Numbers = std::vector<Number>;
    using AnyData = std::variant<std::monostate>;
    using Event = std::tuple<Number, std::string, AnyData, std::uint32_t>;
    using Layout = std::tuple<Number, Properties, std::vector<cmn::bus::AnyValue>>;

    // The methods.
    std::tuple<std::uint32_t, Layout> getLayout(Number parent, std::int32_t depth, const Names& names);
    std::vector<Item> getGroupProperties(const Numbers& numbers, const Names& names);
    Value getProperty(Number number, const std::string& name);
    void menuEvent(Number number, const std::string& what, const AnyData& data, std::uint32_t timestamp);
    Numbers eventGroup(const std::vector<Event>& events);
    bool aboutToShow(Number number);
    std::tuple<Numbers, Numbers> aboutToShowGroup(const Numbers& numbers);

    bool isItem(Number number) const;
    bool isKnown(Number number) const { return number == 0 || isItem(number); }
    Properties properties(Number number, const Names& names = {}) const;
    void actionChanged(Number number);
    bool update();

    StatusMenu& menu_;
    const Events events_;
    QTimer open_;
    QList<QPointer<QAction>> actions_;
    std::vector<Properties> sent_;  // what panels know of each
    bool changed_ = false;
    bool upToDate_ = false;  // the panel has asked before opening the menu
};

}  // namespace useragent
