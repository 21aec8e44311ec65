#include "LogLines.h"

#include <algorithm>
#include <array>

namespace cmn {

namespace {

bool IsDigitOfLog(char c) {
    return c >= '0' && c <= '9';
}

// '0' stands for any digit.
bool HasShape(std::string_view text, std::string_view shape) {
    return text.size() >= shape.size() &&
           std::equal(shape.begin(), shape.end(), text.begin(),
                      [](char wanted, char is) { return wanted == '0' ? IsDigitOfLog(is) : wanted == is; });
}

constexpr std::string_view kTime = "0000.00.00 00:00:00";
constexpr std::array<std::string_view, 6> kTags{"[ERROR] [", "[ WARN] [", "[ INFO] [",
                                                "[DEBUG] [", "[TRACE] [", "[unknown_level] ["};

// "[ INFO] [2026.11.21 03:11:50] ": its length, 0 when there is none.
std::size_t LengthOfStamp(std::string_view line) {
    const auto* const tag =
        std::find_if(kTags.begin(), kTags.end(), [&](std::string_view one) { return line.starts_with(one); });
    if (tag == kTags.end() || !HasShape(line.substr(tag->size()), kTime) ||
        !line.substr(tag->size() + kTime.size()).starts_with("] "))
        return 0;
    return tag->size() + kTime.size() + 2;
}

// "Agent.cpp:93 operator() -- ": its length, 0 when there is none.
std::size_t LengthOfPlace(std::string_view body) {
    constexpr std::string_view kSeparator = " -- ";
    constexpr std::string_view kOfOperators = "+-~()<>=!&|*[]";
    constexpr std::size_t kLongest = 200;
    const auto end = body.substr(0, kLongest).find(kSeparator);
    if (end == std::string_view::npos)
        return 0;
    const std::string_view place = body.substr(0, end);
    const std::size_t colon = place.find(':');
    const std::size_t blank = place.find(' ');
    if (blank == std::string_view::npos || colon + 1 >= blank ||
        place.find(' ', blank + 1) != std::string_view::npos)
        return 0;
    const std::string_view file = place.substr(0, colon);
    const std::string_view number = place.substr(colon + 1, blank - colon - 1);
    const auto isIdentifier = [](char c) {
        return IsDigitOfLog(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    };
    const auto isName = [&](char c) {
        return isIdentifier(c) || kOfOperators.find(c) != std::string_view::npos;
    };
    const bool isSource = file.ends_with(".cpp") || file.ends_with(".h") || file.ends_with(".mm");
    const std::string_view function = place.substr(blank + 1);
    return isSource && std::all_of(number.begin(), number.end(), IsDigitOfLog) &&
                   !IsDigitOfLog(file.front()) &&
                   std::all_of(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(file.rfind('.')),
                               isIdentifier) &&
                   std::all_of(function.begin(), function.end(), isName)
               ? end + kSeparator.size()
               : 0;
}

// Lines that the log writes without a stamp, by how they begin.
constexpr std::array<std::string_view, 3> kUnstamped{
    "====", "Ended by ", "The logs were removed from the queue because it overflowed"};

// What lines say whose text goes on, to its end, with something that a user, a page or a client has chosen.
struct Opening {
    std::string_view text;
    SecretKind kind;
    bool hasNumber = false;  // behind it, at the end of the line
};
constexpr std::array kOpenings{
    Opening{"Current URL -- ", SecretKind::address},
    Opening{"URL changed for Firefox -- ", SecretKind::address},
    Opening{"URL changed for Google Chrome -- ", SecretKind::address},
    Opening{"URL changed for Safari -- ", SecretKind::address},
    Opening{"URL changed for Firefox ", SecretKind::address, true},
    Opening{"URL changed for Google Chrome ", SecretKind::address, true},
    Opening{"URL changed for Safari ", SecretKind::address, true},
    Opening{"URL changed for ", SecretKind::address},
    Opening{"Cannot scan ", SecretKind::path},
    Opening{"Cannot unseal ", SecretKind::path},
    Opening{"Cannot watch ", SecretKind::path},
    Opening{"Decryption attempted for path: ", SecretKind::path},
    Opening{"Encryption status for path: ", SecretKind::path},
    Opening{"getScanResult called for path: ", SecretKind::path},
    Opening{"Laid down for ", SecretKind::path},
    Opening{"No answer about ", SecretKind::path},
    Opening{"Scan of ", SecretKind::path},
    Opening{"Scanned ", SecretKind::path},
    Opening{"Taken for not sealed: ", SecretKind::path},
    Opening{"The name of a file is not UTF-8, nobody is asked about it: ", SecretKind::path},
    Opening{"Unsealed ", SecretKind::path},
};
// The agent's answer to the question for an address is all that its line says.
constexpr std::string_view kAnswerFile = "Agent.cpp:";
constexpr std::string_view kAnswerFunction = " operator() -- ";

// " 4711" at the end of the text: its length, 0 when there is none.
std::size_t LengthOfNumber(std::string_view text) {
    const std::size_t before = text.find_last_not_of("0123456789");
    return before != std::string_view::npos && text[before] == ' ' && before + 1 < text.size()
               ? text.size() - before
               : 0;
}

}  // namespace

LogLine LookAtLogLine(std::string_view text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    const std::size_t stamp = LengthOfStamp(line);
    if (stamp == 0) {
        const bool isUnstamped = std::any_of(kUnstamped.begin(), kUnstamped.end(),
                                             [&](std::string_view begin) { return line.starts_with(begin); });
        return {.isHead = isUnstamped || (line.size() == kTime.size() && HasShape(line, kTime))};
    }
    const std::string_view place = line.substr(stamp, LengthOfPlace(line.substr(stamp)));
    LogLine found{.isHead = true, .body = stamp + place.size()};
    if (place.starts_with(kAnswerFile) && place.ends_with(kAnswerFunction))
        found.kind = SecretKind::address;
    for (const Opening& opening : kOpenings) {
        if (line.substr(found.body).starts_with(opening.text)) {
            found.body += opening.text.size();
            found.kind = opening.kind;
            found.tail = opening.hasNumber ? LengthOfNumber(line.substr(found.body)) : 0;
            break;
        }
    }
    return found;
}

}  // namespace cmn
