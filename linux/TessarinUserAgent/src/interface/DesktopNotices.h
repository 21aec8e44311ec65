#pragma once

#include <memory>
#include <vector>

#include "notifications/DesktopNotification.h"
#include "sessionbus/SessionBus.h"
#include "useragent/PermissionNotices.h"

namespace useragent {

// Notes as notifications of the desktop. The first makes a connection to the session bus, which stays for the
// buttons. Main thread.
class DesktopNotices : public Notices {
 public:
    explicit DesktopNotices(SessionBusPlace place, std::chrono::milliseconds timeout = kNotificationTimeout);
    ~DesktopNotices() override;

    void show(const Notice& notice, std::function<void(const std::string& failure)> done,
              std::function<void()> pressed) override;

 private:
    struct Note {
        Notice notice;
        std::function<void(const std::string&)> done;
        std::function<void()> pressed;
    };

    void send(const Note& note);
    void hearButton(const ShownNotification& shown, const std::function<void()>& pressed);
    void busIsReady();
    void busIsLost(const std::string& why);

    const SessionBusPlace place_;
    const std::chrono::milliseconds timeout_;
    std::vector<Note> waiting_;  // for the connection
    std::vector<std::shared_ptr<cmn::bus::Subscription>> buttons_;
    std::unique_ptr<SessionBus> bus_;  // calls the others
};

}  // namespace useragent
