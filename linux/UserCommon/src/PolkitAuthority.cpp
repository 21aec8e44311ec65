#include "linux_usercommon/PolkitAuthority.h"

#include <fmt/format.h>

#include <map>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

#include "common/log.h"
#include "common/utf8.h"
#include "linux_bus/Connection.h"
#include "linux_bus/WellKnown.h"

namespace cmn {

namespace {

using Details = std::map<std::string, std::string>;
using Subject = std::tuple<std::string, std::map<std::string, bus::Variant<std::string>>>;

constexpr const char* kAuthority = "org.freedesktop.PolicyKit1.Authority";

// For callers that it does not trust, for example to choose the message.
constexpr const char* kNotAuthorized = "org.freedesktop.PolicyKit1.Error.NotAuthorized";

constexpr std::uint32_t kAllowUserInteraction = 1;

struct Verdict {
    bool isAuthorized = false;
    bool isChallenge = false;  // would have to ask the user
    bool wasDismissed = false;
};

class PolkitAuthorization final : public Authorization {};

bool MayAskUser(AuthorizationFlags flags) {
    return (static_cast<std::uint32_t>(flags) &
            static_cast<std::uint32_t>(AuthorizationFlags::interactionAllowed)) != 0;
}

// Why there is no answer.
std::string FailureText(const bus::Connection& connection, const bus::Error& error) {
    if (!connection.isReady()) {
        return "the message bus was lost while the authority was asked";
    }
    if (error.is(bus::error::kNoReply)) {
        return "the authority left the message bus while it was asked";
    }
    if (error.is(bus::error::kServiceUnknown) || error.is(bus::error::kNameHasNoOwner) ||
        error.is("org.freedesktop.DBus.Error.TimedOut") ||
        error.name.starts_with("org.freedesktop.DBus.Error.Spawn.")) {
        return "there is no authority on the message bus: " + error.message;
    }
    return fmt::format("the authority cannot answer: {} ({})", error.message, error.name);
}

// The asking of one right, with one deadline for all of it.
class Question {
 public:
    Question(bus::Connection& connection, const AuthorizationRequest& request,
             std::chrono::milliseconds limit, std::chrono::milliseconds withdrawalLimit)
        : connection_(connection),
          request_(request),
          limit_(limit),
          deadline_(bus::Clock::now() + limit),
          withdrawalLimit_(withdrawalLimit),
          message_(request.prompt.value) {}

    Verdict verdict() {
        bus::Connection::Reply answer = ask();
        if (!answer && answer.error().is(kNotAuthorized) && !message_.empty()) {
            TLOG_INFO("The authority does not take the message of this caller: the user is shown its own");
            message_.clear();
            ++cancellationId_;
            answer = ask();
        }
        if (!answer) {
            throw std::runtime_error(FailureText(connection_, answer.error()));
        }
        const auto verdict = answer->readOne<std::tuple<bool, bool, Details>>();
        if (!verdict) {
            throw std::runtime_error(fmt::format("the authority's answer has the unexpected signature \"{}\"",
                                                 answer->signature()));
        }
        const auto& [isAuthorized, isChallenge, details] = *verdict;
        return {isAuthorized, isChallenge, details.contains("polkit.dismissed")};
    }

 private:
    template <typename... T>
    bus::Connection::Reply call(const char* method, bus::Connection::AutoStart autoStart,
                                bus::Deadline deadline, const T&... arguments) {
        bus::Message message =
            connection_.newCall("org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
                                kAuthority, method, autoStart);
        return connection_.callAndWait(message && message.append(arguments...) ? message : bus::Message(),
                                       deadline);
    }

    bus::Connection::Reply ask() {
        Details details;
        if (!message_.empty()) {
            details.emplace("polkit.message", message_);
        }
        bus::Connection::Reply answer = call(
            "CheckAuthorization", bus::Connection::AutoStart::yes, deadline_,
            Subject{"system-bus-name", {{"name", {connection_.uniqueName()}}}}, request_.right.name, details,
            MayAskUser(request_.flags) ? kAllowUserInteraction : 0U, std::to_string(cancellationId_));
        if (!answer && answer.error().is(bus::error::kTimeout)) {
            withdraw();
            throw std::runtime_error(
                fmt::format("no answer from the authority within {} ms", limit_.count()));
        }
        return answer;
    }

    // A dialog that nobody waits for must not stay.
    void withdraw() {
        const auto answer = call("CancelCheckAuthorization", bus::Connection::AutoStart::no,
                                 bus::Clock::now() + withdrawalLimit_, std::to_string(cancellationId_));
        if (!answer) {
            // It still is when this caller leaves the bus.
            TLOG_INFO("The question to the authority was not withdrawn: {}",
                      EscapeControls(answer.error().message));
        }
    }

    bus::Connection& connection_;
    const AuthorizationRequest& request_;
    const std::chrono::milliseconds limit_;
    const bus::Deadline deadline_;
    const std::chrono::milliseconds withdrawalLimit_;
    std::string message_;  // for the user; empty: the action's own
    unsigned cancellationId_ = 1;
};

std::string RefusalText(const Verdict& verdict, const AuthorizationRequest& request) {
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
    bus::Options options;
    options.address = options_.busAddress.empty() ? bus::SystemBusAddress() : options_.busAddress;
    options.connectDeadline = options_.busDeadline;
    const auto connection = bus::Connection::openAndWait(std::make_shared<bus::Loop>(), options);
    if (!connection) {
        throw std::runtime_error("the message bus cannot be reached: " + connection.error().message);
    }
    const Verdict verdict =
        Question(**connection, request,
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
