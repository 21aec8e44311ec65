#include "linux_usercommon/DBusChannel.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace cmn {

const DBusMethod* DBusInterfaceDescription::find(std::string_view method) const {
    const auto found = std::find_if(methods.begin(), methods.end(),
                                    [&](const DBusMethod& candidate) { return candidate.name == method; });
    return found != methods.end() ? &*found : nullptr;
}

struct DBusReply::State {
    explicit State(Send function) : send(std::move(function)) {}
    ~State() { answer(DBusError{dbus_error::kFailed, "The message was received but not answered"}); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void answer(std::variant<DBusArguments, DBusError> result) {
        if (!answered.exchange(true) && send) {
            send(std::move(result));
        }
    }

    const Send send;
    std::atomic<bool> answered{false};
};

DBusReply::DBusReply(Send send) : state_(std::make_shared<State>(std::move(send))) {}

void DBusReply::operator()(DBusArguments arguments) const {
    state_->answer(std::move(arguments));
}

void DBusReply::error(const char* name, std::string message) const {
    state_->answer(DBusError{name, std::move(message)});
}

}  // namespace cmn
