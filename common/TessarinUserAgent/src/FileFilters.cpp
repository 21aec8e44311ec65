#include "useragent/FileFilters.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>

#include "useragent/DisplayText.h"

namespace useragent {

namespace {

constexpr double kNanosecondsPerSecond = 1'000'000'000;
constexpr double kSecondsPerDay = 86'400;
constexpr double kSecondsPerHour = 3'600;
constexpr std::int64_t kMillisecondsPerSecond = 1'000;
constexpr std::int64_t kMillisecondsPerDay = 86'400'000;

bool CountsUniqueEntries(const FilterRecord& record) {
    return record.intValue(kFilterCountUniqueEntriesKey) == 1;
}

const char* CountKey(const FilterRecord& record) {
    return CountsUniqueEntries(record) ? kFilterUniqueCountKey : kFilterMatchCountKey;
}

double SecondsSince1970(WallTime time) {
    return static_cast<double>(time.time_since_epoch().count()) / kNanosecondsPerSecond;
}

double SecondsOf(const FilterRecord& record, const char* nanosecondsKey) {
    return static_cast<double>(record.integerValue(nanosecondsKey)) / kNanosecondsPerSecond;
}

void VisitEncrypting(const FilterRecord& record, WallTime now, const std::function<WallTime()>& clock,
                     EncryptionPrediction& prediction) {
    const double modified = SecondsOf(record, kFilterLastModifiedDateKey);
    const std::int64_t delay = record.integerValue(kFilterEncryptDelayMillisecondsKey);
    const std::int64_t delaySeconds = delay / kMillisecondsPerSecond;  // without the parts of a second
    const double due = modified + static_cast<double>(delaySeconds);
    prediction.flaggedName = record.description(kFilterNameKey);
    if (record.boolValue(kFilterIsPrimaryForEncryptionKey)) {
        prediction.overrideName = prediction.flaggedName;
        prediction.primaryEncrypting = true;
    }
    prediction.delayPassed = prediction.delayPassed || due < SecondsSince1970(clock());
    prediction.ageDays = static_cast<std::int64_t>((SecondsSince1970(now) - modified) / kSecondsPerDay);
    prediction.delayDays = delay / kMillisecondsPerDay;
    prediction.anyEncrypting = true;
}

}  // namespace

double FilterCost(const FilterRecord& record) {
    const double multiplier = record.boolValue(kFilterIsOneRecordFileKey)
                                  ? 1.0
                                  : static_cast<double>(record.intValue(CountKey(record)));
    return record.doubleValue(kFilterCostUsdKey) * multiplier;
}

std::string FilterCount(const FilterRecord& record) {
    return record.boolValue(kFilterIsOneRecordFileKey) ? "1" : record.description(CountKey(record));
}

FilterTotals TotalsOf(const FilterRecords& records) {
    FilterTotals totals;
    for (const FilterRecord& record : records) {
        const double cost = FilterCost(record);
        totals.risk += cost;
        if (record.boolValue(kFilterSensitiveTypeKey)) {
            totals.sensitiveRisk += cost;
        }
        totals.serverID = record.description(kFilterAmazonIDKey);
        totals.uploaded = record.integerValue(kFilterUploadedToServerDateKey) != 0;
    }
    return totals;
}

std::string FileStateText(const FilterRecords& records, const FilterTotals& totals) {
    if (records.empty()) {
        return "Pending scan";
    }
    return totals.uploaded ? "Synced to server" : "Scanned: Pending server sync";
}

std::string EncryptionStatusText(bool isEncrypted) {
    return isEncrypted ? "Status: Encrypted" : "Status: Not Encrypted";
}

std::string CostText(double dollars) {
    return fmt::format("{:.2f}", dollars);
}

std::string RiskText(double dollars) {
    return fmt::format("${:.2f}", dollars);
}

EncryptionPrediction PredictEncryption(const FilterRecords& records, WallTime now,
                                       const std::function<WallTime()>& clock) {
    EncryptionPrediction prediction;
    for (const FilterRecord& record : records) {
        if (record.boolValue(kFilterIsEncryptedKey)) {
            VisitEncrypting(record, now, clock, prediction);
        } else if (record.boolValue(kFilterIsPrimaryForEncryptionKey)) {
            prediction.overrideName = record.description(kFilterNameKey);
            prediction.stoppedByDisabledPrimary = true;
            // Whatever was found before has no say any more.
            prediction.delayPassed = false;
            prediction.primaryEncrypting = false;
            break;
        }
    }
    return prediction;
}

std::string PredictionText(const EncryptionPrediction& prediction) {
    return fmt::format("The file should {}be encrypted", prediction.delayPassed ? "" : "not ");
}

std::string ExplainPrediction(std::string info, const EncryptionPrediction& prediction) {
    if (prediction.anyEncrypting) {
        info += fmt::format("The file is flagged by {}, which has encryption enabled.",
                            OneLine(prediction.flaggedName));
        info += fmt::format(
            " The encryption delay has {} (file last modified {} days ago, encryption delay set to {})",
            prediction.delayPassed ? "passed" : "not passed", prediction.ageDays, prediction.delayDays);
    }
    if (prediction.stoppedByDisabledPrimary) {
        info = fmt::format("The file is flagged by {}, which has encryption disabled.",
                           OneLine(prediction.overrideName));
    }
    if (prediction.primaryEncrypting || prediction.stoppedByDisabledPrimary) {
        info += fmt::format("\n{} overrides other classifiers", OneLine(prediction.overrideName));
    }
    return info;
}

std::string DecryptionText(const FilterRecords& records, bool decryptOnly, WallTime now) {
    if (decryptOnly) {
        return "\nEncryption is disabled for this device.";
    }
    std::string text;
    for (const FilterRecord& record : records) {
        const double remaining = SecondsOf(record, kFilterForceEncryptDateKey) - SecondsSince1970(now);
        if (remaining > 0) {
            const auto hours = static_cast<std::int32_t>(remaining / kSecondsPerHour);
            const auto minutes = static_cast<std::int32_t>(remaining / 60) % 60;
            text += fmt::format("\n6-hour decryption enabled. Remaining: {}:{:02}", hours, minutes);
        }
    }
    return text;
}

}  // namespace useragent
