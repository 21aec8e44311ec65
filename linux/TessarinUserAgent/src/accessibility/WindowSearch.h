#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "accessibility/FieldWatch.h"
#include "accessibility/MainWindow.h"
#include "accessibility/Session.h"
#include "useragent/Accessibility.h"

namespace useragent {

// Which of an application's windows is the main one, and where its address field is. Asks the application and
// waits for its answers; any thread but the bus's and the main thread.
class WindowSearch {
 public:
    struct Found;

    // What was found before, and helps.
    struct Known {
        void remember(const Found& found);

        std::vector<std::string> mainWindows;  // the paths of those that were it, the latest first
        std::string frontTitle;                // of the front-most window on screen; empty when not known
        bool isCovered = false;                // another program's window is in front of that
        std::set<std::string> minimised;       // the paths of those that said so, which some never do
        std::map<std::string, AddressField> fields;  // by the path of the window
        std::map<std::string, AddressField> pages;   // that fill their window now, in the place of its field
    };
    struct Found {
        atspi::ObjectRef window;
        std::string title;
        bool isActive = false;
        std::map<std::string, bool> windows;  // all paths, and whether it is a candidate for the main one
        auto candidates() const {
            return std::count_if(windows.begin(), windows.end(), [](const auto& one) { return one.second; });
        }
        std::optional<AddressField> field;
        cmn::bus::Result<std::string> text = std::string();  // of the field
        bool isFieldShowing = false;
    };

    WindowSearch(std::shared_ptr<Session> session, std::int32_t pid, std::string busName);

    // `noValue` when there is no main window, `cannotComplete` when the application does not answer.
    AXError run(const Known& known, Found& found);

    // Whether it is still the main window, at fewer calls. The front title is as in `Known`; `title` is what
    // the window itself has just said, nothing when it did not.
    bool stillHolds(const Found& found, const std::string& frontTitle,
                    const std::optional<std::string>& title) const;

 private:
    AXError chooseWindow(const Known& known, Found& found);
    void findField(const Known& known, Found& found);
    bool isNoOtherInFront(const Found& found, const std::string& frontTitle, TitleMatch match) const;
    bool findCovered(Found& found, cmn::bus::Deadline deadline);
    bool isInPage(atspi::ObjectRef object, const atspi::ObjectRef& window, cmn::bus::Deadline deadline) const;
    bool describe(AddressField field, Found& found);
    static void adopt(const FieldDescription& description, AddressField field, Found& found);
    bool describePage(const Known& known, Found& found);
    void careForContent(const atspi::ObjectRef& window, const cmn::bus::Result<atspi::Objects>& children);

    const std::shared_ptr<Session> session_;
    const std::int32_t pid_;
    const atspi::ObjectRef root_;
    std::optional<atspi::Objects> showing_;  // children of the window that was chosen, if they were read
};

}  // namespace useragent
