#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "useragent/FilterRecord.h"

namespace useragent {

using FilterRecords = std::vector<FilterRecord>;
using WallTime = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

// Value at risk of one record in US dollars, not rounded: its cost for each counted match, or once when the
// whole file is one record.
double FilterCost(const FilterRecord& record);

// The number of the matches that count, as the record gives it.
std::string FilterCount(const FilterRecord& record);

struct FilterTotals {
    double risk = 0;           // US dollars
    double sensitiveRisk = 0;  // of the classifiers of sensitive data
    // The records of one file are expected to agree on these; the last one decides.
    std::string serverID;
    bool uploaded = false;
};
FilterTotals TotalsOf(const FilterRecords& records);

// "Pending scan", "Synced to server" or "Scanned: Pending server sync".
std::string FileStateText(const FilterRecords& records, const FilterTotals& totals);
std::string EncryptionStatusText(bool isEncrypted);

// Two decimals; with a leading dollar sign for a total.
std::string CostText(double dollars);
std::string RiskText(double dollars);

// What the classifiers say about encrypting the file.
struct EncryptionPrediction {
    std::string flaggedName;   // last encrypting classifier visited
    std::string overrideName;  // last primary classifier visited
    bool delayPassed = false;  // of any encrypting classifier
    std::int64_t ageDays = 0;  // since the modification, and delay: of the last encrypting classifier visited
    std::int64_t delayDays = 0;
    bool anyEncrypting = false;
    bool primaryEncrypting = false;
    bool stoppedByDisabledPrimary = false;  // records after it were not visited
};
// `clock` gives the moment at which each delay is tested; `now` is that of the whole computation.
EncryptionPrediction PredictEncryption(const FilterRecords& records, WallTime now,
                                       const std::function<WallTime()>& clock);
std::string PredictionText(const EncryptionPrediction& prediction);

// `info` followed by the explanation of the prediction; without it where a disabled primary classifier
// decides, whose explanation stands alone.
std::string ExplainPrediction(std::string info, const EncryptionPrediction& prediction);

// The lines about encryption being off for the device, or else about each record's temporary decryption.
// Each begins with a line feed.
std::string DecryptionText(const FilterRecords& records, bool decryptOnly, WallTime now);

}  // namespace useragent
