#include "windowlist/OwnerName.h"

#include <algorithm>
#include <array>
#include <boost/algorithm/string/case_conv.hpp>
#include <locale>
#include <vector>

namespace useragent {
namespace {

using Words = std::vector<std::string>;

// What may follow a browser's name: release channels, and words that distributions add.
constexpr std::array<std::string_view, 14> kChannels{
    "aurora",     "beta",    "browser", "canary",  "default", "dev",      "developer",
    "devedition", "edition", "esr",     "nightly", "stable",  "unstable", "web"};

struct BrowserName {
    std::array<std::string_view, 2> words;  // the second may be empty
    std::string_view name;
};

constexpr std::array kBrowserNames{
    BrowserName{{"firefox", ""}, "Firefox"},        BrowserName{{"mozilla", "firefox"}, "Firefox"},
    BrowserName{{"nightly", ""}, "Firefox"},  // what nightly builds of it call themselves
    BrowserName{{"chromium", ""}, "Google Chrome"}, BrowserName{{"google", "chrome"}, "Google Chrome"},
    BrowserName{{"chrome", ""}, "Google Chrome"},
};

bool IsLetter(char character, char first, char last) {
    return character >= first && character <= last;
}

// "Google-chrome-beta" is google, chrome, beta, and "ChromeDev" is chrome, dev. Of a reversed domain name
// ("org.mozilla.firefox") only the last part.
Words SplitIntoWords(std::string_view text) {
    if (text.find(' ') == std::string_view::npos) {
        text.remove_prefix(text.rfind('.') + 1);
    }
    Words words{std::string()};
    char previous = 0;
    for (const char character : text) {
        const bool isGap = character == ' ' || character == '-' || character == '_';
        if (isGap || (IsLetter(previous, 'a', 'z') && IsLetter(character, 'A', 'Z'))) {
            words.emplace_back();
        }
        if (!isGap) {
            words.back() += character;
        }
        previous = character;
    }
    words.erase(std::remove(words.begin(), words.end(), std::string()), words.end());
    for (std::string& word : words) {
        boost::algorithm::to_lower(word, std::locale::classic());
    }
    return words;
}

bool IsChannel(const std::string& word) {
    return std::find(kChannels.begin(), kChannels.end(), word) != kChannels.end();
}

bool Matches(const Words& words, const BrowserName& browser) {
    const std::size_t length = browser.words[1].empty() ? 1 : 2;
    // A package of another kind puts its own name before that of the program: "firefox_firefox".
    const auto isPart = [&](const std::string& word) {
        return IsChannel(word) ||
               std::find(browser.words.begin(), browser.words.end(), word) != browser.words.end();
    };
    return words.size() >= length &&
           std::equal(browser.words.begin(), browser.words.begin() + length, words.begin()) &&
           std::all_of(words.begin() + static_cast<std::ptrdiff_t>(length), words.end(), isPart);
}

}  // namespace

std::string OwnerName(std::string_view applicationName) {
    const Words words = SplitIntoWords(applicationName);
    const auto* const found =
        std::find_if(kBrowserNames.begin(), kBrowserNames.end(),
                     [&](const BrowserName& browser) { return Matches(words, browser); });
    return std::string(found != kBrowserNames.end() ? found->name : applicationName);
}

}  // namespace useragent
