#include "useragent/FilterRecord.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <locale>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace useragent {

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";
constexpr std::string_view kDigits = "0123456789";

bool IsDigit(char c) {
    return kDigits.find(c) != std::string_view::npos;
}

std::string_view WithoutLeadingBlanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text;
}

// Removes a leading sign; true for a minus.
bool TakeSign(std::string_view& text) {
    if (text.empty() || (text.front() != '-' && text.front() != '+')) {
        return false;
    }
    const bool negative = text.front() == '-';
    text.remove_prefix(1);
    return negative;
}

std::size_t CountDigits(std::string_view text) {
    return std::min(text.find_first_not_of(kDigits), text.size());
}

template <typename Integer>
Integer ReadInteger(std::string_view text) {
    using Limits = std::numeric_limits<Integer>;
    text = WithoutLeadingBlanks(text);
    const bool negative = TakeSign(text);
    Integer value = 0;  // built from the negative side, which reaches further
    for (const char c : text.substr(0, CountDigits(text))) {
        const auto digit = static_cast<Integer>(c - '0');
        if (value < (Limits::min() + digit) / 10) {
            return negative ? Limits::min() : Limits::max();
        }
        value = static_cast<Integer>(value * 10 - digit);
    }
    if (negative) {
        return value;
    }
    return value == Limits::min() ? Limits::max() : static_cast<Integer>(-value);
}

// The part of the text that is a decimal number; empty when it does not begin with one.
std::string_view DecimalNumber(std::string_view text) {
    text = WithoutLeadingBlanks(text);
    std::string_view rest = text;
    TakeSign(rest);
    std::size_t digits = CountDigits(rest);
    rest.remove_prefix(digits);
    if (rest.starts_with('.')) {
        const std::size_t fraction = CountDigits(rest.substr(1));
        digits += fraction;
        rest.remove_prefix(fraction + 1);
    }
    if (digits == 0) {
        return {};
    }
    if (rest.starts_with('e') || rest.starts_with('E')) {
        std::string_view exponent = rest.substr(1);
        TakeSign(exponent);
        const std::size_t length = CountDigits(exponent);
        if (length > 0) {
            rest = exponent.substr(length);
        }
    }
    return text.substr(0, text.size() - rest.size());
}

// Up to fifteen digits and a power of ten that has no rounding error of its own: one division is exact then.
// Nothing for other numbers.
std::optional<double> ReadShortDecimal(std::string_view number) {
    constexpr std::size_t kMostDigits = 15;
    constexpr std::array<double, kMostDigits + 1> kPowers{1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                          1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    const bool negative = TakeSign(number);
    const std::size_t point = std::min(number.find('.'), number.size());
    const std::string_view fraction = number.substr(std::min(point + 1, number.size()));
    if (point + fraction.size() > kMostDigits) {
        return {};
    }
    std::int64_t digits = 0;
    for (const std::string_view part : {number.substr(0, point), fraction}) {
        for (const char c : part) {
            if (!IsDigit(c)) {
                return {};
            }
            digits = digits * 10 + (c - '0');
        }
    }
    const double value = static_cast<double>(digits) / kPowers.at(fraction.size());
    return negative ? -value : value;
}

double ReadDouble(std::string_view text) {
    text = DecimalNumber(text);
    if (const auto value = ReadShortDecimal(text)) {
        return *value;
    }
    std::istringstream number{std::string(text)};
    number.imbue(std::locale::classic());
    double value = 0;
    number >> value;
    // What a stream makes of a number that is too large is the largest one.
    return number.fail() && std::abs(value) >= std::numeric_limits<double>::max()
               ? std::copysign(HUGE_VAL, value)
               : value;
}

bool ReadBool(std::string_view text) {
    text = WithoutLeadingBlanks(text);
    TakeSign(text);
    text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
    return !text.empty() &&
           (std::string_view("YyTt").find(text.front()) != std::string_view::npos || IsDigit(text.front()));
}

// Toward zero, to the nearest that fits; not a number is 0.
std::int64_t Truncated(double number) {
    constexpr double kLimit = 9223372036854775808.0;
    if (std::isnan(number)) {
        return 0;
    }
    if (number >= kLimit) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return number <= -kLimit ? std::numeric_limits<std::int64_t>::min() : static_cast<std::int64_t>(number);
}

std::int32_t Truncated32(double number) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(Truncated(number),
                                                              std::numeric_limits<std::int32_t>::min(),
                                                              std::numeric_limits<std::int32_t>::max()));
}

template <typename... Readings>
struct Reading : Readings... {
    using Readings::operator()...;
};
template <typename... Readings>
Reading(Readings...) -> Reading<Readings...>;

// A value in a record's text: which of the types it has, then the text or the bytes of the number.
constexpr std::size_t kTypeSize = 1;

void Append(std::string& text, std::string_view value) {
    text += value;
}

template <typename Number>
void Append(std::string& text, Number value) {
    text.append(reinterpret_cast<const char*>(&value), sizeof value);
}

template <typename Number>
Number ReadBytes(std::string_view bytes) {
    Number value{};
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

std::size_t SizeOf(const FilterValue& value) {
    return std::visit(Reading{[](const std::string& text) { return text.size(); },
                              [](const auto& number) { return sizeof number; }},
                      value);
}

}  // namespace

FilterRecord::FilterRecord(const std::map<std::string, FilterValue>& values) {
    std::size_t bytes = 0;
    for (const auto& [key, value] : values) {
        bytes += key.size() + kTypeSize + SizeOf(value);
    }
    reserve(values.size(), bytes);
    for (const auto& [key, value] : values) {
        add(key, std::visit([](const auto& one) { return Value(one); }, value));
    }
}

FilterRecord::FilterRecord(cmn::ScanRecord record) {
    std::size_t bytes = 0;
    for (const auto& [key, value] : record) {
        bytes += key.size() + kTypeSize + value.size();
    }
    reserve(record.size(), bytes);
    // What was taken is given back at once: records come by the thousand.
    while (!record.empty()) {
        const auto one = record.extract(record.begin());
        add(one.key(), one.mapped());
    }
}

void FilterRecord::reserve(std::size_t entries, std::size_t bytes) {
    if (bytes > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("a record is too long");
    }
    entries_.reserve(entries);
    text_.reserve(bytes);
}

void FilterRecord::add(std::string_view key, const Value& value) {
    const auto begin = static_cast<std::uint32_t>(text_.size());
    text_ += key;
    entries_.push_back({begin, static_cast<std::uint32_t>(text_.size())});
    text_ += static_cast<char>(value.index());
    std::visit([this](const auto& one) { Append(text_, one); }, value);
}

std::string_view FilterRecord::keyOf(const Entry& entry) const {
    return {text_.data() + entry.key, entry.value - entry.key};
}

FilterRecord::Value FilterRecord::valueOf(const Entry& entry) const {
    const bool isLast = &entry == &entries_.back();
    const std::size_t end = isLast ? text_.size() : (&entry + 1)->key;
    const std::size_t begin = entry.value + kTypeSize;
    const std::string_view content(text_.data() + begin, end - begin);
    switch (text_[entry.value]) {
        case 1:
            return ReadBytes<std::int64_t>(content);
        case 2:
            return ReadBytes<double>(content);
        case 3:
            return ReadBytes<bool>(content);
        default:
            return content;
    }
}

FilterRecord::Value FilterRecord::value(std::string_view key) const {
    // There are few, and hardly two of one length.
    const auto found = std::find_if(entries_.begin(), entries_.end(), [this, key](const Entry& entry) {
        return entry.value - entry.key == key.size() && keyOf(entry) == key;
    });
    return found != entries_.end() ? valueOf(*found) : Value();
}

std::vector<std::pair<std::string, FilterValue>> FilterRecord::values() const {
    std::vector<std::pair<std::string, FilterValue>> values;
    values.reserve(entries_.size());
    for (const Entry& entry : entries_) {
        values.emplace_back(
            keyOf(entry),
            std::visit(Reading{[](std::string_view text) { return FilterValue(std::string(text)); },
                               [](const auto& number) { return FilterValue(number); }},
                       valueOf(entry)));
    }
    return values;
}

bool FilterRecord::boolValue(std::string_view key) const {
    return std::visit(Reading{[](std::string_view text) { return ReadBool(text); },
                              [](const auto& number) { return number != 0; }},
                      value(key));
}

std::int32_t FilterRecord::intValue(std::string_view key) const {
    return std::visit(Reading{[](std::string_view text) { return ReadInteger<std::int32_t>(text); },
                              [](double number) { return Truncated32(number); },
                              [](std::int64_t number) { return static_cast<std::int32_t>(number); },
                              [](bool truth) { return std::int32_t{truth}; }},
                      value(key));
}

std::int64_t FilterRecord::integerValue(std::string_view key) const {
    return std::visit(Reading{[](std::string_view text) { return ReadInteger<std::int64_t>(text); },
                              [](double number) { return Truncated(number); },
                              [](const auto& number) { return static_cast<std::int64_t>(number); }},
                      value(key));
}

double FilterRecord::doubleValue(std::string_view key) const {
    return std::visit(Reading{[](std::string_view text) { return ReadDouble(text); },
                              [](const auto& number) { return static_cast<double>(number); }},
                      value(key));
}

std::string FilterRecord::description(std::string_view key) const {
    return std::visit(Reading{[](std::string_view text) { return std::string(text); },
                              [](bool truth) { return std::string(truth ? "1" : "0"); },
                              // Whole numbers have no point.
                              [](double number) {
                                  return std::floor(number) == number && std::abs(number) < 1e15
                                             ? fmt::format("{:.0f}", number)
                                             : fmt::format("{}", number);
                              },
                              [](std::int64_t number) { return fmt::format("{}", number); }},
                      value(key));
}

}  // namespace useragent
