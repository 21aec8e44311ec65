#include "accessibility/MainWindow.h"

namespace useragent {

bool IsCandidate(const TopLevel& window) {
    return window.role == atspi::kRoleFrame && !window.title.empty() &&
           !atspi::Has(window.states, atspi::State::defunct);
}

std::optional<std::size_t> ChooseMainWindow(const std::vector<TopLevel>& windows, const std::string& lastMain,
                                            const std::string& frontTitle) {
    std::optional<std::size_t> first;
    std::optional<std::size_t> front;
    std::optional<std::size_t> last;
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const TopLevel& window = windows[i];
        if (!IsCandidate(window)) {
            continue;
        }
        if (atspi::Has(window.states, atspi::State::active)) {
            return i;
        }
        if (!first) {
            first = i;
        }
        if (!front && window.title == frontTitle) {
            front = i;
        }
        if (window.path == lastMain) {
            last = i;
        }
    }
    return last ? last : front ? front : first;
}

}  // namespace useragent
