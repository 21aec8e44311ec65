#include "linux_bus/Question.h"

#include <atomic>
#include <utility>

#include "ConnectionCore.h"
#include "common/log.h"

namespace cmn::bus {

struct Question::State {
    State(std::weak_ptr<ConnectionCore> connectionCore, Message question)
        : core(std::move(connectionCore)), message(std::move(question)) {}
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    // Whether an answer is still to be given; only once.
    std::shared_ptr<ConnectionCore> toAnswer() {
        return message.wantsReply() && !answered.exchange(true) ? core.lock() : nullptr;
    }
    void fail(const Error& error);

    const std::weak_ptr<ConnectionCore> core;
    const Message message;
    std::atomic<bool> answered{false};
};

Question::State::~State() {
    fail({error::kFailed, "The message was received but not answered"});
}

void Question::State::fail(const Error& error) {
    if (const auto listening = toAnswer()) {
        // A bus throws out who sends it a malformed name.
        const bool named = sd_bus_interface_name_is_valid(error.name.c_str()) > 0;
        Message answer = listening->newMessage([&](sd_bus* /*bus*/, sd_bus_message** raw) {
            const sd_bus_error told{named ? error.name.c_str() : error::kFailed, nullptr, 0};
            return sd_bus_message_new_method_error(message.raw(), raw, &told);
        });
        if (answer && answer.append(error.message)) {
            listening->send(answer);
        }
    }
}

Question::Question(std::weak_ptr<ConnectionCore> connection, Message message)
    : state_(std::make_shared<State>(std::move(connection), std::move(message))) {}

const Message& Question::message() const {
    return state_->message;
}

Message Question::newReply() const {
    const auto listening = state_->toAnswer();
    return listening ? listening->newMessage([this](sd_bus* /*bus*/, sd_bus_message** raw) {
        return sd_bus_message_new_method_return(state_->message.raw(), raw);
    })
                     : Message();
}

void Question::send(const Message& answer, bool fits) const {
    const auto listening = state_->core.lock();
    if (!fits) {
        TLOG_ERROR("An answer to {} is too large to be sent", message().member());
        state_->answered = false;
        fail({error::kLimitsExceeded, "The answer is too large"});
    } else if (listening && !listening->send(answer) && listening->isReady()) {
        TLOG_ERROR("An answer to {} is lost: too much is waiting to be sent", message().member());
    }
}

void Question::fail(const Error& error) const {
    state_->fail(error);
}

}  // namespace cmn::bus
