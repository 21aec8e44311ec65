#include "accessibility/AccessibilityBus.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <utility>

#include "accessibility/ApplicationWatch.h"
#include "accessibility/AtspiQueries.h"
#include "accessibility/EarlyLooks.h"
#include "common/ScopedAction.h"
#include "common/log.h"

namespace useragent {
namespace {

using cmn::bus::Clock;
using cmn::bus::Connection;
using cmn::bus::Deadline;

// A bus that is not usable is looked for at most this often outside the polling cycles.
constexpr std::chrono::seconds kPauseBetweenLooks{1};

// Pings of applications that hang stay on their way, and shall not keep others waiting. Buses of a session
// allow many more.
constexpr std::size_t kMostInFlight = 1000;

// Windows come and go several at once.
constexpr std::chrono::milliseconds kQuietAfterScreenChange{10};

}  // namespace

AtspiSettings SettingsOfThisSession() {
    const char* const bus = std::getenv("AT_SPI_BUS_ADDRESS");
    return {cmn::bus::SessionBusAddress(), bus != nullptr ? bus : ""};
}

AccessibilityBus::AccessibilityBus(std::shared_ptr<cmn::Dispatch> dispatch,
                                   std::shared_ptr<cmn::bus::Loop> loop, AtspiSettings settings)
    : settings_(std::move(settings)),
      surroundings_{std::move(dispatch), std::move(loop), settings_.callDeadline, settings_.screen,
                    settings_.earlyLooks} {}

std::shared_ptr<Session> AccessibilityBus::session(Deadline deadline) {
    {
        const std::lock_guard lock(mutex_);
        if (auto session = usable(); session || Clock::now() - lastLook_ < kPauseBetweenLooks) {
            return session;
        }
    }
    return check(deadline);
}

std::shared_ptr<Session> AccessibilityBus::check(Deadline deadline, const Use& meanwhile) {
    {
        const std::lock_guard lock(mutex_);
        if (looking_) {
            return usable();
        }
        looking_ = true;
        lastLook_ = Clock::now();
    }
    {
        const cmn::ScopedAction looked([this] {
            const std::lock_guard lock(mutex_);
            looking_ = false;
        });
        look(deadline, meanwhile);
    }
    const std::lock_guard lock(mutex_);
    return usable();
}

std::shared_ptr<Session> AccessibilityBus::beginCycle(Deadline deadline) {
    {
        const std::lock_guard lock(mutex_);
        isCheckedForCycle_ = true;
    }
    return check(deadline);
}

void AccessibilityBus::endCycle(Deadline deadline, const Use& use) {
    std::shared_ptr<Session> session;
    bool isChecked = false;
    {
        const std::lock_guard lock(mutex_);
        isChecked = std::exchange(isCheckedForCycle_, false);
        session = usable();
    }
    std::shared_ptr<Session> used;
    if (!isChecked) {
        session = check(deadline, [&](Session& known) {
            used = known.shared_from_this();
            use(known);
        });
    }
    if (session && session != used) {
        use(*session);
    }
}

void AccessibilityBus::screenChanged() {
    const std::lock_guard lock(mutex_);
    if (session_) {
        session_->watches->tellAll(&ApplicationWatch::screenChanged);
    }
    if (settings_.screen.hasOthersInFront && settings_.earlyLooks && !std::exchange(isFrontAsked_, true)) {
        surroundings_.loop->after(kQuietAfterScreenChange, [weak = weak_from_this()] {
            if (const auto self = weak.lock()) {
                self->dispatch()->async(cmn::QueuePriority::high, [weak] {
                    if (const auto worker = weak.lock()) {
                        worker->lookEarlyIfOthersInFront();
                    }
                });
            }
        });
    }
}

void AccessibilityBus::screenRetitled() {
    const std::lock_guard lock(mutex_);
    if (session_) {
        session_->watches->tellAll(&ApplicationWatch::screenRetitled);
    }
}

// Only a polling cycle finds a browser, or another process of one, by its windows.
void AccessibilityBus::lookEarlyIfOthersInFront() {
    {
        const std::lock_guard lock(mutex_);
        isFrontAsked_ = false;
    }
    if (settings_.screen.hasOthersInFront()) {
        settings_.earlyLooks->ask();
    }
}

std::shared_ptr<Session> AccessibilityBus::usable() const {
    return session_ && session_->connection->isReady() ? session_ : nullptr;
}

std::shared_ptr<Connection> AccessibilityBus::sessionBus(Deadline deadline) {
    {
        const std::lock_guard lock(mutex_);
        if (sessionBus_ && sessionBus_->isReady()) {
            return sessionBus_;
        }
    }
    Connected bus = connect(settings_.sessionBusAddress, deadline);
    const std::lock_guard lock(mutex_);
    if (bus) {
        sessionBus_.swap(*bus);
    }
    return sessionBus_ && sessionBus_->isReady() ? sessionBus_ : nullptr;
}

AccessibilityBus::Connected AccessibilityBus::connect(const std::string& address, Deadline deadline) {
    cmn::bus::Options options;
    options.address = address;
    const auto addresses = static_cast<int>(cmn::bus::LocalAddresses(address).size());
    options.connectDeadline =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()) / std::max(addresses, 1);
    options.mostInFlight = kMostInFlight;
    return Connection::openAndWait(surroundings_.loop, std::move(options));
}

AccessibilityBus::Answer AccessibilityBus::askSession(Deadline deadline, const Use& meanwhile) {
    const std::shared_ptr<Connection> bus = sessionBus(deadline);
    if (!bus) {
        return {{}, settings_.accessibilityBusAddress, "the session bus does not answer"};
    }
    cmn::bus::Batch batch(bus, deadline);
    const auto isEnabled = batch.ask(atspi::IsEnabled());
    const auto busAddress = batch.ask(atspi::AddressOfAccessibilityBus());
    std::shared_ptr<Session> known;
    {
        const std::lock_guard lock(mutex_);
        known = usable();
    }
    if (known && meanwhile) {
        meanwhile(*known);
    }
    batch.wait();
    const auto& switchedOn = isEnabled.read();
    const auto& address = busAddress.read();
    Answer answer;
    answer.switchedOn = switchedOn ? std::optional(*switchedOn) : std::nullopt;
    answer.address = settings_.accessibilityBusAddress;
    if (answer.address.empty()) {
        answer.address = address.valueOr("");
    }
    if (!switchedOn || !address) {
        answer.failure = (switchedOn ? address.error() : switchedOn.error()).message;
    }
    return answer;
}

void AccessibilityBus::look(Deadline deadline, const Use& meanwhile) {
    const Answer answer = askSession(deadline, meanwhile);
    {
        const std::lock_guard lock(mutex_);
        // Only a definite answer counts: a session that is slow for once does not switch anything off.
        if (answer.switchedOn) {
            switchedOn_ = answer.switchedOn;
        }
        if (switchedOn_ == false) {
            conclude(Verdict::switchedOff, "");
            return;
        }
        if (usable() && (answer.address.empty() || answer.address == address_)) {
            return;
        }
        if (!switchedOn_ || answer.address.empty()) {
            conclude(Verdict::unreachable, answer.failure);
            return;
        }
    }
    Connected connected = connect(answer.address, deadline);
    const std::lock_guard lock(mutex_);
    if (connected) {
        replace(std::make_shared<Session>(surroundings_, std::move(*connected)));
        address_ = answer.address;
        verdict_ = Verdict::usable;
        TLOG_INFO("Connected to the accessibility bus");
    } else if (!usable()) {
        conclude(Verdict::unreachable, connected.error().message);
    }
}

void AccessibilityBus::conclude(Verdict verdict, const std::string& reason) {
    replace(nullptr);
    if (std::exchange(verdict_, verdict) == verdict) {
        return;
    }
    if (verdict == Verdict::switchedOff) {
        TLOG_WARN("Accessibility is switched off for this session: browsers cannot be read");
    } else {
        TLOG_WARN("The accessibility bus cannot be reached: {}", reason);
    }
}

void AccessibilityBus::replace(std::shared_ptr<Session> session) {
    if (session_) {
        session_->watches->end();
    }
    session_ = std::move(session);
}

}  // namespace useragent
