#include "useragent/FileFiltersViewController.h"

#include <exception>
#include <utility>

#include "common/log.h"
#include "useragent/DisplayText.h"

namespace useragent {

FileFiltersViewController::FileFiltersViewController(Environment environment)
    : environment_(std::move(environment)) {}

PropertiesTexts FileFiltersViewController::viewDidLoad(std::string encryptionInfo) const {
    const FilterTotals totals = TotalsOf(filtersArray_);
    const EncryptionPrediction prediction =
        PredictEncryption(filtersArray_, environment_.clock(), environment_.clock);
    return {.fileNameLabel = FileNameText(fileName_.value_or(std::string())),
            .fileStateLabel = FileStateText(filtersArray_, totals),
            .serverIDLabel = OneLine(totals.serverID),
            .totalRiskLabel = RiskText(totals.risk),
            .totalSensetiveRiskLabel = RiskText(totals.sensitiveRisk),
            .encryptionStatusLabel = EncryptionStatusText(isEncrypted_),
            .encryptionPredictLabel = PredictionText(prediction),
            .encryptionInfo = ExplainPrediction(std::move(encryptionInfo), prediction) +
                              DecryptionText(filtersArray_, decryptOnly(), environment_.clock())};
}

bool FileFiltersViewController::decryptOnly() const {
    try {
        return environment_.settings().DecryptOnly;
    } catch (const std::exception& e) {
        TLOG_WARN("The settings cannot be read: {}", e.what());
        return cmn::proto::TSettings().DecryptOnly;
    }
}

FilterCell FileFiltersViewController::objectValue(const std::string& column, std::size_t row) const {
    const FilterRecord& record = filtersArray_.at(row);
    if (column == kSensitiveTypeColumn) {
        return DisabledCheckBox{record.boolValue(kFilterSensitiveTypeKey)};
    }
    if (column == kCountColumn) {
        return FilterCount(record);
    }
    if (column == kCostColumn) {
        return CostText(getFilterCost(record));
    }
    return record.description(column);
}

std::string FileFiltersViewController::longestText(const std::string& column) const {
    std::string longest;
    for (std::size_t row = 0; row < numberOfRows(); ++row) {
        const FilterCell cell = objectValue(column, row);
        const auto* const text = std::get_if<std::string>(&cell);
        if (text != nullptr && text->size() > longest.size()) {
            longest = *text;
        }
    }
    return longest;
}

}  // namespace useragent
