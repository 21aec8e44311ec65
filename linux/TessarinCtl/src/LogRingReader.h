#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <vector>

namespace ctl {

// Reads the files "{stem}_{index}.log" of a log, which another process writes in a ring: in the order in
// which they were written, then what is added.
class LogRingReader {
 public:
    using Take = std::function<void(const std::string& text)>;

    explicit LogRingReader(std::filesystem::path stem) : stem_(std::move(stem)) {}

    // When its newest file was written; nothing when it has none.
    std::optional<std::filesystem::file_time_type> lastWritten() const;

    // Passes on what was not passed on before, piece by piece. False when nothing could be read.
    bool readOn(const Take& take);

 private:
    struct File {
        std::filesystem::path path;
        std::filesystem::file_time_type written;
        std::uint64_t size = 0;
    };

    std::vector<File> files() const;  // the one written last at the end
    static bool readFrom(const std::filesystem::path& path, std::uint64_t& position, const Take& take);

    const std::filesystem::path stem_;
    std::filesystem::path current_;  // read so far; empty at first
    std::uint64_t position_ = 0;     // in that one
};

}  // namespace ctl
