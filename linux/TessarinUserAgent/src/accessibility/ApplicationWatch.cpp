#include "accessibility/ApplicationWatch.h"

#include <fmt/format.h>

#include <array>
#include <utility>

#include "accessibility/AtspiQueries.h"

namespace useragent {
namespace {

using namespace std::chrono_literals;
using cmn::bus::Message;
using cmn::bus::Result;

// Some applications activate windows for a moment only; the last one counts.
constexpr auto kQuietAfterWindowSignal = 30ms;

// Before a window's content is there again after it has changed its shape.
constexpr auto kRebuildPause = 100ms;
constexpr int kMostRetries = 6;  // each after twice the pause of the one before

constexpr std::array kEvents{atspi::kTextChangedEvent,     atspi::kEditableChangedEvent,
                             atspi::kReadOnlyChangedEvent, atspi::kWindowActivateEvent,
                             atspi::kWindowRestoreEvent,   atspi::kWindowMinimizeEvent,
                             atspi::kWindowDestroyEvent};

}  // namespace

ApplicationWatch::ApplicationWatch(const std::shared_ptr<Session>& session, std::int32_t pid,
                                   std::string busName)
    : session_(session),
      loop_(session->surroundings.loop),
      dispatch_(session->surroundings.dispatch),
      pid_(pid),
      busName_(std::move(busName)),
      application_(std::make_shared<AtspiElement>(pid)) {}

std::shared_ptr<cmn::bus::Subscription> ApplicationWatch::subscribe(
    const std::string& rule, std::function<void(ApplicationWatch&, const Message&)> handler) {
    const std::shared_ptr<Session> session = session_.lock();
    return session ? session->connection->subscribe(
                         "type='signal'," + rule,
                         [weak = weak_from_this(), handler = std::move(handler)](const Message& signal) {
                             if (const auto self = weak.lock()) {
                                 handler(*self, signal);
                             }
                         })
                   : nullptr;
}

AXError ApplicationWatch::open() {
    const std::shared_ptr<Session> session = session_.lock();
    {
        const std::lock_guard lock(mutex_);
        if (isOpen_ || !session) {
            return isOpen_ ? AXError::success : AXError::apiDisabled;
        }
        if (!windowEvents_) {
            windowEvents_ =
                subscribe(fmt::format("sender='{}',interface='{}'", busName_, atspi::kWindowEventInterface),
                          [](ApplicationWatch& self, const Message& signal) { self.onWindowEvent(signal); });
        }
    }
    const AXError error =
        session->events->add({kEvents.begin(), kEvents.end()}, busName_, session->deadline());
    const std::lock_guard lock(mutex_);
    isOpen_ |= error == AXError::success;
    return error;
}

void ApplicationWatch::onWindowEvent(const Message& signal) {
    const std::string_view event = signal.member();
    const bool isActivation = event == "Activate";
    const bool isRestoration = event == "Restore";
    if (isActivation || isRestoration || event == "Minimize" || event == "Destroy") {
        {
            const std::lock_guard lock(mutex_);
            if (event == "Minimize") {
                known_.minimised.insert(std::string(signal.path()));
            } else {
                known_.minimised.erase(std::string(signal.path()));
            }
        }
        isActivated_ |= isActivation;
        retries_ = 0;
        examineLater(isRestoration ? kRebuildPause : kQuietAfterWindowSignal);
    }
}

AXError ApplicationWatch::mainWindow(AXValue& window) {
    const std::shared_ptr<Session> session = session_.lock();
    if (!session || isGone() || session->silent->isSilent(busName_)) {
        return AXError::cannotComplete;
    }
    bool isKnown = false;
    std::string frontTitle;
    {
        const std::lock_guard lock(mutex_);
        isKnown = outcome_.has_value();
        isAwaited_ = false;
        frontTitle = frontTitleSeen_;
    }
    if (!isKnown) {
        examine(frontTitle);
    }
    const std::lock_guard lock(mutex_);
    wasRefused_ = !outcome_;
    if (outcome_ != AXError::success) {
        return outcome_.value_or(AXError::cannotComplete);
    }
    auto element = std::make_shared<AtspiElement>(pid_, session_, found_.window);
    element->known[kRoleAttribute] = atspi::AXRoleName(atspi::kRoleFrame, 0);
    element->known[kDescriptionAttribute] = found_.title;
    element->found.emplace();
    if (field_) {
        element->found->push_back(field_->element());
    }
    window = AXElementRef(std::move(element));
    return AXError::success;
}

AXError ApplicationWatch::listenToWindows(const std::shared_ptr<Listener>& listener) {
    const AXError error = open();
    if (error != AXError::success) {
        return error;
    }
    const std::lock_guard lock(mutex_);
    listeners_.add(listener);
    if (isGone_) {
        listener->tell(application_, kMainWindowChangedNotification);
    }
    return AXError::success;
}

AXError ApplicationWatch::listenToField(const std::shared_ptr<Listener>& listener,
                                        const AtspiElement& field) {
    const AXError error = open();
    if (error != AXError::success) {
        return error;
    }
    const std::shared_ptr<Session> session = session_.lock();
    if (!session) {
        return AXError::cannotComplete;
    }
    std::shared_ptr<FieldWatch> watch;
    {
        const std::lock_guard lock(mutex_);
        watch = field_;
    }
    if (!watch || watch->field().object.path != field.object.path) {
        session->lookEarly();  // it has changed since it was read
        return AXError::invalidUIElement;
    }
    const auto given = field.known.find(kValueAttribute);
    watch->listen(listener, given != field.known.end() ? given->second : std::nullopt);
    return AXError::success;
}

bool ApplicationWatch::isGone() const {
    const std::lock_guard lock(mutex_);
    return isGone_;
}

void ApplicationWatch::lost() {
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(isGone_, true)) {
            return;
        }
    }
    if (const std::shared_ptr<Session> session = session_.lock()) {
        session->applications.forget(pid_, busName_);
    }
    tellWindowChanged();  // whoever listens has to find everything anew
}

void ApplicationWatch::recovered() {
    {
        const std::lock_guard lock(mutex_);
        if (field_) {
            loop_->post([field = field_] { field->recovered(); });
        }
    }
    if (std::exchange(retries_, retries_ + 1) < kMostRetries) {
        examineLater(0ms);
    }
}

void ApplicationWatch::refresh() {
    const std::lock_guard lock(mutex_);
    if (field_) {
        loop_->post([field = field_] { field->refresh(); });
    }
}

// Of several that are asked for within the delay only the last is done.
void ApplicationWatch::later(std::chrono::milliseconds delay, int ApplicationWatch::*asked,
                             void (*due)(ApplicationWatch&)) {
    loop_->after(delay, [weak = weak_from_this(), asked, mine = ++(this->*asked), due] {
        const auto self = weak.lock();
        if (self && (*self).*asked == mine) {
            due(*self);
        }
    });
}

// One thread at a time, so that a slow application leaves the others' to them; what is asked for meanwhile is
// done once.
void ApplicationWatch::work(Task task) {
    if (isWorking_) {
        next_ = next_ == &ApplicationWatch::examineAll ? next_ : task;
        return;
    }
    isWorking_ = true;
    const std::shared_ptr<void> ended(nullptr, [weak = weak_from_this(), loop = loop_](void*) {
        loop->post([weak] {
            if (const auto self = weak.lock()) {
                self->workEnded();
            }
        });
    });
    dispatch_->async(cmn::QueuePriority::high, [weak = weak_from_this(), task, ended] {
        if (const auto worker = weak.lock()) {
            ((*worker).*task)();
        }
    });
}

void ApplicationWatch::workEnded() {
    isWorking_ = false;
    if (const Task next = std::exchange(next_, nullptr)) {
        work(next);
    }
}

void ApplicationWatch::examineLater(std::chrono::milliseconds delay) {
    later(delay, &ApplicationWatch::examinations_,
          [](ApplicationWatch& self) { self.work(&ApplicationWatch::examineAll); });
}

void ApplicationWatch::screenChanged() {
    later(kQuietAfterWindowSignal, &ApplicationWatch::screenChanges_,
          [](ApplicationWatch& self) { self.work(&ApplicationWatch::examineIfOthersOnScreen); });
}

void ApplicationWatch::screenRetitled() {
    bool isMute = false;
    {
        const std::lock_guard lock(mutex_);
        isMute = !isGone_ && field_ && found_.field->isMute;
    }
    if (isMute) {  // others tell of each address
        later(kQuietAfterWindowSignal, &ApplicationWatch::titleChanges_,
              [](ApplicationWatch& self) { self.refresh(); });
    }
}

// Other programs' windows change far more often than its own.
void ApplicationWatch::examineIfOthersOnScreen() {
    std::vector<std::string> before;
    {
        const std::lock_guard lock(mutex_);
        before = onScreen_.titles;
    }
    if (askScreen().titles != before) {
        examine();
    }
}

OnScreen ApplicationWatch::askScreen() {
    const std::shared_ptr<Session> session = session_.lock();
    if (!session || !session->surroundings.screen.windows) {
        return {};
    }
    OnScreen onScreen = session->surroundings.screen.windows(pid_);
    const std::lock_guard lock(mutex_);
    return onScreen_ = std::move(onScreen);
}

void ApplicationWatch::examine(const std::string& frontTitle) {
    const std::lock_guard examining(examination_);
    const std::shared_ptr<Session> session = session_.lock();
    if (!session || isGone()) {
        return;
    }
    open();  // else when somebody listens
    WindowSearch::Known known;
    {
        const std::lock_guard lock(mutex_);
        known = known_;
    }
    const OnScreen onScreen = askScreen();
    const bool isOnScreen = !onScreen.titles.empty();
    known.frontTitle = frontTitle.empty() && isOnScreen ? onScreen.titles.front() : frontTitle;
    known.isCovered = isOnScreen && !onScreen.isInFront;
    WindowSearch::Found found;
    const AXError outcome = WindowSearch(session, pid_, busName_).run(known, found);
    if (outcome == AXError::cannotComplete) {
        // What is known stays until it answers again; who answered in part is asked again soon.
        if (!session->silent->isSilent(busName_)) {
            retryLater(false, false);
        }
        return;
    }
    bool isChanged = false;
    bool isComplete = false;
    const bool isActive = found.isActive;
    {
        const std::lock_guard lock(mutex_);
        const auto field = field_;
        isChanged = outcome_ ? outcome_ != outcome || found_.window.path != found.window.path
                             : std::exchange(wasRefused_, false);
        outcome_ = outcome;
        follow(found);
        found_ = std::move(found);
        titleSeen_.reset();
        isChanged |=
            !known.mainWindows.empty() && known.mainWindows.front() == found_.window.path && field_ != field;
        isComplete = field_ && !field_->field().isPage;
    }
    if (isChanged) {
        tellWindowChanged();
    }
    retryLater(isComplete, isActive);
}

void ApplicationWatch::retryLater(bool isComplete, bool isActive) {
    loop_->post([weak = weak_from_this(), isComplete, isActive] {
        if (const auto self = weak.lock()) {
            self->retry(isComplete, isActive);
        }
    });
}

void ApplicationWatch::retry(bool isComplete, bool isActive) {
    isActivated_ = isActivated_ && !isActive;
    // A window may have its title, or its field, only a while after it was activated.
    if ((!isComplete || isActivated_) && retries_ < kMostRetries) {
        examineLater(kRebuildPause * (1 << retries_++));
    }
}

FieldWatch::Owner ApplicationWatch::ownerOfField() {
    return {[weak = weak_from_this()] {
                if (const auto self = weak.lock()) {
                    self->retries_ = 0;
                    self->examineLater(0ms);
                }
            },
            [weak = weak_from_this()] {
                const auto self = weak.lock();
                return self && self->isInFront();
            }};
}

bool ApplicationWatch::isInFront() const {
    const std::lock_guard lock(mutex_);
    return onScreen_.isInFront;
}

// With the mutex held.
void ApplicationWatch::follow(const WindowSearch::Found& found) {
    known_.remember(found);
    if (found_.window.path != found.window.path) {
        // Firefox tells nothing else when its window takes another shape.
        windowSignals_ = subscribe(fmt::format("sender='{}',interface='{}',member='TextChanged',path='{}'",
                                               busName_, atspi::kObjectEventInterface, found.window.path),
                                   [](ApplicationWatch& self, const Message&) {
                                       self.retries_ = 0;
                                       self.examineLater(kQuietAfterWindowSignal);
                                   });
    }
    if (!found.field) {
        field_.reset();
        return;
    }
    const std::shared_ptr<Session> session = session_.lock();
    if (!field_ || found_.window.path != found.window.path ||
        field_->field().object.path != found.field->object.path) {
        field_ = std::make_shared<FieldWatch>(session, pid_, *found.field, found.window, ownerOfField());
        field_->take(found.text);
        field_->open();
    }
    field_->setMute(found.field->isMute);
    // Signals may have come before it was listened to.
    loop_->post([field = field_] { field->refresh(); });
}

void ApplicationWatch::look(const std::string& frontTitle, const std::function<void()>& done) {
    std::shared_ptr<FieldWatch> field;
    atspi::ObjectRef window;
    bool knowsTitle = false;
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(frontTitleSeen_, frontTitle) != frontTitle || found_.candidates() != 1) {
            titleSeen_.reset();
        }
        knowsTitle = titleSeen_.has_value();  // the same one on screen, and no other window
        field = field_;
        window = found_.window;
    }
    const std::shared_ptr<Session> session = session_.lock();
    const bool asksForTitle =
        session && field && !frontTitle.empty() && !knowsTitle && !session->silent->isSilent(busName_);
    const auto oneDone = [left = std::make_shared<int>(asksForTitle ? 2 : 1), done] {
        if (--*left == 0) {
            done();
        }
    };
    if (asksForTitle) {
        cmn::bus::Ask<std::string>(*session->connection, atspi::NameOf(window), session->deadline(),
                                   [weak = weak_from_this(), oneDone](const Result<std::string>& title) {
                                       if (const auto self = weak.lock(); self && title) {
                                           const std::lock_guard lock(self->mutex_);
                                           self->titleSeen_ = *title;
                                       }
                                       oneDone();
                                   });
    }
    if (field) {
        field->refresh(oneDone);
    } else {
        oneDone();
    }
}

void ApplicationWatch::examineIfOutdated(const std::string& frontTitle) {
    const std::shared_ptr<Session> session = session_.lock();
    if (!session || session->silent->isSilent(busName_)) {
        return;
    }
    WindowSearch::Found found;
    std::optional<std::string> title;
    bool isComplete = false;
    {
        const std::lock_guard lock(mutex_);
        if (isAwaited_) {
            return;
        }
        isComplete = outcome_ == AXError::success && field_ && !field_->field().isPage && !field_->isUnfit();
        found = found_;
        title = titleSeen_;
    }
    if (!isComplete || !WindowSearch(session, pid_, busName_).stillHolds(found, frontTitle, title)) {
        examine(frontTitle);
    }
}

void ApplicationWatch::tellWindowChanged() {
    const std::lock_guard lock(mutex_);
    const bool isHeard = listeners_.tell(application_, kMainWindowChangedNotification);
    if (const auto session = session_.lock(); session && !isHeard) {
        session->lookEarly();  // whoever could not use what was known before has to ask again
    }
}

}  // namespace useragent
