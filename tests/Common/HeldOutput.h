#pragma once

#include <condition_variable>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/LogFile.h"

namespace fake {

// What a log wrote through a HeldOutput, and the handle that stops its writer. Outlives the log.
class Written {
 public:
    struct Pass {
        std::string file;
        std::string text;
    };

    // From now on the writer stops at the beginning of its next pass.
    void hold() {
        const std::lock_guard lock(mutex_);
        held_ = true;
    }
    void release() {
        const std::lock_guard lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }
    // Waits until the writer has stopped.
    void waitForStop() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return stopped_; });
    }
    void refuseFiles() {
        const std::lock_guard lock(mutex_);
        accepts_ = false;
    }
    // The files together have room for so many more bytes, at first without end.
    void setRoom(std::size_t bytes) {
        const std::lock_guard lock(mutex_);
        room_ = bytes;
    }
    void setTime(std::time_t time) {
        const std::lock_guard lock(mutex_);
        time_ = time;
    }

    std::vector<Pass> passes() {
        const std::lock_guard lock(mutex_);
        return passes_;
    }
    std::string text() {
        std::string all;
        for (const auto& pass : passes())
            all += pass.text;
        return all;
    }
    int clockReads() {
        const std::lock_guard lock(mutex_);
        return clockReads_;
    }
    std::string echoed() {
        const std::lock_guard lock(mutex_);
        return echoed_;
    }

 private:
    friend class HeldOutput;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;
    bool stopped_ = false;
    bool accepts_ = true;
    std::size_t room_ = std::numeric_limits<std::size_t>::max();
    std::time_t time_ = 1'000'000'000;
    int clockReads_ = 0;
    std::vector<Pass> passes_;
    std::string echoed_;
};

// Keeps what a log writes in memory, also the beginning of a text that there is no room for. Empty texts (the
// log's test whether a file can be opened) never stop.
class HeldOutput : public cmn::LogOutput {
 public:
    explicit HeldOutput(std::shared_ptr<Written> written) : written_(std::move(written)) {}

    std::time_t now() override {
        const std::lock_guard lock(written_->mutex_);
        ++written_->clockReads_;
        return written_->time_;
    }
    std::optional<std::size_t> append(const char* file, std::string_view text) override {
        std::unique_lock lock(written_->mutex_);
        if (!text.empty()) {
            written_->stopped_ = written_->held_;
            written_->changed_.notify_all();
            written_->changed_.wait(lock, [this] { return !written_->held_; });
            written_->stopped_ = false;
        }
        if (!written_->accepts_)
            return std::nullopt;
        const auto taken = text.substr(0, written_->room_);
        written_->room_ -= taken.size();
        if (!taken.empty())
            written_->passes_.push_back({file, std::string(taken)});
        return taken.size();
    }
    void echo(std::string_view text) override {
        const std::lock_guard lock(written_->mutex_);
        written_->echoed_ += text;
    }

 private:
    std::shared_ptr<Written> written_;
};

}  // namespace fake
