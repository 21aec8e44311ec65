#include "windowlist/AtspiWindowList.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "accessibility/AtspiQueries.h"
#include "accessibility/MainWindow.h"
#include "windowlist/OwnerName.h"

namespace useragent {
namespace {

using Application = AtspiWindowList::Application;
using cmn::bus::Batch;
using cmn::bus::Deadline;
using cmn::bus::HalfWayTo;

// Looks at all applications, at each step at all of them at once. No step may use up the time of the next.
class Survey {
 public:
    Survey(Session& session, Deadline deadline) : session_(session), deadline_(deadline) {}

    // The applications by bus name, in the registry's order; nothing for one that does not answer. Nothing at
    // all when the applications are not known.
    std::optional<std::vector<std::pair<std::string, std::optional<Application>>>> take() {
        if (!findSubjects()) {
            return std::nullopt;
        }
        askForRoots(HalfWayTo(deadline_));
        askForFrames(deadline_);
        if (!session_.connection->isReady()) {
            return std::nullopt;  // that nobody answered says nothing then
        }
        std::vector<std::pair<std::string, std::optional<Application>>> result;
        for (Subject& subject : subjects_) {
            result.emplace_back(subject.busName, subject.answers
                                                     ? std::optional(std::move(subject.application))
                                                     : std::nullopt);
        }
        return result;
    }

 private:
    struct Window {
        Batch::Answer<atspi::Role> role;
        Batch::Answer<atspi::States> states;
    };
    struct Subject {
        std::string busName;
        Application application;
        bool answers = true;
        Batch::Answer<std::string> name;
        Batch::Answer<atspi::Objects> children;
        atspi::Objects windows;
        std::vector<Window> windowAnswers;
    };

    bool findSubjects() {
        const Deadline deadline = HalfWayTo(deadline_);
        const auto names = session_.applications.registered(deadline);
        if (!names) {
            return false;
        }
        const auto pids = session_.applications.processIds(*names, deadline);
        for (std::size_t i = 0; i < pids.size(); ++i) {
            if (pids[i] != 0) {
                Subject& subject = subjects_.emplace_back();
                subject.busName = (*names)[i];
                subject.application.owner.ownerPid = pids[i].value_or(0);
                subject.answers = pids[i].has_value();
            }
        }
        return true;
    }

    // Those that can be asked next.
    std::vector<Subject*> answering() {
        std::vector<Subject*> subjects;
        for (Subject& subject : subjects_) {
            subject.answers = subject.answers && !session_.silent->isSilent(subject.busName);
            if (subject.answers) {
                subjects.push_back(&subject);
            }
        }
        return subjects;
    }

    void finish(Batch& batch, const std::vector<Subject*>& asked) {
        batch.wait();
        for (const std::string& busName : batch.silent()) {
            const auto subject = std::find_if(asked.begin(), asked.end(),
                                              [&](const Subject* one) { return one->busName == busName; });
            if (subject != asked.end()) {
                session_.silent->note(busName, (*subject)->application.owner.ownerPid);
            }
        }
    }

    void askForRoots(Deadline deadline) {
        const std::vector<Subject*> asked = answering();
        Batch batch(session_.connection, deadline);
        for (Subject* const subject : asked) {
            const atspi::ObjectRef root{subject->busName, atspi::kRootPath};
            subject->name = batch.ask(atspi::NameOf(root));
            subject->children = batch.ask(atspi::ChildrenOf(root));
        }
        finish(batch, asked);
        for (Subject* const subject : asked) {
            if (const auto name = subject->name.read()) {
                subject->application.owner.ownerName = OwnerName(*name);
            }
            auto windows = subject->children.read();
            const bool isTooMuch =
                windows ? windows->size() > kMostTopLevels : atspi::IsTimeout(windows.error());
            subject->answers = subject->name.arrived() && !isTooMuch;
            if (windows && !isTooMuch) {
                subject->windows = std::move(*windows);
            }
        }
    }

    void askForFrames(Deadline deadline) {
        const std::vector<Subject*> asked = answering();
        Batch batch(session_.connection, deadline);
        for (Subject* const subject : asked) {
            for (const atspi::ObjectRef& window : subject->windows) {
                subject->windowAnswers.push_back(
                    {batch.ask(atspi::RoleOf(window)), batch.ask(atspi::StatesOf(window))});
            }
        }
        finish(batch, asked);
        for (Subject* const subject : asked) {
            for (const Window& window : subject->windowAnswers) {
                const atspi::States states = window.states.read().valueOr(0);
                const bool isOnScreen = window.role.read().valueOr(0) == atspi::kRoleFrame &&
                                        atspi::Has(states, atspi::State::showing) &&
                                        !atspi::Has(states, atspi::State::iconified);
                subject->application.frames += isOnScreen ? 1 : 0;
                subject->application.isActive |= isOnScreen && atspi::Has(states, atspi::State::active);
                subject->answers = subject->answers && window.role.arrived() && window.states.arrived();
            }
        }
    }

    Session& session_;
    const Deadline deadline_;
    std::vector<Subject> subjects_;
};

}  // namespace

std::optional<std::vector<WindowInfo>> AtspiWindowList::copyOnScreenWindows() {
    const std::shared_ptr<AccessibilityBus> bus = bus_.lock();
    if (!bus) {
        return std::nullopt;
    }
    const Deadline deadline = bus->deadline();
    const std::shared_ptr<Session> session = bus->check(HalfWayTo(deadline));
    if (!session) {
        return std::nullopt;
    }
    auto found = Survey(*session, deadline).take();
    if (!found) {
        return std::nullopt;
    }
    if (session_.lock() != session) {
        session_ = session;
        lastSeen_.clear();  // bus names begin anew
    }
    std::map<std::string, Application> seen;
    std::vector<Application> applications;
    for (auto& [busName, application] : *found) {
        if (!application) {
            application = lastSeen_[busName];
        }
        seen.insert_or_assign(busName, *application);
        applications.push_back(std::move(*application));
    }
    lastSeen_ = std::move(seen);
    std::stable_partition(applications.begin(), applications.end(),
                          [](const Application& application) { return application.isActive; });
    std::vector<WindowInfo> windows;
    for (const Application& application : applications) {
        std::fill_n(std::back_inserter(windows), application.frames, application.owner);
    }
    return windows;
}

}  // namespace useragent
