#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "useragent/AgentStatus.h"
#include "useragent/AppMenu.h"
#include "useragent/FileFiltersViewController.h"
#include "useragent/PermissionNotices.h"
#include "useragent/StatusImage.h"
#include "usercommon/Dispatch.h"
#include "xpccommon/FinderExtensionXPCClient.h"

namespace useragent {

// The agent's item in the status area. Main thread.
class StatusItem {
 public:
    virtual ~StatusItem() = default;
    virtual void setImage(StatusImage image) = 0;
    // What differs from before is rewritten, nothing else: an open menu would jump.
    virtual void setMenu(const MenuItems& items) = 0;
    virtual void setVisible(bool visible) = 0;
    virtual IconPlace place() const = 0;
};

// One open properties window. Main thread.
class PropertiesWindow {
 public:
    virtual ~PropertiesWindow() = default;  // closes it, without a report
    // Loads the controller's view and shows it; once. With the token, where the platform has such, the
    // desktop lets the window take the focus; empty: none.
    virtual void show(std::unique_ptr<FileFiltersViewController> controller,
                      const std::string& activationToken) = 0;
};

// What the delegate drives. Main thread.
class ApplicationInterface {
 public:
    virtual ~ApplicationInterface() = default;

    // Shows the item, whose menu follows at once. `menuNeedsUpdate` is called each time the user is about to
    // see the menu.
    virtual std::shared_ptr<StatusItem> createStatusItem(std::function<void()> menuNeedsUpdate) = 0;
    // Makes a window that is empty and not shown. Null when it cannot be made. `willClose` is called once
    // when the user closes it, and may destroy it.
    virtual std::unique_ptr<PropertiesWindow> createPropertiesWindow(std::function<void()> willClose) = 0;
    // Calls again and again until the application ends.
    virtual void scheduleRepeatingTimer(std::chrono::seconds interval, std::function<void()> tick) = 0;
};

// What a delegate is made of where the platforms differ. None is null.
struct AppDelegateParts {
    std::shared_ptr<ApplicationInterface> interface;
    std::shared_ptr<Accessibility> accessibility;
    std::shared_ptr<FileManagerExtension> extension;
    std::shared_ptr<SettingsPanes> panes;
    std::shared_ptr<Notices> notices;
    std::shared_ptr<cmn::Dispatch> dispatch;
    std::shared_ptr<cmn::XPCTransport> transport;
    StatusSource status;  // of what is not the delegate's; empty where nobody asks
};

// The application's delegate: status item, menu, properties windows. All on the main thread.
class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
 public:
    struct Environment {
        std::shared_ptr<ApplicationInterface> interface;
        std::shared_ptr<AppMenu> appMenu;
        std::shared_ptr<PermissionNotices> notices;
        std::shared_ptr<cmn::Dispatch> dispatch;
        std::shared_ptr<cmn::XPCTransport> transport;
        FileFiltersViewController::Environment properties;
        StatusSource status;  // as in AppDelegateParts
    };
    explicit AppDelegate(Environment environment);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    void applicationDidFinishLaunching();

    // Both wait for the service, at most 100 ms for each question.
    void updateMenu();
    void checkAgentIconPermission();
    void menuNeedsUpdate() { updateMenu(); }

    static bool applicationSupportsSecureRestorableState() { return true; }

    // Requests that may wait for their windows.
    static constexpr std::size_t kMostWaiting = 1000;

    // Takes one request for a window from each of the product's URLs and ignores the others; returns at once.
    // The windows are opened in the order of the requests, each in a turn of the main loop of its own. Those
    // of URLs that come before the launch wait for the first refresh after it: by then the service has
    // usually been reached. The token is for the first of the windows. Requests that find no room are
    // dropped, with a line in the log. `done` is called once, on the main thread, when none of them waits any
    // more, at the latest when this object ends; or after `kMostPatience`, when those that still wait count
    // as opened. It must not throw.
    using Opened = std::function<void(std::size_t notOpened)>;
    void openURLs(const std::vector<std::string>& urls, std::string activationToken = {},
                  Opened done = nullptr);

    // So long somebody waits who asked for windows while a service that hangs holds each of them up.
    static constexpr std::chrono::seconds kMostPatience{5};
    // How long a window stands before the user has seen it.
    static constexpr std::chrono::seconds kSeen{1};

    // For the end of the application, when its requests go to the next one already: those that wait are not
    // opened any more. Returns whether each window has been seen; otherwise `seen` is called, on the main
    // thread, as soon as that is so.
    bool applicationWillEnd(std::function<void()> seen);

    // Waits for the service, at most 100 ms for each of its two questions. False when there is no window.
    bool showFileFilters(const std::optional<std::string>& path, const std::string& activationToken = {});
    bool checkFileEncryption(const std::string& path);

    // Gathers how the agent is and calls `done` with it as JSON, on another thread; the asking thread does
    // not wait. What may wait for others, at most 350 ms, is asked on the global high-priority queue.
    void gatherStatus(bool withAddresses, std::function<void(const std::string& json)> done);

    std::size_t openWindows() const { return fileFiltersWindows_.size(); }

    const std::shared_ptr<AppMenu>& appMenu() const { return environment_.appMenu; }
    // The one connection to the Finder extension service; null before the launch.
    const std::shared_ptr<cmn::FinderExtensionXPCClient>& xpcClient() const { return xpcClient_; }

 private:
    struct Asked;
    struct Request {
        std::optional<std::string> path;
        std::string activationToken;
        std::shared_ptr<Asked> asked;  // by those that came together
    };

    cmn::ServiceOwners serviceOwners() const;
    std::function<void()> whileAlive(void (AppDelegate::*action)());
    void windowWillClose(int window);
    void onMainAfter(std::chrono::milliseconds delay, std::function<void()> task) const;
    void openNextLater();
    void openNext();
    void wasSeen(int window);

    const Environment environment_;
    std::shared_ptr<cmn::FinderExtensionXPCClient> xpcClient_;
    std::shared_ptr<StatusItem> statusItem_;
    std::deque<Request> waiting_;
    bool willOpenNext_ = false;
    int lastWindow_ = 0;
    std::map<int, std::unique_ptr<PropertiesWindow>> fileFiltersWindows_;
    std::set<int> notSeen_;  // of them
    std::function<void()> allSeen_;
};

// The delegate of the running program: with its settings, its product record and the time of the day.
std::shared_ptr<AppDelegate> MakeAppDelegate(AppDelegateParts parts);

}  // namespace useragent
