#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "accessibility/AtspiProtocol.h"

namespace useragent {

// An application that lists more is not asked about them: before any deadline it could not answer.
inline constexpr std::size_t kMostTopLevels = 1024;

// A window of an application as its accessibility root lists it.
struct TopLevel {
    std::string path;
    atspi::Role role = 0;
    atspi::States states = 0;
    std::string title;
};

// Whether it can be the main one. Frames without a title are menus and bubbles, and dialogs are no frames.
bool IsCandidate(const TopLevel& window);

// How well a window's title fits that of a window on screen, which some browsers leave shorter, and some give
// more words after what is the window's last line; a window that has the very same one is rather meant. The
// later the better.
enum class TitleMatch { none, lastLine, beginning, whole };
TitleMatch MatchTitle(const std::string& title, const std::string& onScreen);

// Which of the windows is the main one. Of several that claim to be active, and when there is none, the one
// that is in front on screen by its title `frontTitle`, which may be empty; then the one that was it last, of
// the paths in `before`, the latest first; then the first one. One that is minimised only when all are.
// Nothing when there is no candidate. A claim to be active is an old one, and does not count against the
// title, where another program's window `isInFrontOfAll`, and of a window that does not show while the one
// with the title does.
std::optional<std::size_t> ChooseMainWindow(const std::vector<TopLevel>& windows,
                                            const std::vector<std::string>& before,
                                            const std::string& frontTitle, bool isInFrontOfAll = false);

}  // namespace useragent
