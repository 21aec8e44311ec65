#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "accessibility/AtspiElement.h"
#include "accessibility/FieldWatch.h"
#include "accessibility/Listener.h"
#include "accessibility/Session.h"
#include "accessibility/WindowSearch.h"

namespace useragent {

// What is known of one application for as long as its bus name lives: its main window, the address field in
// it, and the field's text. Found out on worker threads when a signal, or a look once a polling cycle, says
// that something may have changed; told to the listeners when it is known, so that reading it costs nothing.
class ApplicationWatch : public std::enable_shared_from_this<ApplicationWatch> {
 public:
    ApplicationWatch(const std::shared_ptr<Session>& session, std::int32_t pid, std::string busName);

    const std::string& busName() const { return busName_; }

    // Any thread but the bus's. The first to read the main window waits until it is known.
    AXError mainWindow(AXValue& window);
    AXError listenToWindows(const std::shared_ptr<Listener>& listener);
    AXError listenToField(const std::shared_ptr<Listener>& listener, const AtspiElement& field);

    // A look once a polling cycle, in two steps. In the bus's thread, without waiting: reads the field's
    // text, and the window's title where another title would say that the window is not in front any more;
    // then calls `done` there. After that: examines when what is known of the windows does not hold any more,
    // which waits as `examine` does; what nobody has read yet is left to the first who does, so that one
    // browser's address does not wait for the others'. The title given is that of the application's
    // front-most window on screen, empty when it is not known.
    void look(const std::string& frontTitle, const std::function<void()>& done);
    void examineIfOutdated(const std::string& frontTitle);

    // Finds everything out anew and tells what has changed. Waits for the application; any thread but the
    // bus's and the main thread.
    void examine(const std::string& frontTitle = "");

    // Any thread. Its bus name, or the whole bus, is gone.
    bool isGone() const;
    void lost();

    // In the bus's thread: the application answers again; signals may have been missed.
    void recovered();
    void refresh();
    // The same, after windows on screen have changed: not every program tells that one of its own has.
    void screenChanged();
    // Windows have other titles, mostly because another page is in them.
    void screenRetitled();

 private:
    AXError open();
    std::shared_ptr<cmn::bus::Subscription> subscribe(
        const std::string& rule, std::function<void(ApplicationWatch&, const cmn::bus::Message&)> handler);
    void onWindowEvent(const cmn::bus::Message& signal);
    using Task = void (ApplicationWatch::*)();
    void later(std::chrono::milliseconds delay, int ApplicationWatch::*asked, void (*due)(ApplicationWatch&));
    void work(Task task);
    void workEnded();
    void examineLater(std::chrono::milliseconds delay);
    void examineAll() { examine(); }
    void examineIfOthersOnScreen();
    OnScreen askScreen();
    void retryLater(bool isComplete, bool isActive);
    void retry(bool isComplete, bool isActive);
    void follow(const WindowSearch::Found& found);
    FieldWatch::Owner ownerOfField();
    bool isInFront() const;
    void tellWindowChanged();

    const std::weak_ptr<Session> session_;
    const std::shared_ptr<cmn::bus::Loop> loop_;
    const std::shared_ptr<cmn::Dispatch> dispatch_;
    const std::int32_t pid_;
    const std::string busName_;
    const AXElementRef application_;

    int examinations_ = 0;  // asked for, the bus's thread only, as the next
    int screenChanges_ = 0;
    int titleChanges_ = 0;
    int retries_ = 0;           // of one that did not find all
    bool isActivated_ = false;  // an activated window was announced, and not seen yet
    bool isWorking_ = false;    // on a worker thread
    Task next_ = nullptr;       // when that has ended

    std::mutex examination_;  // held by the one that examines

    mutable std::mutex mutex_;                               // guards what follows
    std::shared_ptr<cmn::bus::Subscription> windowEvents_;   // of all its windows
    std::shared_ptr<cmn::bus::Subscription> windowSignals_;  // of the main window itself
    std::optional<AXError> outcome_;                         // of the last examination that was answered
    bool isAwaited_ = true;                                  // the first who reads the main window
    bool wasRefused_ = false;                                // the main window, for there was none yet
    WindowSearch::Found found_;
    WindowSearch::Known known_;
    std::optional<std::string> titleSeen_;  // of the main window, by the look
    std::string frontTitleSeen_;            // the one on screen at that time
    std::shared_ptr<FieldWatch> field_;     // null when there is none
    OnScreen onScreen_;                     // as they were asked for last
    Listeners listeners_;
    bool isOpen_ = false;
    bool isGone_ = false;
};

}  // namespace useragent
