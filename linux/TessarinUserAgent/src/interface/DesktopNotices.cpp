#include "interface/DesktopNotices.h"

#include <utility>

namespace useragent {
namespace {

constexpr const char* kIcon = "com.tessarin.UserAgent";

}  // namespace

DesktopNotices::DesktopNotices(SessionBusPlace place, std::chrono::milliseconds timeout)
    : place_(std::move(place)), timeout_(timeout) {}

DesktopNotices::~DesktopNotices() = default;

void DesktopNotices::show(const Notice& notice, std::function<void(const std::string&)> done,
                          std::function<void()> pressed) {
    const Note note{notice, std::move(done), std::move(pressed)};
    if (bus_ && bus_->state() == SessionBus::State::ready) {
        send(note);
        return;
    }
    waiting_.push_back(note);
    if (!bus_) {
        bus_ = std::make_unique<SessionBus>(
            place_,
            SessionBus::Events{[this] { busIsReady(); }, [this](const std::string& why) { busIsLost(why); }});
    } else if (bus_->state() == SessionBus::State::lost) {
        // It is not told again that there is none; who waits for the next attempt is.
        busIsLost("there is no session bus");
    }
}

void DesktopNotices::busIsReady() {
    for (const Note& note : std::exchange(waiting_, {})) {
        send(note);
    }
}

void DesktopNotices::busIsLost(const std::string& why) {
    buttons_.clear();
    for (const Note& note : std::exchange(waiting_, {})) {
        note.done(why);
    }
}

void DesktopNotices::send(const Note& note) {
    const auto query = ShowNotification(note.notice, kIcon);
    bus_->call(query.makeCall(bus_->connection()), timeout_,
               [this, note, read = query.read](const SessionBus::Reply& reply) {
                   const auto shown =
                       reply ? read(*reply) : cmn::bus::Result<ShownNotification>(reply.error());
                   if (shown) {
                       hearButton(*shown, note.pressed);
                   }
                   note.done(shown ? std::string() : shown.error().message);
               });
}

void DesktopNotices::hearButton(const ShownNotification& shown, const std::function<void()>& pressed) {
    buttons_.push_back(bus_->subscribe(ButtonsOf(shown), [shown, pressed](const cmn::bus::Message& signal) {
        if (IsButtonPressed(signal, shown)) {
            pressed();
        }
    }));
}

}  // namespace useragent
