#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "sessionbus/SessionBus.h"
#include "useragent/AgentNames.h"

namespace useragent {

// One launch of the program: what it was asked to open, and what lets the window take the focus.
struct LaunchRequest {
    std::vector<std::string> urls;
    std::string activationToken;  // empty: none
};

// Makes the program one per session: the first owns a name on the session bus, the others hand their requests
// over to it (org.freedesktop.Application). An agent claims the name again when the bus was lost and is back,
// or was not there at the start. Main thread.
class ApplicationService {
 public:
    enum class Role {
        first,   // the name is ours
        second,  // somebody else has it
        alone    // there is no bus to tell
    };

    // URLs in one message; who has more sends several.
    static constexpr int kMostUrls = 100;
    // For a bus that is known to answer.
    static constexpr std::chrono::milliseconds kConnectPatience{4000};

    // Begins to connect. A claim waits for that no longer than `connectPatience`.
    explicit ApplicationService(SessionBusPlace place,
                                std::chrono::milliseconds connectPatience = kConnectPatience);
    ~ApplicationService();  // releases the name
    ApplicationService(const ApplicationService&) = delete;
    ApplicationService& operator=(const ApplicationService&) = delete;

    // Waits for the bus, at most five seconds once it is connected. Logs nothing: the settings are not read
    // yet.
    Role claim();

    // What became of a launch.
    struct Launch {
        Role role = Role::alone;
        std::string failure;  // of the second: why the first did not take all; empty when it did
    };
    // Claims the name or, when somebody has it, hands the request over; when that one leaves meanwhile, once
    // more. Waits for who has the name at most that long. What was opened is no longer in the request.
    // `willWait` is called before that; when it returns false the request is given up.
    Launch claimOrHandOver(LaunchRequest& request, std::chrono::milliseconds patience,
                           const std::function<bool()>& willWait);

    // Why one that is alone did not get the name; empty when there is no bus.
    const std::string& refusal() const { return refusal_; }

    // Called with each request that arrives, on the event loop. `done` answers the sender, on any thread:
    // what is not opened is the sender's business again. Without a handler requests are refused.
    using Done = std::function<void(std::size_t notOpened)>;
    using Handler = std::function<void(const LaunchRequest&, Done done)>;
    void setHandler(Handler handler) { handler_ = std::move(handler); }

    // Called with each question how the agent is that a program of the same user asks, on the event loop.
    // `done` takes the answer, on any thread. Without a handler, and to others, it is refused.
    using StatusHandler =
        std::function<void(bool withAddresses, std::function<void(const std::string& json)> done)>;
    void setStatusHandler(StatusHandler handler) { statusHandler_ = std::move(handler); }

    // The first becomes nobody: gives the name back, then its object. Requests that the handler was not given
    // yet are refused, so that their sender claims the name. May be called again.
    void release();

 private:
    using Data = std::map<std::string, std::variant<std::monostate, std::string>>;

    // `ours`: or the bus has us in the queue for it. `refused`: not asked for again on this connection.
    enum class Name { unwanted, wanted, refused, ours };

    static Name nameAfter(const cmn::bus::Error& error);

    std::shared_ptr<const cmn::bus::Objects> objects();
    void open(const cmn::bus::Question& question, const std::vector<std::string>& urls,
              const Data& platformData);
    void status(const cmn::bus::Question& question, bool withAddresses);
    void statusWantedBy(const SessionBus::Reply& user, const cmn::bus::Question& question,
                        bool withAddresses);
    std::string handOver(LaunchRequest& request, std::chrono::steady_clock::time_point deadline);
    std::string owner();
    void busIsReady();
    void busIsLost(const std::string& why);
    void claimedAgain(const SessionBus::Reply& reply);

    const std::chrono::milliseconds connectPatience_;
    Name name_ = Name::unwanted;
    Handler handler_;
    StatusHandler statusHandler_;
    std::string refusal_;
    SessionBus bus_;  // calls the others
};

// The activation token of this process's own launch, removed from the environment: before there are threads.
std::string TakeActivationToken();

}  // namespace useragent
