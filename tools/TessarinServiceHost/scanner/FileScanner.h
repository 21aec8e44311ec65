#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "ClassifierFile.h"
#include "FileUser.h"
#include "RecordsFile.h"
#include "ScanBounds.h"
#include "xpccommon/IFinderExtensionOperations.h"

namespace host {

struct ScannerOptions {
    std::filesystem::path classifiers;  // empty: nothing is looked for, no extension is allowed
    std::filesystem::path records;      // empty: none are laid down
    std::size_t scanLimit = 1'048'576;  // bytes that are read of a file
    ScanLimits limits{};                // of the search in them
};

// Looks into files with regular expressions. See docs/scanner.md. Every function may be called from any
// thread at any time. A file is read and changed with the rights of the user who asks; a line in the log says
// why one is not served at all.
class FileScanner final : public cmn::IFinderExtensionOperations {
 public:
    // Reads both files once. Throws std::runtime_error when one of them cannot be used. `now` is the clock of
    // the limits.
    explicit FileScanner(const ScannerOptions& options, ScanBounds::Now now = std::chrono::steady_clock::now);

    // From now on a scan ends with what it has found, and a decryption leaves the file as it was. Does not
    // wait for those that are under way.
    void stop() { stop_.request_stop(); }

    // Whether the file is sealed; false for one that the asker cannot read.
    bool CheckEncryptionStatus(const std::string& path, const std::optional<cmn::XPCPeer>& asker) override;
    // The records that are laid down for the path, unless another user may not read what is there; else one
    // for each classifier that finds something, in their order. Empty, with a line in the log, when the file
    // cannot be read; what was found until then, also with a line, when the limits end the search.
    std::vector<cmn::ScanRecord> GetScanResult(const std::string& path,
                                               const std::optional<cmn::XPCPeer>& asker) override;
    std::vector<std::string> GetAllowedExtensions() override;
    // An UnsealStatus.
    int Decrypt(const std::string& path, const std::optional<cmn::XPCPeer>& asker) override;

 private:
    std::vector<cmn::ScanRecord> scan(const std::string& path, const FileUser& user) const;

    const ClassifierFile classifierFile_;
    const FixedRecords fixedRecords_;
    const std::size_t scanLimit_;
    const ScanLimits limits_;
    const ScanBounds::Now now_;
    std::stop_source stop_;
};

}  // namespace host
