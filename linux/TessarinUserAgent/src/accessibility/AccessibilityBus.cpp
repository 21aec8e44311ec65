#include "accessibility/AccessibilityBus.h"

#include <fmt/format.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <utility>

#include "accessibility/AtspiMessages.h"
#include "common/ScopedAction.h"
#include "common/log.h"
#include "linux_usercommon/BusAddress.h"
#include "linux_usercommon/BusProbe.h"

namespace useragent {
namespace {

// A bus that is not usable is looked for at most this often outside the polling cycles.
constexpr std::chrono::seconds kPauseBetweenLooks{1};

// The bus library connects with a blocking call on a thread that all its connections share: it is only let
// near a bus that answers.
cmn::BusProbeResult Probe(const std::shared_ptr<cmn::TaskPool>& pool, const std::string& address,
                          Deadline deadline) {
    // Held by nobody but the handler: when the pool stops, nobody waits for it.
    auto promise = std::make_shared<std::promise<cmn::BusProbeResult>>();
    std::future<cmn::BusProbeResult> result = promise->get_future();
    cmn::ProbeBus(
        pool, cmn::ParseBusAddresses(address), TimeLeft(deadline),
        [promise = std::move(promise)](const cmn::BusProbeResult& found) { promise->set_value(found); });
    if (result.wait_until(deadline) != std::future_status::ready) {
        return {std::nullopt, "no answer in time", false};
    }
    try {
        return result.get();
    } catch (const std::future_error&) {
        return {std::nullopt, "nobody is left to ask it", false};  // the pool has stopped
    }
}

std::string Describe(const QDBusMessage& reply) {
    return reply.type() == QDBusMessage::ErrorMessage ? reply.errorMessage().toStdString()
                                                      : "no answer in time";
}

}  // namespace

AtspiSettings SettingsOfThisSession() {
    const char* const bus = std::getenv("AT_SPI_BUS_ADDRESS");
    return {cmn::SessionBusAddress(), bus != nullptr ? bus : ""};
}

AccessibilityBus::AccessibilityBus(std::shared_ptr<cmn::TaskPool> pool, AtspiSettings settings)
    : pool_(std::move(pool)), settings_(std::move(settings)) {}

AccessibilityBus::~AccessibilityBus() {
    for (const auto* const bus : {&bus_, &session_}) {
        if (*bus) {
            QDBusConnection::disconnectFromBus((*bus)->connection.name());
        }
    }
}

std::optional<BusLink> AccessibilityBus::link(Deadline deadline) {
    {
        const std::lock_guard lock(mutex_);
        if (auto usable = usableLink(); usable || Clock::now() - lastLook_ < kPauseBetweenLooks) {
            return usable;
        }
    }
    return check(deadline);
}

std::optional<BusLink> AccessibilityBus::check(Deadline deadline) {
    {
        const std::lock_guard lock(mutex_);
        if (looking_) {
            return usableLink();
        }
        looking_ = true;
        lastLook_ = Clock::now();
    }
    {
        const cmn::ScopedAction looked([this] {
            const std::lock_guard lock(mutex_);
            looking_ = false;
        });
        look(deadline);
    }
    const std::lock_guard lock(mutex_);
    return usableLink();
}

std::optional<bool> AccessibilityBus::isSwitchedOn() const {
    const std::lock_guard lock(mutex_);
    return switchedOn_;
}

std::optional<BusLink> AccessibilityBus::usableLink() const {
    if (verdict_ != Verdict::usable || !bus_->connection.isConnected()) {
        return std::nullopt;
    }
    return BusLink{bus_->connection, epoch_};
}

std::optional<QDBusConnection> AccessibilityBus::session(Deadline deadline) {
    {
        const std::lock_guard lock(mutex_);
        if (session_ && session_->connection.isConnected()) {
            return session_->connection;
        }
    }
    std::string failure;
    std::optional<Bus> bus = connect(settings_.sessionBusAddress, deadline, failure);
    const std::lock_guard lock(mutex_);
    if (bus) {
        std::swap(session_, bus);
    }
    if (bus) {
        QDBusConnection::disconnectFromBus(bus->connection.name());
    }
    return session_ && session_->connection.isConnected() ? std::optional(session_->connection)
                                                          : std::nullopt;
}

std::optional<AccessibilityBus::Bus> AccessibilityBus::connect(const std::string& address, Deadline deadline,
                                                               std::string& failure) {
    static std::atomic<int> serial{0};
    const cmn::BusProbeResult alive = Probe(pool_, address, deadline);
    if (!alive.address || !alive.saidHello) {
        failure = alive.address ? "the bus does not let this user in" : alive.failure;
        return std::nullopt;
    }
    const QString name = QString::fromStdString(fmt::format("tessarin-accessibility-{}", ++serial));
    Bus bus{address, QDBusConnection::connectToBus(QString::fromStdString(*alive.address), name)};
    if (!bus.connection.isConnected()) {
        failure = bus.connection.lastError().message().toStdString();
        QDBusConnection::disconnectFromBus(name);
        return std::nullopt;
    }
    return bus;
}

AccessibilityBus::SessionAnswer AccessibilityBus::askSession(Deadline deadline) {
    SessionAnswer answer;
    const std::optional<QDBusConnection> bus = session(deadline);
    if (!bus) {
        answer.failure = "the session bus does not answer";
        return answer;
    }
    const Replies replies =
        CallTogether(*bus,
                     {atspi::GetProperty(atspi::kSessionObject, "org.a11y.Status", "IsEnabled"),
                      atspi::Call(atspi::kSessionObject, "org.a11y.Bus", "GetAddress")},
                     deadline);
    answer.switchedOn = atspi::ReadBoolProperty(replies.messages[0]);
    if (const auto address = atspi::ReadString(replies.messages[1])) {
        answer.address = address->toStdString();
    }
    if (!answer.switchedOn || !answer.address) {
        answer.failure = Describe(replies.messages[answer.switchedOn ? 1 : 0]);
    }
    return answer;
}

void AccessibilityBus::look(Deadline deadline) {
    SessionAnswer answer = askSession(deadline);
    if (!settings_.accessibilityBusAddress.empty()) {
        answer.address = settings_.accessibilityBusAddress;
    }
    bool needsConnection = false;
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
        const bool connected = bus_ && bus_->connection.isConnected();
        needsConnection = !connected || (answer.address && *answer.address != bus_->address);
        if (!needsConnection || !answer.address) {
            conclude(connected && switchedOn_ ? Verdict::usable : Verdict::unreachable, answer.failure);
            return;
        }
    }
    std::string failure;
    std::optional<Bus> bus = connect(*answer.address, deadline, failure);
    const std::lock_guard lock(mutex_);
    if (bus) {
        std::swap(bus_, bus);
        verdict_ = verdict_ == Verdict::usable ? Verdict::unknown : verdict_;  // another bus is another epoch
        conclude(switchedOn_ ? Verdict::usable : Verdict::unreachable, answer.failure);
    } else {
        conclude(
            bus_ && bus_->connection.isConnected() && switchedOn_ ? Verdict::usable : Verdict::unreachable,
            failure);
    }
    if (bus) {
        QDBusConnection::disconnectFromBus(bus->connection.name());
    }
}

void AccessibilityBus::conclude(Verdict verdict, const std::string& reason) {
    if (verdict == verdict_) {
        return;
    }
    verdict_ = verdict;
    switch (verdict) {
        case Verdict::usable:
            ++epoch_;
            TLOG_INFO("Connected to the accessibility bus");
            break;
        case Verdict::switchedOff:
            TLOG_WARN("Accessibility is switched off for this session: browsers cannot be read");
            break;
        default:
            TLOG_WARN("The accessibility bus cannot be reached: {}", reason);
            break;
    }
}

}  // namespace useragent
