#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "linux_bus/Loop.h"
#include "windowlist/XcbConnection.h"

namespace useragent {

// Listens to an X server's root window for another active window and another order of the windows, until it
// is destroyed or the server is gone. Asks nothing, and is woken by nothing else but the root's properties.
class XcbOrderWatch : public std::enable_shared_from_this<XcbOrderWatch> {
 public:
    // `changed` is called in the loop's thread. Nothing else may use the connection.
    static std::shared_ptr<XcbOrderWatch> begin(std::unique_ptr<XcbConnection> connection,
                                                std::shared_ptr<cmn::bus::Loop> loop,
                                                std::function<void()> changed);
    ~XcbOrderWatch();
    XcbOrderWatch(const XcbOrderWatch&) = delete;
    XcbOrderWatch& operator=(const XcbOrderWatch&) = delete;

 private:
    XcbOrderWatch(std::unique_ptr<XcbConnection> connection, std::shared_ptr<cmn::bus::Loop> loop,
                  std::function<void()> changed)
        : connection_(std::move(connection)), loop_(std::move(loop)), changed_(std::move(changed)) {}

    void read();
    void stop();

    const std::unique_ptr<XcbConnection> connection_;
    const std::shared_ptr<cmn::bus::Loop> loop_;
    const std::function<void()> changed_;
    cmn::bus::Loop::WatchId watch_ = 0;  // 0: none
};

}  // namespace useragent
