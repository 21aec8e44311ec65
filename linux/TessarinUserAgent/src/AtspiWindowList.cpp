#include "AtspiWindowList.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "OwnerName.h"

namespace useragent {
namespace {

using Application = AtspiWindowList::Application;

// Looks at all applications, at each step at all of them at once.
class Survey {
 public:
    Survey(AtspiCore& core, BusLink link, Deadline deadline)
        : core_(core), link_(std::move(link)), deadline_(deadline) {}

    // The applications by bus name, in the registry's order; nothing for one that does not answer.
    std::vector<std::pair<QString, std::optional<Application>>> take() {
        const QStringList names = RegisteredApplications(link_, deadline_);
        const std::vector<std::int32_t> pids = ProcessIds(link_, names, deadline_);
        for (qsizetype i = 0; i < names.size(); ++i) {
            subjects_.push_back({names[i], Application{{{}, pids[static_cast<std::size_t>(i)]}}, {}});
        }
        askForRoots();
        askForFrames();
        std::vector<std::pair<QString, std::optional<Application>>> result;
        for (Subject& subject : subjects_) {
            const bool answers = !core_.breaker.isOpen(link_, subject.busName);
            result.emplace_back(subject.busName,
                                answers ? std::optional(std::move(subject.application)) : std::nullopt);
        }
        return result;
    }

 private:
    struct Subject {
        QString busName;
        Application application;
        std::vector<atspi::ObjectRef> windows;
    };

    // Adds the calls for a subject; takes the replies to them, in the same order, from the iterator on.
    using AddCalls = std::function<void(const Subject&, std::vector<QDBusMessage>&)>;
    using TakeReplies = std::function<void(Subject&, std::vector<QDBusMessage>::const_iterator&)>;

    void ask(const AddCalls& addCalls, const TakeReplies& takeReplies) {
        std::vector<Subject*> asked;
        std::vector<QDBusMessage> calls;
        for (Subject& subject : subjects_) {
            if (!core_.breaker.isOpen(link_, subject.busName)) {
                asked.push_back(&subject);
                addCalls(subject, calls);
            }
        }
        const Replies replies = CallTogether(link_.connection, calls, deadline_);
        auto next = replies.messages.begin();
        for (Subject* const subject : asked) {
            takeReplies(*subject, next);
            if (replies.silent.contains(subject->busName)) {
                core_.breaker.trip(link_, subject->busName, subject->application.owner.ownerPid);
            }
        }
    }

    void askForRoots() {
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
                subject.windows =
                    atspi::ReadObjects(*reply++, deadline_).value_or(std::vector<atspi::ObjectRef>());
            });
    }

    void askForFrames() {
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
            });
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
    const std::optional<BusLink> link = core->bus.check(deadline);
    if (!link) {
        return std::nullopt;
    }
    core->breaker.poll(*link);
    std::map<QString, Application> seen;
    std::vector<Application> applications;
    for (auto& [busName, application] : Survey(*core, *link, deadline).take()) {
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
