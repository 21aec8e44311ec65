#include "linux_bus/Loop.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <exception>
#include <utility>

#include "common/log.h"
#include "common/threads.h"

namespace cmn::bus {

namespace {

void RunNoThrow(const Loop::Task& task) {
    try {
        task();
    } catch (const std::exception& e) {
        TLOG_ERROR("Task -- failed: {}", e.what());
    }
}

}  // namespace

Loop::Loop()
    : thread_(MakeThread([this] {
          return std::thread([context = context_] {
              const auto work = boost::asio::make_work_guard(*context);
              context->run();
          });
      })),
      id_(thread_.get_id()) {}

Loop::~Loop() {
    stop();
}

void Loop::post(Task task) {
    const std::unique_lock lock(mutex_);
    if (!stopped_) {
        boost::asio::post(*context_, [task = std::move(task)] { RunNoThrow(task); });
    }
}

void Loop::after(std::chrono::nanoseconds delay, Task task) {
    const std::unique_lock lock(mutex_);
    if (!stopped_) {
        const auto timer = std::make_shared<boost::asio::steady_timer>(*context_, delay);
        timer->async_wait([timer, task = std::move(task)](const boost::system::error_code& error) {
            if (!error) {
                RunNoThrow(task);
            }
        });
    }
}

void Loop::stop() {
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(stopped_, true)) {
            return;
        }
        boost::asio::post(*context_, [context = context_] { context->stop(); });
    }
    if (isHere()) {
        thread_.detach();
    } else {
        thread_.join();
    }
}

}  // namespace cmn::bus
