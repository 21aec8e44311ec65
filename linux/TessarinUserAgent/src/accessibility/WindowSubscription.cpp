#include "accessibility/WindowSubscription.h"

namespace useragent {

WindowSubscription::WindowSubscription(const std::shared_ptr<Session>& session, std::int32_t pid,
                                       const std::string& busName, AXObserverCallback callback)
    : Subscription(session, pid,
                   {{busName, {}}, atspi::kWindowEventInterface, "Activate", atspi::kWindowActivateEvent},
                   std::move(callback)),
      application_(std::make_shared<AtspiElement>(pid)),
      mainWindow_(session->applications.mainWindow(pid)) {}

void WindowSubscription::signalled(const cmn::bus::Message& signal) {
    if (atspi::TitleOf(signal).empty()) {
        return;  // a menu or a bubble
    }
    lastActivated_ = signal.path();
    examination_ = Examination::first;
    examineActivated();
}

void WindowSubscription::recovered(const std::string& busName) {
    if (busName == object().busName && examination_ == Examination::unanswered) {
        examination_ = Examination::repeated;
        examineActivated();
    }
}

void WindowSubscription::examineActivated() {
    if (lastActivated_ != mainWindow_ &&
        !ask<atspi::Role>(atspi::RoleOf({object().busName, lastActivated_}),
                          [this, path = lastActivated_](const auto& role) { activated(path, role); })) {
        examination_ = Examination::unanswered;
    }
}

void WindowSubscription::activated(const std::string& path, const cmn::bus::Result<atspi::Role>& role) {
    if (path != lastActivated_ || path == mainWindow_) {
        return;
    }
    if (!role && atspi::IsTimeout(role.error())) {
        examination_ = examination_ == Examination::first ? Examination::unanswered : Examination::repeated;
    } else if (const auto alive = session(); alive && role && *role == atspi::kRoleFrame) {
        mainWindow_ = path;
        alive->applications.setMainWindow(application_->pid, path);
        deliver(application_, kMainWindowChangedNotification);
    }
}

}  // namespace useragent
