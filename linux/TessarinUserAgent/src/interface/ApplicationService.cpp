#include "interface/ApplicationService.h"

#include <fmt/format.h>
#include <unistd.h>

#include <QByteArray>
#include <cstdint>
#include <exception>
#include <utility>

#include "common/log.h"
#include "useragent/PropertiesURL.h"

namespace useragent {

namespace {

namespace bus = cmn::bus;

constexpr const char* kInterface = "org.freedesktop.Application";
constexpr const char* kTokenKey = "activation-token";
constexpr const char* kStartupIdKey = "desktop-startup-id";

// A caller may be anybody on the session bus.
constexpr std::size_t kLongestToken = 1024;

constexpr std::chrono::seconds kAnswerPatience{5};
// For the bus to take a name back; it goes with the connection in any case.
constexpr std::chrono::seconds kReleasePatience{1};

// Of RequestName.
constexpr std::uint32_t kDoNotQueue = 4;
constexpr std::uint32_t kQueue = 0;
constexpr std::uint32_t kIsOwner = 1;
constexpr std::uint32_t kIsInQueue = 2;
constexpr std::uint32_t kWasOwner = 4;

bool IsOwner(std::uint32_t answer) {
    return answer == kIsOwner || answer == kWasOwner;
}

}  // namespace

ApplicationService::ApplicationService(SessionBusPlace place, std::chrono::milliseconds connectPatience)
    : connectPatience_(connectPatience),
      bus_(std::move(place), {[this] { busIsReady(); }, [this](const std::string& why) { busIsLost(why); }},
           objects()) {}

ApplicationService::~ApplicationService() {
    release();
}

std::shared_ptr<const bus::Objects> ApplicationService::objects() {
    auto objects = std::make_shared<bus::Objects>();
    objects->add(
        kApplicationPath,
        {bus::Interface(kInterface)
             .method("Activate", {"platform_data"}, [](const Data&) {})
             .methodAnsweredLater<void>("Open", {"uris", "platform_data"}, this, &ApplicationService::open)
             .method(
                 "ActivateAction", {"action_name", "parameter", "platform_data"},
                 [](const std::string&, const std::vector<std::variant<std::monostate>>&, const Data&) {}),
         bus::Interface(kStatusInterface)
             .methodAnsweredLater<std::string>(kStatusMethod, {"addresses", "status"}, this,
                                               &ApplicationService::status)});
    return objects;
}

ApplicationService::Role ApplicationService::claim() {
    name_ = Name::wanted;
    bus_.takeQuestions(true);  // who owns the name is called at once
    if (!bus_.waitUntilReady(connectPatience_)) {
        refusal_ = bus_.failure();
        return Role::alone;
    }
    const auto reply = bus_.askBusAndWait("RequestName", kAnswerPatience, kApplicationName, kDoNotQueue);
    const auto answer = reply ? reply->readOne<std::uint32_t>() : reply.error();
    if (!answer) {
        refusal_ = answer.error().message;
        name_ = nameAfter(answer.error());
        return Role::alone;
    }
    name_ = IsOwner(*answer) ? Name::ours : Name::unwanted;
    return IsOwner(*answer) ? Role::first : Role::second;
}

// A bus that did not answer in time may give the name yet; asked again by a connection that is new, it says
// so.
ApplicationService::Name ApplicationService::nameAfter(const bus::Error& error) {
    const bool isOpen = error.is(bus::error::kTimeout) || error.is(bus::error::kDisconnected);
    return isOpen ? Name::wanted : Name::refused;
}

void ApplicationService::busIsReady() {
    if (name_ == Name::wanted) {
        bus_.call(bus_.connection().makeCall(bus::kBusName, bus::kBusPath, bus::kBusName, "RequestName",
                                             kApplicationName, kQueue),
                  kAnswerPatience, [this](const SessionBus::Reply& reply) { claimedAgain(reply); });
    }
}

void ApplicationService::claimedAgain(const SessionBus::Reply& reply) {
    if (name_ != Name::wanted) {
        return;
    }
    const auto answer = reply ? reply->readOne<std::uint32_t>() : reply.error();
    if (answer) {
        name_ = Name::ours;
        refusal_.clear();
        if (*answer == kIsInQueue) {
            TLOG_WARN("Another agent has the name on the session bus; this one waits for it");
        } else {
            TLOG_INFO("The agent has its name on the session bus");
        }
    } else if (!answer.error().is(bus::error::kDisconnected)) {
        if (std::exchange(refusal_, answer.error().message) != answer.error().message) {
            TLOG_WARN("The session bus does not give the agent its name: {}", refusal_);
        }
        name_ = nameAfter(answer.error());
    }
}

void ApplicationService::busIsLost(const std::string& why) {
    if (name_ == Name::ours) {
        TLOG_WARN("The session bus is lost: {}; the agent claims its name again when it is back", why);
    }
    if (name_ != Name::unwanted) {
        name_ = Name::wanted;
    }
}

void ApplicationService::release() {
    const Name before = std::exchange(name_, Name::unwanted);
    if (before == Name::ours || before == Name::wanted) {
        const auto answer = bus_.askBusAndWait("ReleaseName", kReleasePatience, kApplicationName);
        if (!answer && !answer.error().is(bus::error::kDisconnected)) {
            TLOG_WARN("The session bus does not take the agent's name back: {}", answer.error().message);
        }
    }
    // From here on nobody finds us. Whose request has arrived but was not looked at is told that it found no
    // object.
    bus_.takeQuestions(false);
    handler_ = nullptr;  // with what it owns: after the name
    statusHandler_ = nullptr;
}

std::string ApplicationService::owner() {
    const auto reply = bus_.askBusAndWait("GetNameOwner", kAnswerPatience, kApplicationName);
    const auto name = reply ? reply->readOne<std::string>() : reply.error();
    return name ? *name : std::string();
}

ApplicationService::Launch ApplicationService::claimOrHandOver(LaunchRequest& request,
                                                               std::chrono::milliseconds patience,
                                                               const std::function<bool()>& willWait) {
    const auto deadline = bus::Clock::now() + patience;
    Launch launch{claim(), {}};
    if (launch.role == Role::second && !willWait()) {
        return launch;
    }
    while (launch.role == Role::second) {
        const std::string asked = owner();
        launch.failure = handOver(request, deadline);
        if (launch.failure.empty()) {
            return launch;
        }
        const Role again = claim();
        if (again == Role::first) {
            return {again, {}};
        }
        if (again == Role::alone || owner() == asked || bus::Clock::now() >= deadline) {
            return launch;
        }
    }
    return launch;
}

// One URL a message: which of them are open is known whatever becomes of the others.
std::string ApplicationService::handOver(LaunchRequest& request, bus::Deadline deadline) {
    bus::Connection& connection = bus_.connection();
    Data data;
    if (!request.activationToken.empty()) {
        data = {{kTokenKey, request.activationToken}, {kStartupIdKey, request.activationToken}};
    }
    const auto methodCall = [&](const char* method, const auto&... arguments) {
        return connection.makeCall(kApplicationName, kApplicationPath, kInterface, method, arguments...,
                                   std::exchange(data, {}));
    };
    if (request.urls.empty()) {
        const auto answer = connection.callAndWait(methodCall("Activate"), deadline);
        return answer ? std::string() : answer.error().message;
    }
    std::vector<bus::Message> calls;
    for (const std::string& url : request.urls) {
        calls.push_back(methodCall("Open", std::vector{TextOfURL(url)}));
    }
    const auto answers = connection.callAndWait(std::move(calls), deadline);
    LaunchRequest left;
    std::string failure;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        if (answers[i]) {
            continue;
        }
        failure = failure.empty() ? answers[i].error().message : failure;
        left.urls.push_back(std::move(request.urls[i]));
        left.activationToken = i == 0 ? request.activationToken : left.activationToken;
    }
    request = std::move(left);
    return request.urls.size() > 1 ? fmt::format("{}; {} URLs in all", failure, request.urls.size())
                                   : failure;
}

void ApplicationService::open(const bus::Question& question, const std::vector<std::string>& urls,
                              const Data& data) {
    const auto handler = handler_;  // it may replace itself
    if (!handler) {
        question.fail({bus::error::kFailed, "the agent is not running"});
        return;
    }
    if (urls.size() > kMostUrls) {
        question.fail(
            {bus::error::kLimitsExceeded, fmt::format("more than {} URLs in one request", kMostUrls)});
        return;
    }
    LaunchRequest request{urls, {}};
    for (const char* key : {kStartupIdKey, kTokenKey}) {
        const auto found = data.find(key);
        const auto* const token = found != data.end() ? std::get_if<std::string>(&found->second) : nullptr;
        if (token != nullptr && !token->empty()) {
            request.activationToken = token->size() <= kLongestToken ? *token : std::string();
        }
    }
    try {
        handler(request, [question, all = urls.size()](std::size_t notOpened) {
            if (notOpened == 0) {
                question.reply();
            } else {
                question.fail(
                    {bus::error::kFailed, fmt::format("{} of {} URLs are not opened", notOpened, all)});
            }
        });
    } catch (const std::exception& e) {
        TLOG_ERROR("A request to open something failed: {}", e.what());
        question.fail({bus::error::kFailed, e.what()});
    }
}

// The bus of a session is its user's, but root comes in, and who was let in by a configuration.
void ApplicationService::status(const bus::Question& question, bool withAddresses) {
    bus_.call(bus_.connection().makeCall(bus::kBusName, bus::kBusPath, bus::kBusName, "GetConnectionUnixUser",
                                         std::string(question.message().sender())),
              kAnswerPatience, [this, question, withAddresses](const SessionBus::Reply& user) {
                  statusWantedBy(user, question, withAddresses);
              });
}

void ApplicationService::statusWantedBy(const SessionBus::Reply& user, const bus::Question& question,
                                        bool withAddresses) {
    const auto id = user ? user->readOne<std::uint32_t>() : user.error();
    if (!id || *id != ::geteuid()) {
        question.fail({bus::error::kAccessDenied, "Only programs of the same user are told"});
        return;
    }
    const auto handler = statusHandler_;
    if (!handler) {
        question.fail({bus::error::kFailed, "the agent is not running"});
        return;
    }
    handler(withAddresses, [question](const std::string& json) { question.reply(json); });
}

std::string TakeActivationToken() {
    for (const char* name : {"XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID"}) {
        const QByteArray token = qgetenv(name);
        if (!token.isEmpty()) {
            qunsetenv("XDG_ACTIVATION_TOKEN");
            qunsetenv("DESKTOP_STARTUP_ID");
            return static_cast<std::size_t>(token.size()) <= kLongestToken ? token.toStdString()
                                                                           : std::string();
        }
    }
    return {};
}

}  // namespace useragent
