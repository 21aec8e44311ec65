#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <string>
#include <thread>

#include "AtspiDesktop.h"
#include "support/ChildProcess.h"

namespace fake {

// An application of its own process with one window, that can be stopped and killed.
class Browser {
 public:
    explicit Browser(AtspiDesktop& desktop, const std::string& url = "start")
        : process_({ATSPI_PROGRAM, desktop.accessibilityBus.address()}),
          busName_(process_.readLine().value_or("")) {
        const std::string paths = tell("window Page|" + url);
        frame = paths.substr(0, paths.find(' '));
        field = paths.substr(paths.find(' ') + 1);
        desktop.registerApplication(busName_);
    }

    std::int32_t pid() const { return process_.pid(); }
    const std::string& busName() const { return busName_; }

    void say(const std::string& line) const { process_.write(line + "\n"); }
    std::string heard() { return process_.readLine().value_or("nothing"); }
    std::string tell(const std::string& line) {
        say(line);
        return heard();
    }
    void edit(const std::string& text) { EXPECT_EQ(tell("edit " + field + "|" + text), "done"); }

    void stop() const {
        process_.signal(SIGSTOP);
        // The signal does its work in its own time.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    void resume() const { process_.signal(SIGCONT); }
    void kill() {
        process_.signal(SIGKILL);
        process_.wait();
    }

    std::string frame, field;

 private:
    ChildProcess process_;
    std::string busName_;
};

}  // namespace fake
