#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/log.h"

namespace fake {

// Reads the file that the process's log writes.
class LogReader {
 public:
    explicit LogReader(std::filesystem::path file) : file_(std::move(file)) {}

    // Everything logged before this call, complete: waits until a marker sent through the log has been
    // written. What was left out is not part of it.
    std::string text();

    // The lines of `text` that contain `part`; markers of earlier calls are left out.
    std::vector<std::string> linesWith(const std::string& part);
    std::vector<std::string> lines() { return linesWith(""); }
    bool contains(const std::string& part) { return !linesWith(part).empty(); }
    std::size_t count(const std::string& part) { return linesWith(part).size(); }

 protected:
    // Leaves out what was logged before this call.
    void leaveOutSoFar() {
        text();
        begin_ = read_;
    }

 private:
    std::filesystem::path file_;
    std::size_t begin_ = 0;
    std::size_t read_ = 0;  // where the file went on after the last marker
};

// The lines of a text file, without their ends; none when there is no such file.
std::vector<std::string> ReadLines(const std::filesystem::path& file);

// A new empty folder that is removed with its content.
class TemporaryFolder {
 public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
    std::filesystem::path path_;
};

// Sends the process's log to a file of its own while it lives, at the given level; lines that waited to be
// written before are left out. One at a time.
class LogCapture : public LogReader {
 public:
    explicit LogCapture(LogLevel level = LogLevel::Trace);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

 private:
    LogCapture(LogLevel level, TemporaryFolder* folder);

    std::unique_ptr<TemporaryFolder> folder_;
};

}  // namespace fake
