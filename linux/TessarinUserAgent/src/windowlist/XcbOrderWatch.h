#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "accessibility/AtspiSettings.h"
#include "linux_bus/Loop.h"
#include "windowlist/XcbConnection.h"

namespace useragent {

// Listens to an X server's root window for another active window, another desktop and another order of the
// windows, and to the windows for another state, desktop or title, until it is destroyed or the server is
// gone. Asks nothing.
class XcbOrderWatch : public std::enable_shared_from_this<XcbOrderWatch> {
 public:
    // `told` is called in the loop's thread. Nothing else may use the connection.
    static std::shared_ptr<XcbOrderWatch> begin(std::unique_ptr<XcbConnection> connection,
                                                std::shared_ptr<cmn::bus::Loop> loop, ScreenEvents told);
    ~XcbOrderWatch();

    // Windows that are listed now, in addition. Any thread.
    void listenTo(const std::vector<xcb_window_t>& windows);

    XcbOrderWatch(const XcbOrderWatch&) = delete;
    XcbOrderWatch& operator=(const XcbOrderWatch&) = delete;

 private:
    XcbOrderWatch(std::unique_ptr<XcbConnection> connection, std::shared_ptr<cmn::bus::Loop> loop,
                  ScreenEvents told)
        : connection_(std::move(connection)), loop_(std::move(loop)), told_(std::move(told)) {}

    void read();
    void stop();

    const std::unique_ptr<XcbConnection> connection_;
    const std::shared_ptr<cmn::bus::Loop> loop_;
    const ScreenEvents told_;
    cmn::bus::Loop::WatchId watch_ = 0;  // 0: none
};

}  // namespace useragent
