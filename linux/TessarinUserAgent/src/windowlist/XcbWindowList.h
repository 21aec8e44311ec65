#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "accessibility/AtspiSettings.h"
#include "linux_bus/Loop.h"
#include "useragent/Deadlines.h"
#include "useragent/WindowList.h"

namespace useragent {

// The windows of an X server, as its window manager lists them, the active one first: no hidden windows, none
// of desktops that are not shown, and none of processes of other machines. Connects when it is asked, again
// after the server went away. Any thread.
class XcbWindowList final : public WindowList {
 public:
    // `display` as in the environment variable DISPLAY.
    explicit XcbWindowList(std::string display,
                           std::chrono::milliseconds callDeadline = kBrowserCallDeadline);
    ~XcbWindowList() override;

    std::optional<std::vector<WindowInfo>> copyOnScreenWindows() override;

    // From the next list on calls `told` in the loop's thread when another window is active, one is hidden or
    // shown, another desktop is, they are in another order, or have other titles; again after the server was
    // away. To be called once.
    void tellChanges(std::shared_ptr<cmn::bus::Loop> loop, ScreenEvents told);

 private:
    struct Parts;

    std::mutex mutex_;  // guards what follows
    const std::unique_ptr<Parts> parts_;
};

}  // namespace useragent
