#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "common/proto_settings.h"
#include "useragent/FileFilters.h"

namespace useragent {

// What the labels of the properties window show, by outlet. UTF-8, never markup.
struct PropertiesTexts {
    std::string fileNameLabel;
    std::string fileStateLabel;
    std::string serverIDLabel;
    std::string totalRiskLabel;
    std::string totalSensetiveRiskLabel;
    std::string encryptionStatusLabel;
    std::string encryptionPredictLabel;
    std::string encryptionInfo;
    bool operator==(const PropertiesTexts&) const = default;
};

inline constexpr const char* kSensitiveTypeColumn = "SensitiveType";
inline constexpr const char* kCountColumn = "Count";
inline constexpr const char* kCostColumn = "costUsd";

// A check box that nobody can switch.
struct DisabledCheckBox {
    bool on = false;
    bool operator==(const DisabledCheckBox&) const = default;
};
using FilterCell = std::variant<std::string, DisabledCheckBox>;

// The content of the properties window of one file: a snapshot, filled once. Main thread.
class FileFiltersViewController {
 public:
    struct Environment {
        std::function<cmn::proto::TSettings()> settings;
        std::function<WallTime()> clock;
    };
    explicit FileFiltersViewController(Environment environment);

    // The next three before the view is loaded.
    void setFiltersArray(FilterRecords filtersArray) { filtersArray_ = std::move(filtersArray); }
    void setFileName(std::optional<std::string> fileName) { fileName_ = std::move(fileName); }
    void setIsEncrypted(bool isEncrypted) { isEncrypted_ = isEncrypted; }
    const FilterRecords& filtersArray() const { return filtersArray_; }
    const std::optional<std::string>& fileName() const { return fileName_; }
    bool isEncrypted() const { return isEncrypted_; }

    // The explanation follows what its label holds already. Settings that cannot be read count as those of a
    // new installation.
    PropertiesTexts viewDidLoad(std::string encryptionInfo) const;

    std::size_t numberOfRows() const { return filtersArray_.size(); }
    // `column` is one of the three above or a record's key. Throws std::out_of_range.
    FilterCell objectValue(const std::string& column, std::size_t row) const;
    // The first of the longest texts of a column, by its bytes: columns of numbers are as wide as this one
    // needs, so that none is cut. Looks at every row.
    std::string longestText(const std::string& column) const;
    static double getFilterCost(const FilterRecord& record) { return FilterCost(record); }

 private:
    bool decryptOnly() const;

    const Environment environment_;
    FilterRecords filtersArray_;
    std::optional<std::string> fileName_;
    bool isEncrypted_ = false;
};

}  // namespace useragent
