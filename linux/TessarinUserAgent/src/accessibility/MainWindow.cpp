#include "accessibility/MainWindow.h"

namespace useragent {

std::optional<std::size_t> ChooseMainWindow(const std::vector<TopLevel>& windows,
                                            const std::string& lastMain) {
    std::optional<std::size_t> first;
    std::optional<std::size_t> last;
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const TopLevel& window = windows[i];
        if (window.role != atspi::kRoleFrame || window.title.empty()) {
            continue;
        }
        if (atspi::Has(window.states, atspi::State::active)) {
            return i;
        }
        if (!first) {
            first = i;
        }
        if (window.path == lastMain) {
            last = i;
        }
    }
    return last ? last : first;
}

}  // namespace useragent
