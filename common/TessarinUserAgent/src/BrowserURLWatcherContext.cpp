#include "useragent/BrowserURLWatcherContext.h"

#include <utility>

namespace useragent {

BrowserURLWatcherContext::BrowserURLWatcherContext(std::string browser, std::int32_t process)
    : name(std::move(browser)), pid(process) {}

BrowserURLWatcherContext::~BrowserURLWatcherContext() {
    pid = 0;
    for (auto* observer : {&mainWindowChangedObserver, &valueChangedObserver}) {
        if (*observer) {
            (*observer)->removeFromMainRunLoop();
            observer->reset();
        }
    }
}

}  // namespace useragent
