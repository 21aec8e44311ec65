#pragma once

#include <filesystem>
#include <functional>
#include <memory>

namespace cmn {

// Of use to the product's other programs; the agent watches no file.
//
// Watches one file, also under another name, until it is destroyed. A handler that is running then may still
// finish; no new call begins afterwards.
class FileWatch {
 public:
    virtual ~FileWatch() = default;
};

// Calls `handler` when the file is written, extended or renamed; not when its permissions or only its times
// change or it is deleted. Writing what the file holds already may be no change. Several changes may become
// one call, but the last one is always followed by a call. The handler runs on a thread that is neither the
// caller's nor the main one, one call at a time; those of other watches may have to wait for it. It may
// destroy the watch, and may be empty; what it throws is logged. Null, without a message, when the file
// cannot be opened; null with an error in the log when the system has nothing left to watch it with. Provided
// by each platform end.
std::unique_ptr<FileWatch> CreateFileWatch(const std::filesystem::path& file, std::function<void()> handler);

}  // namespace cmn
