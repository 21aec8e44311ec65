#include "useragent/FileFiltersViewController.h"

#include <exception>
#include <utility>

#include "common/log.h"
#include "useragent/DisplayText.h"

namespace useragent {

FileFiltersViewController::FileFiltersViewController(Environment environment)
    : environment_(std::move(environment)) {}

void FileFiltersViewController::viewDidLoad(FileFiltersView& view) const {
    const FilterTotals totals = TotalsOf(filtersArray_);
    view.setTotalRiskLabel(RiskText(totals.risk));
    view.setTotalSensetiveRiskLabel(RiskText(totals.sensitiveRisk));
    view.setFileNameLabel(FileNameText(fileName_.value_or(std::string())));
    view.setServerIDLabel(OneLine(totals.serverID));
    view.setFileStateLabel(FileStateText(filtersArray_, totals));
    view.setEncryptionStatusLabel(EncryptionStatusText(isEncrypted_));

    const WallTime now = environment_.clock();
    const EncryptionPrediction prediction = PredictEncryption(filtersArray_, now, environment_.clock);
    view.setEncryptionPredictLabel(PredictionText(prediction));
    view.setEncryptionInfo(ExplainPrediction(view.encryptionInfo(), prediction));

    view.setEncryptionInfo(view.encryptionInfo() +
                           DecryptionText(filtersArray_, decryptOnly(), environment_.clock()));
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
