#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "useragent/AppMenu.h"
#include "useragent/FileFiltersViewController.h"
#include "useragent/StatusImage.h"
#include "usercommon/Dispatch.h"
#include "xpccommon/FinderExtensionXPCClient.h"

namespace useragent {

// The agent's item in the status area. Main thread.
class StatusItem {
 public:
    virtual ~StatusItem() = default;
    virtual void setImage(StatusImage image) = 0;
    virtual void setVisible(bool visible) = 0;
};

// One open properties window. Main thread.
class PropertiesWindow {
 public:
    virtual ~PropertiesWindow() = default;  // closes it, without a report
    virtual void show() = 0;
};

// What the delegate drives. Main thread.
class ApplicationInterface {
 public:
    virtual ~ApplicationInterface() = default;

    // Shows the item with its menu. `menuNeedsUpdate` is called each time the user is about to see the menu.
    virtual std::shared_ptr<StatusItem> createStatusItem(std::function<void()> menuNeedsUpdate) = 0;
    // Makes a window for the controller and loads the controller's view into it. Null when it cannot be
    // made. `willClose` is called once when the user closes it, and may destroy it.
    virtual std::unique_ptr<PropertiesWindow> createPropertiesWindow(
        std::unique_ptr<FileFiltersViewController> controller, std::function<void()> willClose) = 0;
    // Calls again and again until the application ends.
    virtual void scheduleRepeatingTimer(std::chrono::seconds interval, std::function<void()> tick) = 0;
};

// The application's delegate: status item, menu, properties windows. All on the main thread.
class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
 public:
    struct Environment {
        std::shared_ptr<ApplicationInterface> interface;
        std::shared_ptr<AppMenu> appMenu;
        std::shared_ptr<cmn::Dispatch> dispatch;
        std::shared_ptr<cmn::XPCTransport> transport;
        FileFiltersViewController::Environment properties;
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

    // Opens one window for each of the product's URLs and ignores the others. URLs that come before the
    // launch wait for the first refresh after it: by then the service has usually been reached.
    void openURLs(const std::vector<std::string>& urls);

    // Waits for the service, at most 100 ms for each of its two questions.
    void showFileFilters(const std::optional<std::string>& path);
    bool checkFileEncryption(const std::string& path);

    std::size_t openWindows() const;

    // The one connection to the Finder extension service; null before the launch.
    const std::shared_ptr<cmn::FinderExtensionXPCClient>& xpcClient() const { return xpcClient_; }

 private:
    struct Entry;

    std::function<void()> whileAlive(void (AppDelegate::*action)());
    void windowWillClose(const Entry* entry);
    void openWaitingURLs();

    const Environment environment_;
    std::shared_ptr<cmn::FinderExtensionXPCClient> xpcClient_;
    std::shared_ptr<StatusItem> statusItem_;
    std::vector<std::string> waitingURLs_;
    mutable std::mutex windowsMutex_;
    std::vector<std::shared_ptr<Entry>> fileFiltersWindows_;
};

}  // namespace useragent
