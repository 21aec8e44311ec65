#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "xpccommon/FinderExtensionProtocol.h"

namespace useragent {

// One value of a scan result as it came from the service: text, or a number where the platform's messages
// carry numbers. Text is UTF-8.
using FilterValue = std::variant<std::string, std::int64_t, double, bool>;

// What one classifier found in a file. A key that is missing reads as false, 0 and empty text. Keys and
// values stand in one text: a window holds as many of them as there are records.
class FilterRecord {
 public:
    FilterRecord() = default;
    // Both throw std::length_error from 4 GiB on.
    explicit FilterRecord(const std::map<std::string, FilterValue>& values);
    explicit FilterRecord(cmn::ScanRecord record);

    // The lenient readings of a value. Text is read as a decimal number after leading blanks and an optional
    // sign; what follows the number is ignored, text without one is 0. Integers that do not fit are the
    // nearest that fits, except that the 32-bit reading of a number keeps its low 32 bits.
    bool boolValue(
        std::string_view key) const;  // of text: whether it begins with Y, y, T, t or, after zeros, 1-9
    std::int32_t intValue(std::string_view key) const;
    std::int64_t integerValue(std::string_view key) const;
    double doubleValue(std::string_view key) const;  // of text: HUGE_VAL and -HUGE_VAL on overflow
    // Text as it is; numbers in decimal, fractions with as many digits as tell them apart, truth as "1" or
    // "0".
    std::string description(std::string_view key) const;

    // Copies, by ascending keys.
    std::vector<std::pair<std::string, FilterValue>> values() const;

 private:
    // As FilterValue, the text of the record.
    using Value = std::variant<std::string_view, std::int64_t, double, bool>;
    // Where in the text; a value reaches to the next key.
    struct Entry {
        std::uint32_t key;
        std::uint32_t value;
    };

    void reserve(std::size_t entries, std::size_t bytes);
    void add(std::string_view key, const Value& value);
    std::string_view keyOf(const Entry& entry) const;
    Value valueOf(const Entry& entry) const;
    Value value(std::string_view key) const;

    std::string text_;
    std::vector<Entry> entries_;  // by ascending keys
};

inline constexpr const char* kFilterNameKey = "Name";
inline constexpr const char* kFilterSensitiveTypeKey = "SensitiveType";
inline constexpr const char* kFilterAmazonIDKey = "AmazonID";
inline constexpr const char* kFilterUploadedToServerDateKey = "UploadedToServerDate";
inline constexpr const char* kFilterIsEncryptedKey = "IsEncrypted";
inline constexpr const char* kFilterIsPrimaryForEncryptionKey = "IsPrimaryForEncryption";
inline constexpr const char* kFilterLastModifiedDateKey = "LastModifiedDate";  // ns since 1970 UTC
inline constexpr const char* kFilterEncryptDelayMillisecondsKey = "EncryptDelayMilliseconds";  // ms
inline constexpr const char* kFilterForceEncryptDateKey = "ForceEncryptDate";  // ns since 1970 UTC
inline constexpr const char* kFilterCostUsdKey = "costUsd";
inline constexpr const char* kFilterMatchCountKey = "MatchCount";
inline constexpr const char* kFilterUniqueCountKey = "UniqueCount";
inline constexpr const char* kFilterCountUniqueEntriesKey = "CountUniqueEntries";
inline constexpr const char* kFilterIsOneRecordFileKey = "IsOneRecordFile";

}  // namespace useragent
