#include "linux_usercommon/PolkitAuthority.h"

#include <fmt/format.h>

#include <stdexcept>
#include <utility>

#include "BlockingBusConnection.h"
#include "PolkitMessages.h"
#include "common/log.h"
#include "linux_usercommon/BusAddress.h"
#include "linux_usercommon/DBusTypes.h"

namespace cmn {

namespace {

using Clock = BlockingBusConnection::Clock;

class PolkitAuthorization final : public Authorization {};

bool MayAskUser(AuthorizationFlags flags) {
    return (static_cast<std::uint32_t>(flags) &
            static_cast<std::uint32_t>(AuthorizationFlags::interactionAllowed)) != 0;
}

// Why there is no answer.
std::string FailureText(const BlockingBusConnection& bus, const QDBusMessage& error) {
    const std::string name = error.errorName().toStdString();
    const std::string message = error.errorMessage().toStdString();
    if (!bus.isConnected()) {
        return "the message bus was lost while the authority was asked";
    }
    if (name == dbus_error::kNoReply) {
        return "the authority left the message bus while it was asked";
    }
    if (name == dbus_error::kServiceUnknown || name == dbus_error::kNameHasNoOwner ||
        name == "org.freedesktop.DBus.Error.TimedOut" ||
        name.starts_with("org.freedesktop.DBus.Error.Spawn.")) {
        return "there is no authority on the message bus: " + message;
    }
    return fmt::format("the authority cannot answer: {} ({})", message, name);
}

// The asking of one right, with one deadline for all of it.
class Request {
 public:
    Request(const BlockingBusConnection& bus, const AuthorizationRequest& request,
            std::chrono::milliseconds limit, std::chrono::milliseconds withdrawalLimit)
        : bus_(bus),
          limit_(limit),
          deadline_(Clock::now() + limit),
          withdrawalLimit_(withdrawalLimit),
          question_{bus.uniqueName(), request.right.name, request.prompt.value, MayAskUser(request.flags),
                    1} {}

    polkit::Verdict verdict() {
        QDBusMessage answer = ask();
        if (polkit::IsNotAuthorized(answer) && !question_.message.empty()) {
            TLOG_INFO("The authority does not take the message of this caller: the user is shown its own");
            question_.message.clear();
            ++question_.cancellationId;
            answer = ask();
        }
        if (answer.type() == QDBusMessage::ErrorMessage) {
            throw std::runtime_error(FailureText(bus_, answer));
        }
        const auto verdict = polkit::ReadVerdict(answer);
        if (!verdict) {
            throw std::runtime_error(fmt::format("the authority's answer has the unexpected signature \"{}\"",
                                                 answer.signature().toStdString()));
        }
        return *verdict;
    }

 private:
    QDBusMessage ask() {
        QDBusMessage answer = bus_.call(polkit::CheckAuthorization(question_), deadline_);
        const bool nobodyAnswered = answer.service().isEmpty() && bus_.isConnected() &&
                                    answer.errorName() == QLatin1String(dbus_error::kNoReply);
        if (nobodyAnswered) {
            withdraw();
            throw std::runtime_error(
                fmt::format("no answer from the authority within {} ms", limit_.count()));
        }
        return answer;
    }

    // A dialog that nobody waits for must not stay.
    void withdraw() {
        const QDBusMessage answer = bus_.call(polkit::CancelCheckAuthorization(question_.cancellationId),
                                              Clock::now() + withdrawalLimit_);
        if (answer.type() == QDBusMessage::ErrorMessage) {
            // It still is when this caller leaves the bus.
            TLOG_INFO("The question to the authority was not withdrawn: {}",
                      answer.errorMessage().toStdString());
        }
    }

    const BlockingBusConnection& bus_;
    const std::chrono::milliseconds limit_;
    const Clock::time_point deadline_;
    const std::chrono::milliseconds withdrawalLimit_;
    polkit::Question question_;
};

std::string RefusalText(const polkit::Verdict& verdict, const AuthorizationRequest& request) {
    const std::string& right = request.right.name;
    if (verdict.wasDismissed) {
        return "the user dismissed the question for " + right;
    }
    if (!verdict.isChallenge) {
        return right + " was refused";
    }
    return right + " needs the user's consent, " +
           (MayAskUser(request.flags) ? "and the session has nobody who could ask for it"
                                      : "and the user was not to be asked");
}

}  // namespace

PolkitAuthority::PolkitAuthority(PolkitOptions options) : options_(std::move(options)) {}

std::shared_ptr<Authorization> PolkitAuthority::obtain(const AuthorizationRequest& request) {
    const std::string addresses = options_.busAddress.empty() ? SystemBusAddress() : options_.busAddress;
    const BlockingBusConnection bus(addresses, options_.busDeadline);
    const polkit::Verdict verdict =
        Request(bus, request,
                MayAskUser(request.flags) ? options_.interactiveDeadline : options_.silentDeadline,
                options_.busDeadline)
            .verdict();
    if (!verdict.isAuthorized) {
        throw std::runtime_error(RefusalText(verdict, request));
    }
    return std::make_shared<PolkitAuthorization>();
}

std::shared_ptr<AuthorizationAuthority> SystemAuthorizationAuthority() {
    return std::make_shared<PolkitAuthority>();
}

}  // namespace cmn
