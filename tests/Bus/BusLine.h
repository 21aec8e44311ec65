#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Common/OwnProcess.h"
#include "linux_bus/Connection.h"
#include "support/PrivateBus.h"
#include "support/Recorder.h"
#include "support/WaitFor.h"

namespace fake {

using Records = std::vector<std::map<std::string, std::string>>;

// Far away, for what is expected to happen.
inline cmn::bus::Deadline Soon() {
    return cmn::bus::Clock::now() + std::chrono::seconds(30);
}

// Memory of this process that is in use.
inline std::size_t ResidentMiB() {
    std::size_t size = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident * 4096 / (1024 * 1024);
}

// Whether memory can be measured: the sanitizers keep what was freed.
inline constexpr bool kMeasuresMemory =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    false;
#else
    true;
#endif

// Waits until the loop has done what it was to do so far.
inline bool Settle(cmn::bus::Loop& loop) {
    const auto done = std::make_shared<std::promise<void>>();
    // Twice: what the loop's thread posts to itself may come behind what another thread posts meanwhile.
    loop.post([&loop, done] { loop.post([done] { done->set_value(); }); });
    return done->get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready;
}

// One connection, and what it tells.
class BusLine {
 public:
    struct Heard {
        std::atomic<int> ready{0};
        std::atomic<int> lost{0};
        Recorder<std::string> reasons;
    };

    BusLine(const std::shared_ptr<cmn::bus::Loop>& loop, cmn::bus::Options options,
            std::function<void(cmn::bus::Question)> asked = nullptr) {
        connection = cmn::bus::Connection::open(loop, std::move(options),
                                                {[heard = heard] { ++heard->ready; },
                                                 [heard = heard](const std::string& why) {
                                                     heard->reasons.add(why);
                                                     ++heard->lost;
                                                 },
                                                 std::move(asked)});
    }
    BusLine(const std::shared_ptr<cmn::bus::Loop>& loop, const std::string& address,
            std::function<void(cmn::bus::Question)> asked = nullptr)
        : BusLine(loop, cmn::bus::Options{.address = address}, std::move(asked)) {}

    cmn::bus::Connection* operator->() const { return connection.get(); }

    // Without the main event loop: any thread.
    bool awaitReady() const {
        return WaitInHandler([&] { return heard->ready == 1; }, std::chrono::seconds(30));
    }
    bool awaitLost() const {
        return WaitInHandler([&] { return heard->lost > 0; }, std::chrono::seconds(30));
    }
    std::string reason() const { return heard->reasons.last(); }

    // Calls a method of another connection.
    template <typename... T>
    cmn::bus::Message to(const std::string& name, const std::string& member, const T&... arguments) const {
        return connection->makeCall(name, "/a", "a.B", member, arguments...);
    }

    const std::shared_ptr<Heard> heard = std::make_shared<Heard>();
    std::shared_ptr<cmn::bus::Connection> connection;
};

// What comes back from one call.
class Answer {
 public:
    using Reply = cmn::bus::Connection::Reply;

    cmn::bus::Connection::Done taker() const { return replies_; }
    std::size_t count() const { return replies_.count(); }
    Reply wait() const {
        WaitInHandler([&] { return count() > 0; }, std::chrono::seconds(30));
        return count() > 0 ? replies_.all().front() : cmn::bus::Error{"test.NoAnswer", ""};
    }
    // The name of the error that came; empty when there was none.
    std::string error() const {
        const Reply reply = wait();
        return reply ? std::string() : reply.error().name;
    }

 private:
    const Recorder<Reply> replies_;
};

// Answers every call with the text that it brings.
inline void Echo(const cmn::bus::Question& question) {
    const auto text = question.message().readOne<std::string>(cmn::bus::kLargestMessage);
    text ? question.reply(*text) : question.fail(text.error());
}

class WithBus : public testing::Test {
 protected:
    ~WithBus() override { loop->stop(); }

    PrivateBus bus;
    const std::shared_ptr<cmn::bus::Loop> loop = std::make_shared<cmn::bus::Loop>();
};

}  // namespace fake
