#include "SealedFile.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>

#include "FileAccess.h"
#include "PathForLog.h"
#include "RegularFile.h"
#include "ReplacementFile.h"
#include "common/exceptions.h"
#include "common/log.h"

namespace host {

namespace {

constexpr int kAttempts = 5;

bool TakesSealLine(RegularFile& file) {
    return file.read(kSealLine.size()) == kSealLine;
}

std::filesystem::path TargetOf(const RegularFile& file) {
    try {
        return PlaceOf(file.descriptor());
    } catch (const std::runtime_error& e) {
        throw_with_trace(RewriteError(e.what()));
    }
}

void RequireWritable(const RegularFile& file, const FileUser& user) {
    const int descriptor = OpenForWriting(file.descriptor(), user);
    if (descriptor < 0) {
        throw_with_trace(RewriteError(std::generic_category().message(errno)));
    }
    close(descriptor);
}

// Copies what is behind the line. No more than the file had when it was opened, if others write to it.
void CopyContent(RegularFile& file, ReplacementFile& replacement, const std::stop_token& stop) {
    auto left = file.status().st_size - static_cast<off_t>(kSealLine.size());
    while (left > 0) {
        if (stop.stop_requested()) {
            throw_with_trace(RewriteError("The host ends"));
        }
        const std::string piece = file.read(std::min(static_cast<std::size_t>(left), RegularFile::kPiece));
        if (piece.empty()) {
            return;
        }
        replacement.write(piece);
        left -= static_cast<off_t>(piece.size());
    }
}

// Nothing when the file changed meanwhile: another unseals it too, or a program saves it.
std::optional<UnsealStatus> TryUnseal(const std::string& path, const FileUser& user,
                                      const std::function<void()>& beforeReplacing,
                                      const std::stop_token& stop) {
    RegularFile file(path, user);
    if (!TakesSealLine(file)) {
        return UnsealStatus::notSealed;
    }
    if (file.status().st_size > kLargestSealedFile) {
        throw_with_trace(RewriteError("Larger than " + std::to_string(kLargestSealedFile) + " bytes"));
    }
    RequireWritable(file, user);
    ReplacementFile replacement(TargetOf(file), user);
    CopyContent(file, replacement, stop);
    replacement.complete(file.status());
    beforeReplacing();
    const auto now = replacement.targetStatus();
    if (!now || !file.isUnchanged(*now)) {
        return std::nullopt;
    }
    replacement.replaceTarget();
    return UnsealStatus::unsealed;
}

UnsealStatus UnsealRepeatedly(const std::string& path, const FileUser& user,
                              const std::function<void()>& beforeReplacing, const std::stop_token& stop) {
    if (!path.empty() && path.front() != '/') {
        throw_with_trace(std::runtime_error("Not an absolute path"));
    }
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        try {
            if (const auto status = TryUnseal(path, user, beforeReplacing, stop)) {
                return *status;
            }
        } catch (const TargetGone&) {  // another took its place after it was opened
            if (attempt + 1 == kAttempts) {
                throw;
            }
        }
    }
    throw_with_trace(RewriteError("Others change it all the time"));
}

UnsealStatus Refused(const std::string& path, UnsealStatus status, const char* reason) {
    TLOG_WARN("Cannot unseal {} -- {}", PathForLog(path), reason);
    return status;
}

}  // namespace

bool IsSealed(const std::string& path, const FileUser& user) {
    try {
        RegularFile file(path, user);
        return TakesSealLine(file);
    } catch (const std::runtime_error& e) {
        TLOG_DEBUG("Taken for not sealed: {} -- {}", PathForLog(path), e.what());
        return false;
    }
}

UnsealStatus Unseal(const std::string& path, const FileUser& user, const std::stop_token& stop) {
    return UnsealWith(
        path, user, [] {}, stop);
}

UnsealStatus UnsealWith(const std::string& path, const FileUser& user,
                        const std::function<void()>& beforeReplacing, const std::stop_token& stop) {
    try {
        if (UnsealRepeatedly(path, user, beforeReplacing, stop) == UnsealStatus::notSealed) {
            return Refused(path, UnsealStatus::notSealed, "Not sealed");
        }
        TLOG_INFO("Unsealed {}", PathForLog(path));
        return UnsealStatus::unsealed;
    } catch (const RewriteError& e) {
        return Refused(path, UnsealStatus::unwritable, e.what());
    } catch (const std::runtime_error& e) {
        return Refused(path, UnsealStatus::unreadable, e.what());
    }
}

}  // namespace host
