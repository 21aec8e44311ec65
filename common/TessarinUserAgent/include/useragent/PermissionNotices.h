#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "useragent/AppMenu.h"
#include "useragent/ToldOnce.h"

namespace useragent {

// A note to the user with one button. UTF-8.
struct Notice {
    std::string title;
    std::string text;
    std::string button;
    bool operator==(const Notice&) const = default;
};

// Where notes are shown. Main thread.
class Notices {
 public:
    virtual ~Notices() = default;
    // Returns at once. Then or later, on the main thread: `done`, once, with why it is not shown, empty when
    // it is; `pressed` each time the user presses the button.
    virtual void show(const Notice& notice, std::function<void(const std::string& failure)> done,
                      std::function<void()> pressed) = 0;
};

// Shows none: for systems that tell of missing permissions by themselves.
class NoNotices : public Notices {
 public:
    void show(const Notice& /*notice*/, std::function<void(const std::string& failure)> /*done*/,
              std::function<void()> /*pressed*/) override {}
};

// Tells the user of each permission that is missing, with the way to mend it, once and never again, also when
// it was granted meanwhile and is lost: the menu and the icon show it from then on. What could not be shown
// is tried again at the next review. Of accessibility the system's own prompt tells. Main thread.
class PermissionNotices : public std::enable_shared_from_this<PermissionNotices> {
 public:
    struct Environment {
        std::shared_ptr<Notices> notices;
        std::shared_ptr<FileManagerExtension> extension;
        std::shared_ptr<SettingsPanes> panes;
        ToldOnce told;
    };
    explicit PermissionNotices(Environment environment);

    // At each refresh, without waiting. Nothing: the service did not say, so there is nothing to tell.
    void review(std::optional<bool> fullDiskAccess);

 private:
    bool isToBeTold(const std::string& permission) const;
    void tell(const std::string& permission, const Notice& notice, std::function<void()> mend);
    void told(const std::string& permission, const std::string& failure);

    const Environment environment_;
    std::set<std::string> telling_;  // or told in this run
    std::set<std::string> failed_;   // whose failure was logged
};

}  // namespace useragent
