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

// Which of the windows is the main one: the active frame, else `lastMain`, else the first. Frames without a
// title are menus and bubbles, and dialogs are no frames: both never are. Nothing when there is no candidate.
std::optional<std::size_t> ChooseMainWindow(const std::vector<TopLevel>& windows,
                                            const std::string& lastMain);

}  // namespace useragent
