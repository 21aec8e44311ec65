#include "accessibility/Session.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <utility>

#include "accessibility/ApplicationWatch.h"
#include "accessibility/AtspiQueries.h"
#include "accessibility/EarlyLooks.h"

namespace useragent {
namespace {

// After a deadline that others notice.
constexpr std::chrono::milliseconds kTimeToSpare{50};

// A browser that has just opened its first window cannot be read yet. It is tried again after a pause, the
// next times after twice the one before.
constexpr std::chrono::milliseconds kPauseOfFirstReads{50};
constexpr int kMostEarlyReads = 6;

}  // namespace

std::shared_ptr<ApplicationWatch> Watches::of(const std::shared_ptr<Session>& session, std::int32_t pid,
                                              const std::string& busName) {
    const std::lock_guard lock(mutex_);
    std::shared_ptr<ApplicationWatch>& watch = watches_[busName];
    if (!watch) {
        watch = std::make_shared<ApplicationWatch>(session, pid, busName);
        if (ended_) {
            watch->lost();
        }
    }
    return watch;
}

void Watches::end(const std::string& busName) {
    std::shared_ptr<ApplicationWatch> ended;
    {
        const std::lock_guard lock(mutex_);
        const auto found = watches_.find(busName);
        if (found == watches_.end()) {
            return;
        }
        ended = found->second;
    }
    ended->lost();  // from now on nobody looks the name up
    const std::lock_guard lock(mutex_);
    watches_.erase(busName);
}

void Watches::tell(const std::string& busName, void (ApplicationWatch::*what)()) {
    const std::lock_guard lock(mutex_);
    const auto found = watches_.find(busName);
    if (found != watches_.end()) {
        loop_->post([watch = found->second, what] { ((*watch).*what)(); });
    }
}

void Watches::tellAll(void (ApplicationWatch::*what)()) {
    const std::lock_guard lock(mutex_);
    for (const auto& [busName, watch] : watches_) {
        loop_->post([watch = watch, what] { ((*watch).*what)(); });
    }
}

void Watches::end() {
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
    }
    tellAll(&ApplicationWatch::lost);
}

Session::Session(Surroundings where, std::shared_ptr<cmn::bus::Connection> connectionOfIt)
    : surroundings(std::move(where)),
      connection(std::move(connectionOfIt)),
      watches(std::make_shared<Watches>(surroundings.loop)),
      silent(std::make_shared<SilentApplications>(
          connection,
          [all = watches](const std::string& busName) { all->tell(busName, &ApplicationWatch::recovered); })),
      applications(connection),
      events(std::make_shared<EventRegistrations>(connection)) {
    // A new registry knows nothing: until it was told nobody asked the applications for events.
    registrySignals_ = connection->subscribe(
        fmt::format("type='signal',sender='{0}',interface='{0}',member='NameOwnerChanged',arg0='{1}'",
                    cmn::bus::kBusName, atspi::kRegistryName),
        [registrations = std::weak_ptr(events),
         all = std::weak_ptr(watches)](const cmn::bus::Message& signal) {
            const auto change = signal.read<std::string, std::string, std::string>();
            const auto alive = registrations.lock();
            const auto watched = all.lock();
            if (change && !std::get<2>(*change).empty() && alive && watched) {
                alive->repeat();
                watched->tellAll(&ApplicationWatch::refresh);
            }
        });
    // Of all applications: also of those that are not watched the windows may have been listed.
    endedNames_ = connection->subscribe(
        fmt::format("type='signal',sender='{0}',interface='{0}',member='NameOwnerChanged',arg2=''",
                    cmn::bus::kBusName),
        [registrations = std::weak_ptr(events),
         all = std::weak_ptr(watches)](const cmn::bus::Message& signal) {
            const auto change = signal.read<std::string, std::string, std::string>();
            const auto alive = registrations.lock();
            const auto watched = all.lock();
            if (change && alive && watched) {
                alive->forget(std::get<0>(*change));
                watched->end(std::get<0>(*change));
            }
        });
}

void Session::look(const std::vector<WindowInfo>& browsers, cmn::bus::Deadline deadline) {
    std::vector<std::int32_t> pids(browsers.size());
    std::transform(browsers.begin(), browsers.end(), pids.begin(),
                   [](const WindowInfo& browser) { return browser.ownerPid; });
    applications.lookUp(pids, deadline);
    applications.keepOnly(pids);
    {
        const std::lock_guard lock(mutex_);
        std::erase_if(failedReads_, [&](const auto& entry) {
            return std::find(pids.begin(), pids.end(), entry.first) == pids.end();
        });
    }
    std::vector<std::pair<std::shared_ptr<ApplicationWatch>, std::string>> looks;
    for (const WindowInfo& browser : browsers) {
        applications.notePresence(browser.ownerPid);
        if (auto one = watch(browser.ownerPid, deadline)) {
            looks.emplace_back(std::move(one), browser.title.value_or(""));
        }
    }
    if (looks.empty()) {
        return;  // nobody is woken for it
    }
    // All of them at once, so that one that hangs keeps the others from nothing.
    const auto isDone = std::make_shared<std::promise<void>>();
    surroundings.loop->post([looks, isDone] {
        const auto oneDone = [left = std::make_shared<std::size_t>(looks.size() + 1), isDone] {
            if (--*left == 0) {
                isDone->set_value();
            }
        };
        for (const auto& [one, frontTitle] : looks) {
            one->look(frontTitle, oneDone);
        }
        oneDone();
    });
    isDone->get_future().wait_until(this->deadline() + kTimeToSpare);
    for (const auto& [one, frontTitle] : looks) {
        one->examineIfOutdated(frontTitle);
    }
    const std::lock_guard lock(mutex_);
    frames_.clear();  // a later cycle's list may find none
}

std::shared_ptr<ApplicationWatch> Session::watch(std::int32_t pid, cmn::bus::Deadline deadline) {
    const std::string busName = applications.busName(pid, deadline);
    return busName.empty() ? nullptr : watches->of(shared_from_this(), pid, busName);
}

AXError Session::mainWindow(std::int32_t pid, cmn::bus::Deadline deadline, AXValue& window) {
    const std::shared_ptr<ApplicationWatch> one = watch(pid, deadline);
    const AXError error = one ? one->mainWindow(window) : AXError::cannotComplete;
    int failed = 0;
    {
        const std::lock_guard lock(mutex_);
        if (error == AXError::success) {
            failedReads_.erase(pid);
        } else {
            failed = ++failedReads_[pid];
        }
    }
    if (failed > 0 && failed <= kMostEarlyReads) {
        lookEarly(kPauseOfFirstReads * (1 << (failed - 1)));
    }
    return error;
}

void Session::lookEarly(std::chrono::milliseconds delay) {
    if (surroundings.earlyLooks) {
        surroundings.earlyLooks->ask(delay);
    }
}

void Session::noteFrames(const std::string& busName, FramesOnScreen frames) {
    const std::lock_guard lock(mutex_);
    frames_.insert_or_assign(busName, std::move(frames));
}

std::optional<Session::FramesOnScreen> Session::takeFrames(const std::string& busName) {
    const std::lock_guard lock(mutex_);
    auto found = frames_.extract(busName);
    return found ? std::optional(std::move(found.mapped())) : std::nullopt;
}

bool Session::canSelect(const std::string& busName) const {
    const std::lock_guard lock(mutex_);
    return !withoutSelection_.contains(busName);
}

void Session::cannotSelect(const std::string& busName) {
    const std::lock_guard lock(mutex_);
    withoutSelection_.insert(busName);
}

}  // namespace useragent
