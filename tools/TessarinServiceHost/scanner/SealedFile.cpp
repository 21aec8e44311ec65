#include "SealedFile.h"

#include <filesystem>
#include <optional>
#include <system_error>

#include "PathForLog.h"
#include "RegularFile.h"
#include "ReplacementFile.h"
#include "common/exceptions.h"
#include "common/log.h"

namespace host {

namespace {

constexpr std::size_t kPiece = 65'536;
constexpr int kAttempts = 5;

bool TakesSealLine(RegularFile& file) {
    return file.read(kSealLine.size()) == kSealLine;
}

std::filesystem::path Resolve(const std::string& path) {
    std::error_code error;
    auto resolved = std::filesystem::canonical(path, error);
    if (error) {
        throw_with_trace(RewriteError(error.message()));
    }
    return resolved;
}

// Nothing when the file changed meanwhile: another unseals it too, or a program saves it.
std::optional<UnsealStatus> TryUnseal(const std::string& path, const std::function<void()>& beforeReplacing) {
    RegularFile file(path);
    if (!TakesSealLine(file)) {
        return UnsealStatus::notSealed;
    }
    const auto target = Resolve(path);
    ReplacementFile replacement(target);
    for (auto piece = file.read(kPiece); !piece.empty(); piece = file.read(kPiece)) {
        replacement.write(piece);
    }
    replacement.complete(file.status());
    beforeReplacing();
    if (!file.isUnchangedAt(target)) {
        return std::nullopt;
    }
    replacement.replaceTarget();
    return UnsealStatus::unsealed;
}

UnsealStatus UnsealRepeatedly(const std::string& path, const std::function<void()>& beforeReplacing) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (const auto status = TryUnseal(path, beforeReplacing)) {
            return *status;
        }
    }
    throw_with_trace(RewriteError("Others change it all the time"));
}

UnsealStatus Refused(const std::string& path, UnsealStatus status, const char* reason) {
    TLOG_WARN("Cannot unseal {} -- {}", PathForLog(path), reason);
    return status;
}

}  // namespace

bool IsSealed(const std::string& path) {
    try {
        RegularFile file(path);
        return TakesSealLine(file);
    } catch (const std::runtime_error& e) {
        TLOG_DEBUG("Taken for not sealed: {} -- {}", PathForLog(path), e.what());
        return false;
    }
}

UnsealStatus Unseal(const std::string& path) {
    return UnsealWith(path, [] {});
}

UnsealStatus UnsealWith(const std::string& path, const std::function<void()>& beforeReplacing) {
    try {
        if (UnsealRepeatedly(path, beforeReplacing) == UnsealStatus::notSealed) {
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
