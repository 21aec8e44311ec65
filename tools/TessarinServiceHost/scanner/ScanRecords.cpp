#include "ScanRecords.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>

namespace host {

namespace {

std::string FlagText(bool value) {
    return value ? "1" : "0";
}

// Readers take counts for 32-bit numbers.
std::string CountText(std::size_t count) {
    constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
    return std::to_string(std::min(count, kMost));
}

// The shortest text that reads back the same.
std::string CostText(double cost) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), cost).ptr;
    return {text.data(), end};
}

}  // namespace

std::string NanosecondsText(const timespec& time) {
    // Digits are joined, not multiplied: the number may be too large for 64 bits.
    const bool isNegative = time.tv_sec < 0;
    auto seconds = static_cast<std::uint64_t>(time.tv_sec);
    auto nanoseconds = static_cast<std::uint64_t>(time.tv_nsec);
    if (isNegative) {
        seconds = 0 - seconds;
        if (nanoseconds > 0) {
            seconds -= 1;
            nanoseconds = 1'000'000'000 - nanoseconds;
        }
    }
    std::string digits = fmt::format("{}{:09}", seconds, nanoseconds);
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
    return isNegative ? "-" + digits : digits;
}

cmn::ScanRecord MakeScanRecord(const Classifier& classifier, const MatchCounts& counts,
                               const timespec& modified) {
    return {{"Name", classifier.name},
            {"SensitiveType", FlagText(classifier.sensitiveType)},
            // Files stay on this machine, and nothing is due to be encrypted by force.
            {"AmazonID", ""},
            {"UploadedToServerDate", "0"},
            {"ForceEncryptDate", "0"},
            {"IsEncrypted", FlagText(classifier.isEncrypted)},
            {"IsPrimaryForEncryption", FlagText(classifier.isPrimaryForEncryption)},
            {"LastModifiedDate", NanosecondsText(modified)},
            {"EncryptDelayMilliseconds", std::to_string(classifier.encryptDelayMilliseconds)},
            {"costUsd", CostText(classifier.costUsd)},
            {"MatchCount", CountText(counts.all)},
            {"UniqueCount", CountText(counts.distinct)},
            {"CountUniqueEntries", FlagText(classifier.countUniqueEntries)},
            {"IsOneRecordFile", FlagText(classifier.isOneRecordFile)}};
}

}  // namespace host
