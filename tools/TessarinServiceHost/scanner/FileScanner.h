#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "ClassifierFile.h"
#include "RecordsFile.h"
#include "xpccommon/IFinderExtensionOperations.h"

namespace host {

struct ScannerOptions {
    std::filesystem::path classifiers;  // empty: nothing is looked for, no extension is allowed
    std::filesystem::path records;      // empty: none are laid down
    std::size_t scanLimit = 1'048'576;  // bytes that are read of a file
};

// Looks into files with regular expressions. See docs/scanner.md. Immutable once it is made: every function
// may be called from any thread at any time.
class FileScanner final : public cmn::IFinderExtensionOperations {
 public:
    // Reads both files once. Throws std::runtime_error when one of them cannot be used.
    explicit FileScanner(const ScannerOptions& options);

    // Whether the file is sealed; false for one that cannot be read.
    bool CheckEncryptionStatus(const std::string& path) override;
    // The records that are laid down for the path, else one for each classifier that finds something, in
    // their order. Empty, with a line in the log, when the file cannot be read.
    std::vector<cmn::ScanRecord> GetScanResult(const std::string& path) override;
    std::vector<std::string> GetAllowedExtensions() override;
    // An UnsealStatus.
    int Decrypt(const std::string& path) override;

 private:
    std::vector<cmn::ScanRecord> scan(const std::string& path) const;

    const ClassifierFile classifierFile_;
    const FixedRecords fixedRecords_;
    const std::size_t scanLimit_;
};

}  // namespace host
