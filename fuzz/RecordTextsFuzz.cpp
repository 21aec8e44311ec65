// Whatever values a service sends, the windows get texts of one line, and the lenient readings of a text are
// those of the C library, as far as both know the form.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <string>

#include "Check.h"
#include "common/utf8.h"
#include "useragent/DisplayText.h"
#include "useragent/FileFilters.h"
#include "useragent/FilterRecord.h"

namespace {

using namespace useragent;

constexpr const char* kKeys[] = {kFilterNameKey,
                                 kFilterSensitiveTypeKey,
                                 kFilterAmazonIDKey,
                                 kFilterUploadedToServerDateKey,
                                 kFilterIsEncryptedKey,
                                 kFilterIsPrimaryForEncryptionKey,
                                 kFilterLastModifiedDateKey,
                                 kFilterEncryptDelayMillisecondsKey,
                                 kFilterForceEncryptDateKey,
                                 kFilterCostUsdKey,
                                 kFilterMatchCountKey,
                                 kFilterUniqueCountKey,
                                 kFilterCountUniqueEntriesKey,
                                 kFilterIsOneRecordFileKey};

FilterValue ValueFrom(FuzzedDataProvider& input) {
    switch (input.ConsumeIntegralInRange(0, 5)) {
        case 0:
            return input.ConsumeIntegral<std::int64_t>();
        case 1:
            return input.ConsumeFloatingPoint<double>();
        case 2:
            return input.ConsumeBool();
        default:
            return input.ConsumeRandomLengthString(40);
    }
}

void CheckReadings(const std::string& text) {
    const FilterRecord record(cmn::ScanRecord{{kFilterNameKey, text}});
    const std::int64_t expected = std::strtoll(text.c_str(), nullptr, 10);
    Check(record.integerValue(kFilterNameKey) == expected);
    Check(record.intValue(kFilterNameKey) ==
          std::clamp<std::int64_t>(expected, std::numeric_limits<std::int32_t>::min(),
                                   std::numeric_limits<std::int32_t>::max()));
    // Not the C library's other forms: hexadecimal, "inf", "nan".
    if (text.find_first_of("xXiInN") == std::string::npos) {
        Check(record.doubleValue(kFilterNameKey) == std::strtod(text.c_str(), nullptr));
    }
    Check(record.description(kFilterNameKey) == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const WallTime now{std::chrono::nanoseconds(input.ConsumeIntegral<std::int64_t>())};
    FilterRecords records;
    const int count = input.ConsumeIntegralInRange(0, 3);
    for (int i = 0; i < count; ++i) {
        std::map<std::string, FilterValue> values;
        for (const char* key : kKeys) {
            if (input.ConsumeBool()) {
                values[key] = ValueFrom(input);
            }
        }
        records.emplace_back(values);
    }
    for (const FilterRecord& record : records) {
        FilterCost(record);
        FilterCount(record);
        for (const auto& [key, value] : record.values()) {
            record.intValue(key);
            record.integerValue(key);
            record.boolValue(key);
            const FilterRecord alone(std::map<std::string, FilterValue>{{key, value}});
            Check(record.description(key) == alone.description(key));
            CostText(record.doubleValue(key));
        }
    }
    const FilterTotals totals = TotalsOf(records);
    RiskText(totals.risk);
    CostText(totals.sensitiveRisk);
    Check(!FileStateText(records, totals).empty());
    const EncryptionPrediction prediction = PredictEncryption(records, now, [&] { return now; });
    ExplainPrediction(PredictionText(prediction), prediction);
    DecryptionText(records, input.ConsumeBool(), now);

    const std::string text = input.ConsumeRemainingBytesAsString();
    CheckReadings(text);
    const std::string shown = FileNameText(text);
    Check(cmn::IsValidUtf8(shown) && OneLine(shown) == shown);
    const std::string line = OneLine(text);
    Check(line.find_first_of("\n\r\t\v\f\x7f") == std::string::npos && line.find('\0') == std::string::npos);
    Check(OneLine(line) == line);
    return 0;
}
