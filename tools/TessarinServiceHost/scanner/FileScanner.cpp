#include "FileScanner.h"

#include <stdexcept>
#include <utility>

#include "FileText.h"
#include "PathForLog.h"
#include "RegularFile.h"
#include "ScanRecords.h"
#include "SealedFile.h"
#include "common/log.h"

namespace host {

namespace {

// Nothing, with a line in the log, for who is not served at all.
std::optional<FileUser> UserOf(const std::optional<cmn::XPCPeer>& asker, const std::string& path) {
    try {
        return FileUser::Of(asker);
    } catch (const std::runtime_error& e) {
        TLOG_WARN("No answer about {} -- {}", PathForLog(path), e.what());
        return std::nullopt;
    }
}

// The host's own user is told what is laid down whatever is there.
void RequireReadableOrMissing(const std::string& path, const FileUser& user) {
    try {
        if (user.isOther()) {
            const RegularFile file(path, user);
        }
    } catch (const NoSuchFile&) {
        return;
    }
}

}  // namespace

FileScanner::FileScanner(const ScannerOptions& options, ScanBounds::Now now)
    : classifierFile_(options.classifiers.empty() ? ClassifierFile() : LoadClassifiers(options.classifiers)),
      fixedRecords_(options.records.empty() ? FixedRecords() : LoadRecords(options.records)),
      scanLimit_(options.scanLimit),
      limits_(options.limits),
      now_(std::move(now)) {}

bool FileScanner::CheckEncryptionStatus(const std::string& path, const std::optional<cmn::XPCPeer>& asker) {
    const auto user = UserOf(asker, path);
    return user && IsSealed(path, *user);
}

std::vector<cmn::ScanRecord> FileScanner::GetScanResult(const std::string& path,
                                                        const std::optional<cmn::XPCPeer>& asker) {
    const auto fixed = fixedRecords_.find(path);
    if (fixed == fixedRecords_.end() && classifierFile_.classifiers.empty()) {
        return {};
    }
    const auto user = UserOf(asker, path);
    if (!user) {
        return {};
    }
    try {
        if (fixed == fixedRecords_.end()) {
            return scan(path, *user);
        }
        RequireReadableOrMissing(path, *user);
        TLOG_DEBUG("Laid down for {} -- {} records", PathForLog(path), fixed->second.size());
        return fixed->second;
    } catch (const std::runtime_error& e) {
        TLOG_WARN("Cannot scan {} -- {}", PathForLog(path), e.what());
        return {};
    }
}

std::vector<std::string> FileScanner::GetAllowedExtensions() {
    return classifierFile_.allowedExtensions;
}

int FileScanner::Decrypt(const std::string& path, const std::optional<cmn::XPCPeer>& asker) {
    const auto user = UserOf(asker, path);
    return static_cast<int>(user ? Unseal(path, *user, stop_.get_token()) : UnsealStatus::unreadable);
}

std::vector<cmn::ScanRecord> FileScanner::scan(const std::string& path, const FileUser& user) const {
    ScanBounds bounds(limits_, now_, stop_.get_token());
    const FileText file = ReadFileText(path, user, scanLimit_, bounds);
    std::vector<cmn::ScanRecord> records;
    for (const auto& classifier : classifierFile_.classifiers) {
        const auto counts = classifier.matcher->count(file.text, bounds);
        if (counts.all > 0) {
            records.push_back(MakeScanRecord(classifier, counts, file.modified));
        }
    }
    if (bounds.reason() != nullptr) {
        TLOG_WARN("Scan of {} is incomplete -- {}", PathForLog(path), bounds.reason());
    }
    TLOG_DEBUG("Scanned {} -- {} findings in {} bytes{}", PathForLog(path), records.size(), file.text.size(),
               file.isCut ? ", cut by the limit" : "");
    return records;
}

}  // namespace host
