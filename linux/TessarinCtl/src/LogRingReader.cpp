#include "LogRingReader.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <tuple>

namespace ctl {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kPiece = 65'536;

}  // namespace

std::vector<LogRingReader::File> LogRingReader::files() const {
    std::vector<File> found;
    std::error_code error;
    // The indices of a ring have no gaps.
    for (int index = 0;; ++index) {
        File file{stem_.string() + '_' + std::to_string(index) + ".log", {}, 0};
        file.written = fs::last_write_time(file.path, error);
        if (!error) {
            file.size = fs::file_size(file.path, error);
        }
        if (error && index > 0) {
            break;
        }
        if (!error) {
            found.push_back(std::move(file));
        }
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const File& a, const File& b) { return a.written < b.written; });
    return found;
}

std::optional<fs::file_time_type> LogRingReader::lastWritten() const {
    const auto found = files();
    return found.empty() ? std::nullopt : std::optional(found.back().written);
}

bool LogRingReader::readFrom(const fs::path& path, std::uint64_t& position, const Take& take) {
    std::ifstream in(path, std::ios::binary);
    if (!in || !in.seekg(static_cast<std::streamoff>(position))) {
        return false;
    }
    std::string piece(kPiece, '\0');
    while (in.read(piece.data(), static_cast<std::streamsize>(piece.size())) || in.gcount() > 0) {
        const auto count = static_cast<std::size_t>(in.gcount());
        position += count;
        take(piece.substr(0, count));
    }
    return true;
}

bool LogRingReader::readOn(const Take& take) {
    const auto found = files();
    if (found.empty()) {
        return false;
    }
    auto next =
        std::find_if(found.begin(), found.end(), [this](const File& file) { return file.path == current_; });
    if (next == found.end()) {
        next = found.begin();
        position_ = 0;
    } else if (next->size < position_) {
        position_ = 0;  // the ring came round: it was made anew
    }
    // The rest of the one that was written last time, then those after it.
    bool good = true;
    for (; next != found.end(); ++next) {
        if (next->path != current_) {
            position_ = 0;
        }
        current_ = next->path;
        good = readFrom(current_, position_, take) && good;
    }
    return good;
}

}  // namespace ctl
