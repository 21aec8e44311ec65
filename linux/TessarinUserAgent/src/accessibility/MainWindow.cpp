#include "accessibility/MainWindow.h"

#include <algorithm>
#include <string_view>
#include <tuple>

namespace useragent {
namespace {

bool IsHidden(const TopLevel& window) {
    return !atspi::Has(window.states, atspi::State::showing) ||
           atspi::Has(window.states, atspi::State::iconified);
}

// Chromium's find bar gives a pop-up such a name, and leaves it so: its own, and below it that of the page.
bool IsLastLineOnScreen(std::string_view title, std::string_view onScreen) {
    const std::size_t end = title.rfind('\n');
    const std::size_t begin = end != title.npos ? title.find_first_not_of(" \n", end) : end;
    if (begin == title.npos) {
        return false;
    }
    const std::string_view page = title.substr(begin);
    return onScreen.starts_with(page) && (onScreen.size() == page.size() || onScreen[page.size()] == ' ');
}

}  // namespace

bool IsCandidate(const TopLevel& window) {
    return window.role == atspi::kRoleFrame && !window.title.empty() &&
           !atspi::Has(window.states, atspi::State::defunct);
}

TitleMatch MatchTitle(const std::string& title, const std::string& onScreen) {
    if (onScreen.empty() || !title.starts_with(onScreen)) {
        return IsLastLineOnScreen(title, onScreen) ? TitleMatch::lastLine : TitleMatch::none;
    }
    return title == onScreen ? TitleMatch::whole : TitleMatch::beginning;
}

std::optional<std::size_t> ChooseMainWindow(const std::vector<TopLevel>& windows,
                                            const std::vector<std::string>& before,
                                            const std::string& frontTitle, bool isInFrontOfAll) {
    const auto isFront = [&](const TopLevel& window) {
        return IsCandidate(window) && MatchTitle(window.title, frontTitle) != TitleMatch::none;
    };
    const bool isFrontKnown = std::any_of(windows.begin(), windows.end(), isFront);
    const bool isFrontShown = std::any_of(windows.begin(), windows.end(), [&](const TopLevel& window) {
        return isFront(window) && !IsHidden(window);
    });
    const auto isClaimOld = [&](const TopLevel& window) {
        return isInFrontOfAll ? isFrontKnown : isFrontShown && IsHidden(window) && !isFront(window);
    };
    const auto rank = [&](const TopLevel& window) {
        return std::tuple(atspi::Has(window.states, atspi::State::active) && !isClaimOld(window),
                          !IsHidden(window), MatchTitle(window.title, frontTitle),
                          before.end() - std::find(before.begin(), before.end(), window.path));
    };
    std::optional<std::size_t> best;
    for (std::size_t i = 0; i < windows.size(); ++i) {
        if (IsCandidate(windows[i]) && (!best || rank(windows[i]) > rank(windows[*best]))) {
            best = i;
        }
    }
    return best;
}

}  // namespace useragent
