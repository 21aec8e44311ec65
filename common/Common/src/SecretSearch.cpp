#include "SecretSearch.h"

#include <algorithm>
#include <array>
#include <boost/algorithm/string/case_conv.hpp>
#include <iterator>
#include <locale>
#include <system_error>
#include <utility>

namespace cmn {

namespace {

constexpr std::size_t kShortSecret = 6;  // shorter ones count as words of their own only
constexpr std::size_t kLongestScheme = 32;
constexpr std::size_t kLeastKey = 20;
constexpr std::size_t kLeastDigits = 13;
constexpr auto kNone = std::string_view::npos;
constexpr std::string_view kInWords = ".-_+=@";  // beside letters and digits

char Small(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsLetter(char c) {
    return Small(c) >= 'a' && Small(c) <= 'z';
}
bool IsHex(char c) {
    return IsDigit(c) || (Small(c) >= 'a' && Small(c) <= 'f');
}
// Of a word; what is no ASCII counts as letters.
bool IsPartOfWord(char c) {
    return IsDigit(c) || IsLetter(c) || static_cast<unsigned char>(c) >= 0x80;
}
bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}
std::string InSmallLetters(std::string_view text) {
    return boost::algorithm::to_lower_copy(std::string(text), std::locale::classic());
}

// What may end an address or a path although it could be a part of it: it tells nothing.
const std::set<std::string, std::less<>>& Reasons() {
    static const std::set<std::string, std::less<>> reasons = [] {
        constexpr int kLastSystemError = 133;
        std::set<std::string, std::less<>> texts{"Not sealed", "It took too long", "The host ends"};
        for (int error = 1; error <= kLastSystemError; ++error)
            texts.insert(std::generic_category().message(error));
        return texts;
    }();
    return reasons;
}
constexpr std::array<std::string_view, 3> kEndings{
    "_0.log, nor to the user's folder for logs, so it goes to the standard error stream",
    ", so it goes to the standard error stream", " is missing. Install the Tessarin agent again."};

std::size_t LengthWithoutEnding(std::string_view text) {
    for (const std::string_view ending : kEndings) {
        if (text.ends_with(ending))
            return text.size() - ending.size();
    }
    for (const std::string_view separator : {std::string_view(" -- "), std::string_view(": ")}) {
        const auto at = text.rfind(separator);
        if (at != std::string_view::npos && Reasons().contains(text.substr(at + separator.size())))
            return at;
    }
    return text.size();
}

char ClosingOf(char opening) {
    constexpr std::string_view kOpening = "\"'`(<[{";
    constexpr std::string_view kClosing = "\"'`)>]}";
    const auto at = kOpening.find(opening);
    return at == std::string_view::npos ? '\0' : kClosing[at];
}

// Names of services, interfaces and errors on message buses begin so.
bool IsNameOnBus(std::string_view word) {
    constexpr std::array<std::string_view, 6> kPrefixes{"com.tessarin.", "org.a11y.", "org.freedesktop.",
                                                        "org.gtk.",      "org.kde.",  "org.gnome."};
    return std::any_of(kPrefixes.begin(), kPrefixes.end(),
                       [&](std::string_view prefix) { return word.starts_with(prefix); });
}

// "example.org", "10.0.0.1", "salary.docx", "somebody@example.org".
bool IsDotted(std::string_view word) {
    if (word.find('@') != std::string_view::npos)
        return word.size() > 2;
    std::size_t parts = 0;
    bool isNumber = true;
    std::string_view last;
    for (std::size_t begin = 0; begin <= word.size(); begin += last.size() + 1) {
        last = word.substr(begin, word.find('.', begin) - begin);
        if (last.empty())
            return false;
        isNumber = isNumber && std::all_of(last.begin(), last.end(), IsDigit);
        ++parts;
    }
    if (isNumber)
        return parts == 4;
    return parts > 1 && last.size() > 1 && std::any_of(last.begin(), last.end(), IsLetter);
}

// "08:00:2b:01:02:03", "fe80::1"; a time of day is none.
bool IsOfNetwork(std::string_view word) {
    const auto colons = std::count(word.begin(), word.end(), ':');
    return std::all_of(word.begin(), word.end(), [](char c) { return IsHex(c) || c == ':'; }) &&
           (colons >= 5 || (colons >= 2 && word.find("::") != std::string_view::npos));
}

// Long texts of chance: keys, tokens, sums of files, numbers of cards.
bool IsKey(std::string_view word) {
    const auto digits = static_cast<std::size_t>(std::count_if(word.begin(), word.end(), IsDigit));
    const bool isHex = std::all_of(word.begin(), word.end(), IsHex);
    return digits >= kLeastDigits || (digits > 0 && word.size() >= kLeastKey) ||
           (isHex && digits > 0 && word.size() > kLeastDigits);
}

}  // namespace

SecretSearch::SecretSearch(std::string_view source, const KnownTexts& known, int mostPasses)
    : source_(source), text_(source, mostPasses), known_(known) {}

std::vector<FoundSecret> SecretSearch::find(std::optional<SecretKind> opening) {
    const std::size_t size = text_.bytes.size();
    if (opening && lineEnd(0) > 0)
        take(0, openFrom(0, *opening));
    while (taken_ < size) {
        const std::size_t at = taken_;
        if (const std::size_t kept = keptAt(at); kept > 0) {
            taken_ = at + kept;
        } else if (const auto match = matchAt(at)) {
            take(at, *match);
        } else {
            taken_ = at + 1;
        }
    }
    // What looked like an escape and was none may have taken the beginning of a secret.
    for (int passes = 0; passes < text_.passes; ++passes)
        SecretSearch(source_, known_, passes).addKnownTo(found_);
    return std::move(found_);
}

FoundSecret SecretSearch::foundAt(std::size_t begin, const Match& match) const {
    return {text_.origins[begin].begin, text_.origins[match.end - 1].end, match.kind, match.text};
}

// Those that are not within one of `found`.
void SecretSearch::addKnownTo(std::vector<FoundSecret>& found) const {
    std::vector<FoundSecret> more;
    auto next = found.cbegin();
    for (std::size_t at = 0; at < text_.bytes.size();) {
        const std::size_t kept = keptAt(at);
        const auto match = kept > 0 ? std::nullopt : knownAt(at);
        if (!match) {
            at += std::max<std::size_t>(kept, 1);
            continue;
        }
        FoundSecret secret = foundAt(at, *match);
        at = match->end;
        next = std::find_if(next, found.cend(),
                            [&](const FoundSecret& other) { return other.end >= secret.end; });
        if (next == found.cend() || next->begin > secret.begin)
            more.push_back(std::move(secret));
    }
    found.insert(found.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    std::stable_sort(found.begin(), found.end(), [](const FoundSecret& left, const FoundSecret& right) {
        return left.begin < right.begin;
    });
}

void SecretSearch::take(std::size_t begin, const Match& match) {
    found_.push_back(foundAt(begin, match));
    matchEnd_ = match.end;
    taken_ = match.end + match.harmless;
    // Whatever follows such an end of a line may still belong to it.
    const std::size_t next = match.isOpen ? pastBreak(match.end) : match.end;
    const std::size_t size = text_.bytes.size();
    if (match.isOpen && next < size) {
        found_.push_back({text_.origins[next].begin, text_.origins.back().end, SecretKind::text,
                          text_.bytes.substr(next)});
        taken_ = size;
    }
}

std::optional<SecretSearch::Match> SecretSearch::matchAt(std::size_t at) const {
    if (isPathAt(at))
        return openFrom(at, SecretKind::path);
    if (isAddressAt(at))
        return openFrom(at, SecretKind::address);
    if (auto known = knownAt(at))
        return known;
    if (auto uuid = uuidAt(at))
        return uuid;
    return wordAt(at);
}

bool SecretSearch::isWordAt(std::size_t at) const {
    return at < text_.bytes.size() && IsPartOfWord(text_.bytes[at]);
}

bool SecretSearch::isLineEnd(std::size_t at) const {
    return text_.bytes[at] == '\n' && !text_.origins[at].escaped;
}

std::size_t SecretSearch::lineEnd(std::size_t at) const {
    while (at < text_.bytes.size() && !isLineEnd(at))
        ++at;
    return at > 0 && at < text_.bytes.size() && text_.bytes[at - 1] == '\r' ? at - 1 : at;
}

// Behind the end of a line and what the next one is indented with; the same place where no line ends.
std::size_t SecretSearch::pastBreak(std::size_t at) const {
    const std::string& bytes = text_.bytes;
    if (at >= bytes.size() || (bytes[at] != '\n' && bytes[at] != '\r'))
        return at;
    while (at < bytes.size() && IsBlank(bytes[at]))
        ++at;
    return at;
}

// Where the secret ends that stands there. The end of a line may be anywhere in it, or in the place of a
// blank.
std::optional<std::size_t> SecretSearch::spelled(std::string_view secret, std::size_t at) const {
    for (std::size_t i = 0; i < secret.size(); ++i) {
        if (const std::size_t next = pastBreak(at); i > 0 && next != at) {
            at = next;
            if (secret[i] == ' ')
                continue;
        }
        if (at >= text_.bytes.size())
            return std::nullopt;
        const char c = Small(text_.bytes[at]);
        if (c != secret[i] && !(c == '+' && secret[i] == ' '))
            return std::nullopt;
        ++at;
    }
    return at;
}

std::optional<SecretSearch::Match> SecretSearch::knownAt(std::size_t at) const {
    for (const KnownTexts::Secret& secret : known_.secrets) {
        const auto end = spelled(secret.text, at);
        if (!end)
            continue;
        const bool isWord =
            (at == 0 || !isWordAt(at - 1) || !isWordAt(at)) && (!isWordAt(*end) || !isWordAt(*end - 1));
        if (secret.text.size() >= kShortSecret || isWord)
            return Match{*end, secret.kind, secret.text};
    }
    return std::nullopt;
}

std::optional<SecretSearch::Match> SecretSearch::uuidAt(std::size_t at) const {
    constexpr std::string_view kShape = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    if (!IsHex(text_.bytes[at]) || (at > 0 && isWordAt(at - 1)))
        return std::nullopt;
    std::string digits;
    for (std::size_t i = 0; i < kShape.size(); ++i, ++at) {
        at = i > 0 ? pastBreak(at) : at;
        if (at >= text_.bytes.size())
            return std::nullopt;
        const char c = text_.bytes[at];
        if (kShape[i] == 'x' ? !IsHex(c) : c != '-')
            return std::nullopt;
        if (c != '-')
            digits += Small(c);
    }
    return Match{at, SecretKind::uuid, digits};
}

// A word, with what addresses, names of files and keys have in them.
std::optional<SecretSearch::Match> SecretSearch::wordAt(std::size_t at) const {
    const std::string_view bytes = text_.bytes;
    if (at > 0 && at != matchEnd_ && (isWordAt(at - 1) || kInWords.find(bytes[at - 1]) != kNone))
        return std::nullopt;
    const auto endOf = [&](std::string_view more) {
        std::size_t end = at;
        while (isWordAt(end) || (end < bytes.size() && more.find(bytes[end]) != kNone))
            ++end;
        return end;
    };
    const auto textTo = [&](std::size_t end) { return InSmallLetters(bytes.substr(at, end - at)); };
    if (const std::size_t end = endOf(":"); end > at && IsOfNetwork(textTo(end)))
        return Match{end, SecretKind::address, textTo(end)};
    std::size_t end = endOf(kInWords);
    while (end > at && bytes[end - 1] == '.')
        --end;
    const std::string word = textTo(end);
    if (word.empty() || IsNameOnBus(word))
        return std::nullopt;
    // Browsers leave the scheme out.
    if (hasPortAndPathAt(end) ||
        (IsDotted(word) && end < bytes.size() && std::string_view("/?#").find(bytes[end]) != kNone))
        return openFrom(at, SecretKind::address);
    if (IsDotted(word))
        return Match{end, SecretKind::address, word};
    if (IsKey(word))
        return Match{end, word.size() == 32 ? SecretKind::uuid : SecretKind::key, word};
    return std::nullopt;
}

// ":8080/", as behind the name of a machine.
bool SecretSearch::hasPortAndPathAt(std::size_t at) const {
    const std::string_view rest = std::string_view(text_.bytes).substr(at);
    if (!rest.starts_with(':'))
        return false;
    const auto end = std::find_if_not(rest.begin() + 1, rest.end(), IsDigit);
    return end != rest.begin() + 1 && end != rest.end() && *end == '/';
}

// How much of a text there stays whatever it looks like.
std::size_t SecretSearch::keptAt(std::size_t at) const {
    const std::string_view rest = std::string_view(text_.bytes).substr(at);
    if (at > 0 && (isWordAt(at - 1) || text_.bytes[at - 1] == '/' || text_.bytes[at - 1] == '.'))
        return 0;
    std::size_t longest = 0;
    for (const std::string& kept : known_.kept) {
        if (kept.size() <= longest || !rest.starts_with(kept))
            continue;
        const std::string_view after = rest.substr(kept.size());
        const bool isAlone = after.empty() || IsBlank(after[0]) ||
                             std::string_view("\"'`,;:)>]}").find(after[0]) != std::string_view::npos ||
                             (after[0] == '.' && (after.size() == 1 || IsBlank(after[1])));
        longest = isAlone ? kept.size() : longest;
    }
    return longest;
}

bool SecretSearch::isPathAt(std::size_t at) const {
    const std::string& bytes = text_.bytes;
    std::size_t slash = at;
    if (bytes[at] == '~') {
        do
            ++slash;
        while (isWordAt(slash));
    }
    const bool isBegin = at == 0 || !isWordAt(at - 1) || at == matchEnd_;
    return isBegin && slash + 1 < bytes.size() && bytes[slash] == '/' && !IsBlank(bytes[slash + 1]);
}

bool SecretSearch::isAddressAt(std::size_t at) const {
    constexpr std::array<std::string_view, 9> kSchemes{
        "about", "blob", "chrome", "data", "javascript", "magnet", "mailto", "tel", "view-source"};
    const std::string_view rest = std::string_view(text_.bytes).substr(at);
    if (rest.empty() || !IsLetter(rest[0]) || (at > 0 && isWordAt(at - 1)))
        return false;
    std::size_t colon = 0;
    while (colon < rest.size() && colon < kLongestScheme &&
           (IsLetter(rest[colon]) || IsDigit(rest[colon]) || rest[colon] == '+' || rest[colon] == '-'))
        ++colon;
    const std::string_view after = rest.substr(colon);
    if (after.starts_with("://"))
        return true;
    return after.size() > 1 && after[0] == ':' && !IsBlank(after[1]) &&
           std::find(kSchemes.begin(), kSchemes.end(), InSmallLetters(rest.substr(0, colon))) !=
               kSchemes.end();
}

// Whether blanks belong to it cannot be told: it ends with the quotes that it began with, before something
// that is known, or with the line.
SecretSearch::Match SecretSearch::openFrom(std::size_t at, SecretKind kind) const {
    const std::string_view bytes = text_.bytes;
    const std::size_t end = lineEnd(at);
    const char closing = at > 0 ? ClosingOf(bytes[at - 1]) : '\0';
    const std::size_t quote = closing != '\0' ? bytes.substr(0, end).rfind(closing) : at;
    if (quote > at && quote != std::string_view::npos)
        return {quote, kind, std::string(bytes.substr(at, quote - at))};
    const std::string_view line = bytes.substr(at, end - at);
    const std::size_t length = std::max<std::size_t>(LengthWithoutEnding(line), 1);
    return {at + length, kind, std::string(line.substr(0, length)), length == line.size(),
            line.size() - length};
}

}  // namespace cmn
