#include "FileScanner.h"

#include <stdexcept>
#include <utility>

#include "FileText.h"
#include "PathForLog.h"
#include "ScanRecords.h"
#include "SealedFile.h"
#include "common/log.h"

namespace host {

FileScanner::FileScanner(const ScannerOptions& options, ScanBounds::Now now)
    : classifierFile_(options.classifiers.empty() ? ClassifierFile() : LoadClassifiers(options.classifiers)),
      fixedRecords_(options.records.empty() ? FixedRecords() : LoadRecords(options.records)),
      scanLimit_(options.scanLimit),
      limits_(options.limits),
      now_(std::move(now)) {}

bool FileScanner::CheckEncryptionStatus(const std::string& path,
                                        const std::optional<cmn::XPCPeer>& /*asker*/) {
    return IsSealed(path);
}

std::vector<cmn::ScanRecord> FileScanner::GetScanResult(const std::string& path,
                                                        const std::optional<cmn::XPCPeer>& /*asker*/) {
    if (const auto fixed = fixedRecords_.find(path); fixed != fixedRecords_.end()) {
        TLOG_DEBUG("Laid down for {} -- {} records", PathForLog(path), fixed->second.size());
        return fixed->second;
    }
    if (classifierFile_.classifiers.empty()) {
        return {};
    }
    try {
        return scan(path);
    } catch (const std::runtime_error& e) {
        TLOG_WARN("Cannot scan {} -- {}", PathForLog(path), e.what());
        return {};
    }
}

std::vector<std::string> FileScanner::GetAllowedExtensions() {
    return classifierFile_.allowedExtensions;
}

int FileScanner::Decrypt(const std::string& path, const std::optional<cmn::XPCPeer>& /*asker*/) {
    return static_cast<int>(Unseal(path, stop_.get_token()));
}

std::vector<cmn::ScanRecord> FileScanner::scan(const std::string& path) const {
    ScanBounds bounds(limits_, now_, stop_.get_token());
    const FileText file = ReadFileText(path, scanLimit_, bounds);
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
