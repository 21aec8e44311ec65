#include "accessibility/Session.h"

#include <map>
#include <utility>

#include "accessibility/AtspiQueries.h"
#include "accessibility/Subscription.h"

namespace useragent {

void Subscriptions::add(const std::shared_ptr<Subscription>& subscription) {
    {
        const std::lock_guard lock(mutex_);
        std::erase_if(subscriptions_, [](const auto& weak) { return weak.expired(); });
        subscriptions_.push_back(subscription);
        if (!ended_) {
            return;
        }
    }
    end();
}

void Subscriptions::tell(std::function<void(Subscription&)> what) {
    const std::lock_guard lock(mutex_);
    loop_->post([subscriptions = subscriptions_, what = std::move(what)] {
        for (const auto& weak : subscriptions) {
            if (const auto subscription = weak.lock()) {
                what(*subscription);
            }
        }
    });
}

void Subscriptions::end() {
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
    }
    tell([](Subscription& subscription) { subscription.lost(); });
}

Session::Session(Surroundings where, std::shared_ptr<cmn::bus::Connection> connectionOfIt)
    : surroundings(std::move(where)),
      connection(std::move(connectionOfIt)),
      subscriptions(std::make_shared<Subscriptions>(surroundings.loop)),
      silent(std::make_shared<SilentApplications>(connection,
                                                  [all = subscriptions](const std::string& busName) {
                                                      all->tell([busName](Subscription& subscription) {
                                                          subscription.recovered(busName);
                                                      });
                                                  })),
      applications(connection),
      events(connection) {}

void Session::callTheRoll(const std::vector<std::int32_t>& pids, cmn::bus::Deadline deadline) {
    applications.lookUp(pids, deadline);
    cmn::bus::Batch batch(connection, deadline);
    const auto registryOwner = batch.ask(atspi::OwnerOf(atspi::kRegistryName));
    std::map<std::string, std::int32_t> asked;
    for (const std::int32_t pid : pids) {
        applications.notePresence(pid);
        const std::string busName = applications.knownBusName(pid);
        if (!busName.empty() && !silent->isSilent(busName) && asked.emplace(busName, pid).second) {
            batch.ask(atspi::PingOf(busName));
        }
    }
    batch.wait();
    for (const std::string& busName : batch.silent()) {
        if (const auto found = asked.find(busName); found != asked.end()) {
            silent->note(busName, found->second);
        }
    }
    for (const std::string& busName : batch.absent()) {
        if (const auto found = asked.find(busName); found != asked.end()) {
            applications.forget(found->second, busName);
        }
    }
    if (const auto owner = registryOwner.read(); owner && events.registryOwner(*owner)) {
        // Until now nobody asked the applications for events.
        subscriptions->tell([](Subscription& subscription) { subscription.refresh(); });
    }
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
