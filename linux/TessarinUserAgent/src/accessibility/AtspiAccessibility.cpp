#include "accessibility/AtspiAccessibility.h"

#include <algorithm>
#include <map>
#include <utility>

#include "accessibility/AccessibilityPrompt.h"
#include "accessibility/AtspiCore.h"
#include "accessibility/AtspiObserver.h"

namespace useragent {
namespace {

// One look at which applications answer at all, and whether the registry is still the same.
class RollCall {
 public:
    RollCall(AtspiCore& core, BusLink link, Deadline deadline)
        : core_(core), link_(std::move(link)), deadline_(deadline) {}

    void hold(const std::vector<std::int32_t>& pids) {
        core_.breaker.poll(link_);
        core_.applications.lookUp(link_, pids, deadline_);
        std::vector<QDBusMessage> calls{
            atspi::CallBus("GetNameOwner", {QString::fromLatin1(atspi::kRegistryName)})};
        std::map<QString, std::int32_t> asked;
        for (const std::int32_t pid : pids) {
            core_.applications.notePresence(pid);
            const QString busName = core_.applications.knownBusName(pid);
            if (!busName.isEmpty() && !core_.breaker.isOpen(link_, busName)) {
                asked.emplace(busName, pid);
                calls.push_back(atspi::Ping(busName));
            }
        }
        const Replies replies = CallTogether(link_.connection, calls, deadline_);
        for (const QString& busName : replies.silent) {
            if (const auto found = asked.find(busName); found != asked.end()) {
                core_.breaker.trip(link_, busName, found->second);
            }
        }
        for (std::size_t i = 1; i < calls.size(); ++i) {
            if (atspi::IsNobodyThere(replies.messages[i])) {
                core_.applications.forget(asked.at(calls[i].service()), calls[i].service());
            }
        }
        checkRegistry(replies.messages.front());
    }

 private:
    void checkRegistry(const QDBusMessage& owner) {
        if (core_.events.registryOwner(link_, atspi::ReadString(owner).value_or(QString()))) {
            // Until now nobody asked the applications for events.
            core_.forEachSubscription([](AtspiSubscription& subscription) { subscription.refresh(); });
        }
    }

    AtspiCore& core_;
    const BusLink link_;
    const Deadline deadline_;
};

}  // namespace

AtspiAccessibility::AtspiAccessibility(std::shared_ptr<cmn::LinuxDispatch> dispatch,
                                       const AtspiSettings& settings)
    : core_(std::make_shared<AtspiCore>(std::move(dispatch), settings)),
      prompt_(std::make_unique<AccessibilityPrompt>(core_)) {}

AtspiAccessibility::~AtspiAccessibility() = default;

AXError AtspiAccessibility::copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                                               AXValue& value) {
    const auto target = std::dynamic_pointer_cast<const AtspiElement>(element);
    if (!target) {
        return AXError::illegalArgument;
    }
    const Deadline deadline = core_->deadline();
    const std::optional<BusLink> link = core_->bus.link(deadline);
    return link ? core_->reader.read(*link, *target, attribute, value, deadline) : AXError::apiDisabled;
}

AXElementRef AtspiAccessibility::createApplication(std::int32_t pid) {
    return pid > 0 ? std::make_shared<AtspiElement>(pid) : nullptr;
}

AXError AtspiAccessibility::getPid(const AXElementRef& element, std::int32_t& pid) {
    const auto target = std::dynamic_pointer_cast<const AtspiElement>(element);
    if (!target) {
        return AXError::illegalArgument;
    }
    pid = target->pid;
    return AXError::success;
}

AXError AtspiAccessibility::createObserver(std::int32_t pid, AXObserverCallback callback,
                                           std::unique_ptr<AXObserver>& observer) {
    if (pid <= 0 || !callback) {
        return AXError::illegalArgument;
    }
    observer = std::make_unique<AtspiObserver>(core_, pid, std::move(callback));
    return AXError::success;
}

bool AtspiAccessibility::isProcessTrusted() {
    return core_->bus.check(core_->deadline()).has_value();
}

bool AtspiAccessibility::isProcessTrustedWithPrompt() {
    const bool trusted = isProcessTrusted();
    if (!trusted) {
        prompt_->ask();
    }
    return trusted;
}

void AtspiAccessibility::prepare(const std::vector<std::int32_t>& pids) {
    const Deadline deadline = core_->deadline();
    const std::optional<BusLink> link = core_->bus.check(HalfWayTo(deadline));
    const std::uint64_t epoch = link ? link->epoch : 0;
    const auto isLost = [epoch](const AtspiSubscription& subscription) {
        return subscription.link().epoch != epoch;
    };
    const auto open = core_->subscriptions.all();
    if (std::any_of(open.begin(), open.end(),
                    [&](const auto& subscription) { return isLost(*subscription); })) {
        core_->forEachSubscription([isLost](AtspiSubscription& subscription) {
            if (isLost(subscription)) {
                subscription.lost();
            }
        });
    }
    if (link) {
        RollCall(*core_, *link, deadline).hold(pids);
    }
}

}  // namespace useragent
