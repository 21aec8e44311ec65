#include "common/LogRing.h"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

#include "common/fs.h"

namespace cmn {

namespace {

std::string FileName(const std::string& stem, std::uint32_t index, const std::string& extension) {
    return fmt::format("{}_{}.{}", stem, index, extension);
}

}  // namespace

LogRing::LogRing(LogOutput& output) : output_(output) {
    setCurrent(0);
}

void LogRing::setMaxSize(std::uint64_t bytes) {
    maxSize_ = bytes;
    refreshCurrent();
}

void LogRing::setFileCount(std::uint32_t count) {
    if (count == 0)
        return;
    fileCount_ = count;
    refreshCurrent();
}

void LogRing::setExtension(const std::string& extension) {
    if (extension.empty())
        return;
    {
        const std::lock_guard lock(nameMutex_);
        extension_ = extension;
    }
    refreshCurrent();
}

void LogRing::setStem(const std::string& stem) {
    if (stem.empty() || !output_.append(name(stem).c_str(), {}))
        return;
    {
        const std::lock_guard lock(nameMutex_);
        stem_ = stem;
    }
    refreshCurrent();
}

std::string LogRing::name() const {
    const std::lock_guard lock(nameMutex_);
    return nameOf(current_);
}

std::string LogRing::name(const std::string& stem) const {
    const std::lock_guard lock(nameMutex_);
    return FileName(stem, current_, extension_);
}

std::string LogRing::nameOf(std::uint32_t index) const {
    return FileName(stem_, index, extension_);
}

void LogRing::setCurrent(std::uint32_t index) {
    const std::lock_guard lock(nameMutex_);
    current_ = index;
    currentName_ = names_.insert(nameOf(index)).first->c_str();
}

// The first file with room below the limit, else the one written longest ago. The test before a write is
// another one on purpose: it moves on only when a file is above the limit.
void LogRing::refreshCurrent() {
    std::uint32_t oldest = 0;
    auto oldestTime = std::filesystem::file_time_type::max();
    for (std::uint32_t i = 0; i < fileCount_; ++i) {
        if (FileSizeNoThrow(nameOf(i)) < maxSize_) {
            setCurrent(i);
            return;
        }
        const auto time = FileLastWriteTimeNoThrow(nameOf(i));
        if (time < oldestTime) {
            oldest = i;
            oldestTime = time;
        }
    }
    setCurrent(oldest);
}

void LogRing::rotate() {
    if (stem_.empty() || FileSizeNoThrow(nameOf(current_)) <= maxSize_)
        return;
    setCurrent((current_ + 1) % fileCount_);
    const auto next = nameOf(current_);
    std::error_code ignored;
    std::filesystem::remove(next, ignored);
    if (next == tornFile_)
        tornFile_.clear();
}

std::size_t LogRing::write(std::string_view newlineAndLines) {
    rotate();
    // With an empty stem the name is "_0.log" in the working directory; kept so.
    const auto file = nameOf(current_);
    const bool torn = file == tornFile_;
    const auto text = newlineAndLines.substr(torn ? 0 : 1);
    const std::size_t taken = output_.append(file.c_str(), text).value_or(0);
    if (taken > 0 && text[taken - 1] != '\n')
        tornFile_ = file;
    else if (taken > 0 && torn)
        tornFile_.clear();
    return torn && taken > 0 ? taken - 1 : taken;
}

std::size_t LogRing::appendNow(std::string_view text) noexcept {
    return output_.append(currentName_, text).value_or(0);
}

}  // namespace cmn
