#include "support/LogCapture.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace fake {
namespace {

const std::string kMarker = "end of capture ";

std::filesystem::path MakeFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tessarin-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) {
        throw std::runtime_error("cannot make a temporary folder");
    }
    return pattern;
}

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace

TemporaryFolder::TemporaryFolder() : path_(MakeFolder()) {}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

LogCapture::LogCapture(LogLevel level) : LogCapture(level, new TemporaryFolder) {}

LogCapture::LogCapture(LogLevel level, TemporaryFolder* folder)
    : LogReader(*folder / "captured_0.log"), folder_(folder) {
    SetLogPath((*folder / "captured").c_str());
    SetLogLevel(level);
    leaveOutSoFar();
}

LogCapture::~LogCapture() {
    text();
    SetLogLevel(LogLevel::Info);
}

std::vector<std::string> ReadLines(const std::filesystem::path& file) {
    std::vector<std::string> lines;
    std::istringstream in(ReadFile(file));
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string LogReader::text() {
    static std::atomic<int> serial{0};
    const std::string marker = kMarker + std::to_string(++serial);
    LogMessage(marker);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        const std::string content = ReadFile(file_);
        const auto end = content.find(marker + "\n");
        if (end != std::string::npos) {
            read_ = end + marker.size() + 1;
            return content.substr(begin_, end - begin_);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ADD_FAILURE() << "the log writer did not write within 20 seconds";
    return {};
}

std::vector<std::string> LogReader::linesWith(const std::string& part) {
    std::vector<std::string> found;
    std::istringstream in(text());
    for (std::string line; std::getline(in, line);) {
        if (line.find(part) != std::string::npos && line.find(kMarker) == std::string::npos) {
            found.push_back(line);
        }
    }
    return found;
}

}  // namespace fake
