#include "windowlist/AtspiWindowList.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>
#include <utility>

#include "accessibility/MainWindow.h"
#include "windowlist/OwnerName.h"

namespace useragent {
namespace {

using Application = AtspiWindowList::Application;

// Looks at all applications, at each step at all of them at once. No step may use up the time of the next.
class Survey {
 public:
    Survey(AtspiCore& core, BusLink link, Deadline deadline)
        : core_(core), link_(std::move(link)), deadline_(deadline) {}

    // The applications by bus name, in the registry's order; nothing for one that does not answer. Nothing at
    // all when the applications are not known.
    std::optional<std::vector<std::pair<QString, std::optional<Application>>>> take() {
        if (!findSubjects()) {
            return std::nullopt;
        }
        askForRoots(HalfWayTo(deadline_));
        askForFrames(deadline_);
        if (!link_.connection.isConnected()) {
            return std::nullopt;  // that nobody answered says nothing then
        }
        std::vector<std::pair<QString, std::optional<Application>>> result;
        for (Subject& subject : subjects_) {
            result.emplace_back(subject.busName, subject.answers
                                                     ? std::optional(std::move(subject.application))
                                                     : std::nullopt);
        }
        return result;
    }

 private:
    struct Subject {
        QString busName;
        Application application;
        bool answers = true;
        std::vector<atspi::ObjectRef> windows;
    };

    bool findSubjects() {
        const Deadline deadline = HalfWayTo(deadline_);
        const std::optional<QStringList> names = RegisteredApplications(link_, deadline);
        if (!names) {
            return false;
        }
        const auto pids = ProcessIds(link_, *names, deadline);
        for (std::size_t i = 0; i < pids.size(); ++i) {
            if (pids[i] != 0) {
                const QString& busName = (*names)[static_cast<qsizetype>(i)];
                subjects_.push_back(
                    {busName, Application{{{}, pids[i].value_or(0)}}, pids[i].has_value(), {}});
            }
        }
        return true;
    }

    // Adds the calls for a subject; takes the replies to them, in the same order, from the iterator on.
    using AddCalls = std::function<void(const Subject&, std::vector<QDBusMessage>&)>;
    using TakeReplies = std::function<void(Subject&, std::vector<QDBusMessage>::const_iterator&)>;

    void ask(const AddCalls& addCalls, const TakeReplies& takeReplies, Deadline deadline) {
        std::vector<Subject*> asked;
        std::vector<QDBusMessage> calls;
        for (Subject& subject : subjects_) {
            subject.answers = subject.answers && !core_.breaker.isOpen(link_, subject.busName);
            if (subject.answers) {
                asked.push_back(&subject);
                addCalls(subject, calls);
            }
        }
        const Replies replies = CallTogether(link_.connection, calls, deadline);
        auto next = replies.messages.begin();
        for (Subject* const subject : asked) {
            const auto first = next;
            takeReplies(*subject, next);
            if (std::any_of(first, next, [](const QDBusMessage& reply) {
                    return reply.type() == QDBusMessage::InvalidMessage;
                })) {
                subject->answers = false;
            }
            if (replies.silent.contains(subject->busName)) {
                core_.breaker.trip(link_, subject->busName, subject->application.owner.ownerPid);
            }
        }
    }

    void askForRoots(Deadline deadline) {
        ask(
            [](const Subject& subject, std::vector<QDBusMessage>& calls) {
                const atspi::ObjectRef root{subject.busName, atspi::kRootPath};
                calls.push_back(atspi::GetProperty(root, atspi::kAccessibleInterface, "Name"));
                calls.push_back(atspi::Call(root, atspi::kAccessibleInterface, "GetChildren"));
            },
            [this](Subject& subject, auto& reply) {
                if (const auto name = atspi::ReadStringProperty(*reply++)) {
                    subject.application.owner.ownerName = OwnerName(name->toStdString());
                }
                // Who answered early may be read after the time of this step, which somebody else used up.
                auto windows = atspi::ReadObjects(*reply++, deadline_);
                const bool isTooMuch = windows ? windows->size() > kMostTopLevels : Clock::now() >= deadline_;
                subject.answers = !isTooMuch;
                if (windows && !isTooMuch) {
                    subject.windows = std::move(*windows);
                }
            },
            deadline);
    }

    void askForFrames(Deadline deadline) {
        ask(
            [](const Subject& subject, std::vector<QDBusMessage>& calls) {
                for (const atspi::ObjectRef& window : subject.windows) {
                    calls.push_back(atspi::Call(window, atspi::kAccessibleInterface, "GetRole"));
                    calls.push_back(atspi::Call(window, atspi::kAccessibleInterface, "GetState"));
                }
            },
            [](Subject& subject, auto& reply) {
                for (std::size_t i = 0; i < subject.windows.size(); ++i) {
                    const atspi::Role role = atspi::ReadNumber(*reply++).value_or(0);
                    const atspi::States states = atspi::ReadStates(*reply++).value_or(0);
                    const bool isOnScreen = role == atspi::kRoleFrame &&
                                            atspi::Has(states, atspi::State::showing) &&
                                            !atspi::Has(states, atspi::State::iconified);
                    subject.application.frames += isOnScreen ? 1 : 0;
                    subject.application.isActive |= isOnScreen && atspi::Has(states, atspi::State::active);
                }
            },
            deadline);
    }

    AtspiCore& core_;
    const BusLink link_;
    const Deadline deadline_;
    std::vector<Subject> subjects_;
};

}  // namespace

std::optional<std::vector<WindowInfo>> AtspiWindowList::copyOnScreenWindows() {
    const std::shared_ptr<AtspiCore> core = core_.lock();
    if (!core) {
        return std::nullopt;
    }
    const Deadline deadline = core->deadline();
    const std::optional<BusLink> link = core->bus.check(HalfWayTo(deadline));
    if (!link) {
        return std::nullopt;
    }
    core->breaker.poll(*link);
    auto found = Survey(*core, *link, deadline).take();
    if (!found) {
        return std::nullopt;
    }
    if (std::exchange(epoch_, link->epoch) != link->epoch) {
        lastSeen_.clear();  // bus names begin anew
    }
    std::map<QString, Application> seen;
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
