#pragma once

#include <unistd.h>

#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/ChildProcess.h"

namespace fake {

// An X server of the test's own, without a window manager. Its number is one that no server chooses by
// itself: another test's would take it over while this one is away.
class XServer {
 public:
    explicit XServer(std::vector<std::string> options = {"-nolisten", "tcp"})
        : number_(std::to_string(1000 + getpid() % 30'000)), options_(std::move(options)) {
        start();
    }

    std::string display() const { return ":" + number_; }
    void freeze() const { process_->signal(SIGSTOP); }
    void thaw() const { process_->signal(SIGCONT); }
    void kill() { process_.reset(); }
    void startAgain() { start(); }

 private:
    void start() {
        // Whose last client leaves would refuse the next one while it begins anew.
        std::vector<std::string> command{"Xvfb",    ":" + number_, "-displayfd", "1",
                                         "-screen", "0",           "640x480x24", "-noreset"};
        command.insert(command.end(), options_.begin(), options_.end());
        process_ = std::make_unique<ChildProcess>(command);
        if (process_->readLine() != number_) {
            throw std::runtime_error("Xvfb -- failed: " + process_->errors());
        }
    }

    const std::string number_;
    const std::vector<std::string> options_;
    std::unique_ptr<ChildProcess> process_;
};

}  // namespace fake
