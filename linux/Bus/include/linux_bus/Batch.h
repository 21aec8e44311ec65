#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "linux_bus/Connection.h"

namespace cmn::bus {

// The middle of the time left, for a step after which there are others.
Deadline HalfWayTo(Deadline deadline);

// A method call, and how its answer is read. A service that is absent may be started for it.
template <typename T>
struct Query {
    std::string destination;
    std::string path;
    const char* interface = nullptr;
    const char* member = nullptr;
    std::function<bool(Message&)> write = nullptr;  // adds the arguments, if there are any
    Result<T> (*read)(const Message& answer) = [](const Message& answer) { return answer.readOne<T>(); };

    Message makeCall(Connection& connection) const {
        Message call = connection.newCall(destination, path, interface, member, Connection::AutoStart::yes);
        return call && (!write || write(call)) ? call : Message();
    }
};

// Asks without waiting; `done` is called as that of `Connection::call` is.
template <typename T>
void Ask(Connection& connection, const Query<T>& query, Deadline deadline,
         std::function<void(const Result<T>&)> done) {
    connection.call(query.makeCall(connection), deadline,
                    [read = query.read, done = std::move(done)](const Connection::Reply& reply) {
                        done(reply ? read(*reply) : Result<T>(reply.error()));
                    });
}

// Calls that are on their way together, a bounded number at a time, and one wait for their answers. One
// thread, which must not be the loop's.
class Batch {
 public:
    // What became of one call; to be read after `wait`.
    template <typename T>
    class Answer {
     public:
        // Whether there was one until the deadline, be it an error.
        bool arrived() const { return state_->arrived; }
        const Result<T>& read() const { return state_->value; }

     private:
        friend class Batch;
        struct State {
            Result<T> value = Error{error::kTimeout, "No answer in time"};
            bool arrived = false;
        };
        std::shared_ptr<State> state_ = std::make_shared<State>();
    };

    Batch(std::shared_ptr<Connection> connection, Deadline deadline);
    // Gives up what is not answered.
    ~Batch();
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    // Sends the call; waits first when many are on their way. What comes is read at once, in the loop's
    // thread: no more is kept of it than was asked for.
    template <typename T>
    Answer<T> ask(const Query<T>& query) {
        Answer<T> answer;
        send(
            query.destination, [&] { return query.makeCall(*connection_); },
            [state = answer.state_, read = query.read](const Connection::Reply& reply) {
                state->value = reply ? read(*reply) : Result<T>(reply.error());
                state->arrived = true;
            });
        return answer;
    }

    // False when not all calls were answered until the deadline.
    bool wait();

    // Who left all calls unanswered that were sent to it, and names that nobody has. After `wait`.
    const std::vector<std::string>& silent() const { return silent_; }
    const std::vector<std::string>& absent() const { return absent_; }

 private:
    struct Calls;

    void send(const std::string& destination, const std::function<Message()>& makeCall,
              Connection::Done take);
    void end();

    const std::shared_ptr<Connection> connection_;
    const Deadline deadline_;
    const std::shared_ptr<Calls> calls_;
    std::vector<std::string> silent_;
    std::vector<std::string> absent_;
};

// The same for one call.
template <typename T>
Result<T> AskAndWait(const std::shared_ptr<Connection>& connection, const Query<T>& query,
                     Deadline deadline) {
    Batch batch(connection, deadline);
    const auto answer = batch.ask(query);
    batch.wait();
    return answer.read();
}

}  // namespace cmn::bus
