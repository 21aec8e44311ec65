#include "statusitem/TrayHosts.h"

#include <string>
#include <utility>
#include <variant>

#include "common/log.h"
#include "statusitem/StatusNotifier.h"

namespace useragent {
namespace {

namespace bus = cmn::bus;

}  // namespace

TrayHosts::TrayHosts(SessionBusPlace place, std::function<void(TrayRoad)> onAnswer,
                     std::chrono::milliseconds timeout)
    : onAnswer_(std::move(onAnswer)),
      timeout_(timeout),
      bus_(std::move(place), {[this] {
                                  subscribe();
                                  ask();
                              },
                              [this](const std::string&) { onAnswer_(TrayRoad::windowSystem); }}) {}

void TrayHosts::subscribe() {
    using namespace std::string_literals;
    subscriptions_.clear();
    const auto hear = [this](const std::string& rule) {
        subscriptions_.push_back(bus_.subscribe(rule, [this](const cmn::bus::Message&) { ask(); }));
    };
    hear("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='"s + kNotifierWatcher +
         "'");
    for (const char* const signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"}) {
        hear("type='signal',path='"s + kNotifierWatcherPath + "',interface='" + kNotifierWatcher +
             "',member='" + signal + "'");
    }
}

void TrayHosts::ask() {
    const int question = ++lastQuestion_;
    if (bus_.state() == SessionBus::State::lost) {
        QMetaObject::invokeMethod(
            this, [this] { onAnswer_(TrayRoad::windowSystem); }, Qt::QueuedConnection);
    }
    if (bus_.state() != SessionBus::State::ready) {
        return;  // asked when it is
    }
    bus_.call(bus_.connection().makeCall(kNotifierWatcher, kNotifierWatcherPath, bus::kProperties, "Get",
                                         kNotifierWatcher, kHasNotifierHost),
              timeout_, [this, question](const SessionBus::Reply& reply) {
                  if (question == lastQuestion_) {
                      answered(reply);
                  }
              });
}

void TrayHosts::answered(const SessionBus::Reply& reply) {
    if (!reply && reply.error().is(bus::error::kDisconnected)) {
        return;  // told apart
    }
    if (!reply && (reply.error().is(bus::error::kTimeout) || reply.error().is(bus::error::kNoReply))) {
        if (!std::exchange(saidSilent_, true)) {
            TLOG_WARN("The desktop's status area does not answer; the status item waits for it");
        }
        ask();
        return;
    }
    saidSilent_ = false;
    const auto host = reply ? reply->readOne<bus::Variant<bool>>() : reply.error();
    onAnswer_(host && host->value ? TrayRoad::sessionBus : TrayRoad::windowSystem);
}

}  // namespace useragent
