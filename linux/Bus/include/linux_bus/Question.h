#pragma once

#include <memory>
#include <string>

#include "linux_bus/Message.h"
#include "linux_bus/Result.h"

namespace cmn::bus {

class ConnectionCore;

// A method call that arrived. Copyable; any thread. The first answer counts. When all copies are gone without
// one, the caller gets an error instead of waiting for ever. A caller that wants no answer gets none.
class Question {
 public:
    Question(std::weak_ptr<ConnectionCore> connection, Message message);

    const Message& message() const;

    // Written on the calling thread. An answer that is too large becomes an error, with a line in the log.
    template <typename... T>
    void reply(const T&... values) const {
        if (Message answer = newReply()) {
            const bool fits = answer.append(values...);
            send(answer, fits);
        }
    }
    void fail(const Error& error) const;

 private:
    struct State;

    // None when it is answered already or nobody listens.
    Message newReply() const;
    void send(const Message& answer, bool fits) const;

    std::shared_ptr<State> state_;
};

}  // namespace cmn::bus
