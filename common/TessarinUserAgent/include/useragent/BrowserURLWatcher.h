#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "useragent/Accessibility.h"
#include "useragent/BrowserURLWatcherContext.h"
#include "useragent/SearchReader.h"
#include "useragent/WindowList.h"
#include "usercommon/Semaphore.h"

namespace cmn {
class UserAgentXPCClient;
}

namespace useragent {

// What the watcher needs from the system.
struct WatcherPorts {
    std::shared_ptr<Accessibility> accessibility;
    std::shared_ptr<WindowList> windowList;
    // What the polling thread waits on between two looks; its count starts at 0. A platform end that hears of
    // something that only a look can answer may signal it. Nobody else uses it.
    std::shared_ptr<cmn::Semaphore> pause;
    MonotonicClock now;
};

// Follows the address fields of a fixed list of browsers: polls the on-screen windows on a thread of its own,
// keeps observers on each running browser and reports every change of an address. Accessibility callbacks
// arrive on the main thread, where the owner calls `stop` before it lets go of the watcher.
class BrowserURLWatcher {
 public:
    // Owner name to process id.
    using BrowserProcesses = std::map<std::string, std::int32_t>;

    // Starts polling at once. Throws std::system_error when the thread cannot be created.
    BrowserURLWatcher(std::vector<std::string> browsers, WatcherPorts ports);

    // Calls `stop`, which finds nothing left to do once the owner has called it: the last reference may then
    // go on any thread, also on the polling thread, which cannot wait for itself.
    ~BrowserURLWatcher();

    BrowserURLWatcher(const BrowserURLWatcher&) = delete;
    BrowserURLWatcher& operator=(const BrowserURLWatcher&) = delete;

    // Removes all observers, ends the polling pause and waits for the polling thread. Nothing is watched
    // afterwards. Main thread; may be called again.
    void stop();

    // To be called once, by the owner, before the main loop runs. URLs seen earlier are stored but not sent.
    void setXPCClient(std::weak_ptr<cmn::UserAgentXPCClient> client);

    // The last URL read from the browser's address field; empty when the browser is not watched. Any thread.
    std::string getURL(const std::string& browser);

    // The browsers being watched, and since when the address field of the window of the moment is read;
    // nothing while it is not, or not yet. Any thread.
    struct Watched {
        std::string name;
        std::int32_t pid = 0;
        std::optional<std::chrono::steady_clock::time_point> readSince;
        std::string url;
    };
    std::vector<Watched> watched() const;

 private:
    using Context = std::shared_ptr<BrowserURLWatcherContext>;
    using Contexts = std::map<std::string, Context>;

    // None of these is called with the mutex held, so that nobody waits for it while a browser is asked.
    void watchBrowserProcess();
    bool pollOnce();
    void handleBrowserProcesses(const BrowserProcesses& running, const BrowserProcesses& closed);
    Context beginContext(const std::string& name, std::int32_t pid);
    bool setUp(Context context);
    bool initContext(const Context& context);
    bool subscribe(std::int32_t pid, const AXElementRef& element, const std::string& notification,
                   AXObserverCallback callback, std::unique_ptr<AXObserver>& observer);
    using Handler = void (BrowserURLWatcher::*)(const AXElementRef& element);
    void handleNoThrow(Handler handler, const AXElementRef& element) noexcept;
    void handleMainWindowChanged(const AXElementRef& element);
    void handleValueChanged(const AXElementRef& element);
    // `change` is the number of the reading, taken under the same lock as the decision to read: an element
    // may bring along the text it had when it was told.
    void updateURL(const AXElementRef& field, const Context& context, std::uint64_t change);

    // With the mutex held.
    Context findContext(std::int32_t pid) const;
    bool isCurrent(const Context& context) const;
    void storeURL(const AXString& text, BrowserURLWatcherContext& context);

    const WatcherPorts ports_;
    // Not locked: written once before any notification is served, read under the mutex. The flag orders the
    // two.
    std::weak_ptr<cmn::UserAgentXPCClient> client_;
    std::atomic<bool> clientSet_{false};
    std::future<void> pollingTask_;
    std::atomic<bool> running_{true};
    BrowserProcesses browsers_;
    // Looked at while the window list fails; nothing before it could be had. Polling thread.
    std::optional<std::vector<WindowInfo>> lastFound_;
    mutable std::mutex mutex_;  // guards what follows
    Contexts contexts_;
};

std::shared_ptr<BrowserURLWatcher> CreateBrowserURLWatcher(std::vector<std::string> browsers,
                                                           WatcherPorts ports);

// Asks the system whether this process may use the accessibility interface, with the system's prompt when it
// may not. The answer is only logged.
void RequestAccesibilityPermission(Accessibility& accessibility);

}  // namespace useragent
