#include "linux_bus/Connection.h"

#include <atomic>
#include <cerrno>
#include <future>
#include <utility>
#include <variant>

#include "ConnectionCore.h"

namespace cmn::bus {

namespace {

// Beyond the deadline, for a loop that is late.
constexpr std::chrono::seconds kSlack{1};

// The library takes a member that starts with a digit, and the bus throws out who sends one.
bool IsMember(const std::string& name) {
    return sd_bus_member_name_is_valid(name.c_str()) > 0 && (name[0] < '0' || name[0] > '9');
}

}  // namespace

std::shared_ptr<Connection> Connection::open(std::shared_ptr<Loop> loop, Options options, Events events) {
    const auto core =
        std::make_shared<ConnectionCore>(std::move(loop), std::move(options), std::move(events));
    core->loop()->post([core] { core->connectNext("its address names no local socket"); });
    // What is kept weakly outlives its object: that lets go of the core itself.
    return {core.get(), [core = core](Connection*) mutable { std::exchange(core, nullptr)->drop(); }};
}

Result<std::shared_ptr<Connection>> Connection::openAndWait(std::shared_ptr<Loop> loop, Options options) {
    const auto outcome = std::make_shared<std::promise<std::optional<Error>>>();
    const auto told = std::make_shared<std::atomic<bool>>(false);
    const auto tell = [outcome, told](const std::optional<Error>& error) {
        if (!told->exchange(true)) {
            outcome->set_value(error);
        }
    };
    const auto limit = options.connectDeadline * static_cast<int>(LocalAddresses(options.address).size());
    auto connection = open(std::move(loop), std::move(options),
                           {[tell] { tell(std::nullopt); },
                            [tell](const std::string& why) {
                                tell(Error{error::kDisconnected, why});
                            },
                            nullptr});
    auto future = outcome->get_future();
    Loop::aboutToWait();
    if (future.wait_for(limit + kSlack) != std::future_status::ready) {
        return Error{error::kTimeout, "nobody is left to open it"};
    }
    if (auto error = future.get()) {
        return *error;
    }
    return connection;
}

Message ConnectionCore::newCall(const std::string& destination, const std::string& path,
                                const std::string& interface, const std::string& member,
                                AutoStart autoStart) {
    return newMessage([&](sd_bus* bus, sd_bus_message** raw) {
        const int made = IsMember(member)
                             ? sd_bus_message_new_method_call(bus, raw, destination.c_str(), path.c_str(),
                                                              interface.c_str(), member.c_str())
                             : -EINVAL;
        return made >= 0 ? sd_bus_message_set_auto_start(*raw, autoStart == AutoStart::yes ? 1 : 0) : made;
    });
}

Message ConnectionCore::newSignal(const std::string& path, const std::string& interface,
                                  const std::string& member) {
    return newMessage([&](sd_bus* bus, sd_bus_message** raw) {
        return IsMember(member)
                   ? sd_bus_message_new_signal(bus, raw, path.c_str(), interface.c_str(), member.c_str())
                   : -EINVAL;
    });
}

Connection::Reply Connection::callAndWait(Message message, Deadline deadline) {
    std::vector<Message> one;
    one.push_back(std::move(message));
    return std::move(callAndWait(std::move(one), deadline).front());
}

std::vector<Connection::Reply> Connection::callAndWait(std::vector<Message> messages, Deadline deadline) {
    std::vector<std::pair<CallId, std::future<Reply>>> calls;
    calls.reserve(messages.size());
    for (Message& message : messages) {
        // Owned by the handler alone: when nobody will call it any more, nobody waits.
        auto promise = std::make_shared<std::promise<Reply>>();
        std::future<Reply> answer = promise->get_future();
        const CallId id =
            call(std::move(message), deadline,
                 [promise = std::move(promise)](const Reply& reply) { promise->set_value(reply); });
        calls.emplace_back(id, std::move(answer));
    }
    Loop::aboutToWait();
    std::vector<Reply> replies;
    replies.reserve(calls.size());
    for (auto& [id, answer] : calls) {
        if (answer.wait_until(deadline + kSlack) != std::future_status::ready) {
            cancel(id);
            replies.emplace_back(Error{error::kTimeout, "No answer in time"});
            continue;
        }
        try {
            replies.push_back(answer.get());
        } catch (const std::future_error&) {
            replies.emplace_back(Error{error::kDisconnected, "The connection has ended"});
        }
    }
    return replies;
}

void Connection::askOwner(const std::string& name,
                          std::function<void(const Result<std::optional<std::string>>&)> done) {
    askBus(
        "GetNameOwner",
        [done = std::move(done)](const Reply& reply) {
            if (const auto owner = reply ? reply->readOne<std::string>() : reply.error()) {
                done(std::optional(*owner));
            } else if (owner.error().is(error::kNameHasNoOwner)) {
                done(std::optional<std::string>());
            } else {
                done(owner.error());
            }
        },
        name);
}

void Connection::askCredentials(const std::string& name,
                                std::function<void(const Result<Credentials>&)> done) {
    using Properties = std::map<std::string, std::variant<std::monostate, std::uint32_t>>;
    askBus(
        "GetConnectionCredentials",
        [done = std::move(done)](const Reply& reply) {
            const auto properties = reply ? reply->readOne<Properties>() : reply.error();
            if (!properties) {
                done(properties.error());
                return;
            }
            const auto number = [&](const char* key) {
                const auto found = properties->find(key);
                return found != properties->end() ? std::get_if<std::uint32_t>(&found->second) : nullptr;
            };
            const std::uint32_t* const user = number("UnixUserID");
            const std::uint32_t* const process = number("ProcessID");
            if (user == nullptr) {
                done(Error{error::kFailed, "The bus does not know the user"});
                return;
            }
            done(Credentials{*user, process != nullptr ? static_cast<pid_t>(*process) : 0});
        },
        name);
}

Subscription::Subscription(std::shared_ptr<State> state) : state_(std::move(state)) {}

Subscription::~Subscription() {
    state_->active = false;
    if (const auto core = state_->core.lock()) {
        core->unsubscribe(*state_);
    }
}

}  // namespace cmn::bus
