#include "sessionbus/SessionBus.h"

#include <QObject>
#include <QTimer>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <utility>

#include "common/log.h"

namespace useragent {

namespace {

namespace bus = cmn::bus;

// The desktop notices a session bus that hangs before we do; asked often, it would only be woken.
constexpr std::chrono::seconds kLivenessPause{60};

}  // namespace

// What the bus's thread shares with the owner's.
struct SessionBus::Inbox {
    enum class Attempt { connecting, ready, failed };
    struct Arrived {
        bus::Question question;
        bus::Interface::Task answer;
    };

    // The task runs on the owner's thread, unless the owner ends before.
    void post(std::function<void()> task) {
        const std::lock_guard lock(mutex);
        if (context) {
            QMetaObject::invokeMethod(context.get(), std::move(task), Qt::QueuedConnection);
        }
    }
    void become(Attempt next, const std::string& why = {}) {
        const std::lock_guard lock(mutex);
        attempt = next;
        failure = why;
        changed.notify_all();
    }
    static void refuse(const bus::Question& question) {
        question.fail({bus::error::kUnknownObject, "There is no such object any more"});
    }

    std::mutex mutex;  // guards all
    std::condition_variable changed;
    std::unique_ptr<QObject> context =
        std::make_unique<QObject>();  // of the owner's thread; null after its end
    Attempt attempt = Attempt::connecting;
    std::string failure;
    bool takesQuestions = true;
    std::deque<Arrived> arrived;
};

SessionBus::SessionBus(SessionBusPlace place, Events events, std::shared_ptr<const bus::Objects> served)
    : place_(std::move(place)),
      events_(std::move(events)),
      served_(std::move(served)),
      inbox_(std::make_shared<Inbox>()) {
    open();
}

SessionBus::~SessionBus() {
    std::unique_ptr<QObject> context;
    const std::lock_guard lock(inbox_->mutex);
    context = std::move(inbox_->context);
}

void SessionBus::open() {
    inbox_->become(Inbox::Attempt::connecting);
    bus::Connection::Events told;
    told.ready = [this, inbox = inbox_] {
        inbox->become(Inbox::Attempt::ready);
        inbox->post([this] {
            state_ = State::ready;
            events_.ready();
        });
    };
    told.lost = [this, inbox = inbox_](const std::string& why) {
        inbox->become(Inbox::Attempt::failed, why);
        inbox->post([this, why] { lost(why); });
    };
    if (served_) {
        told.asked = [this, inbox = inbox_, served = served_](const bus::Question& question) {
            bus::Interface::Task answer = served->find(question);
            if (!answer) {
                return;
            }
            std::unique_lock lock(inbox->mutex);
            if (!inbox->takesQuestions) {
                lock.unlock();
                Inbox::refuse(question);
                return;
            }
            inbox->arrived.push_back({question, std::move(answer)});
            lock.unlock();
            inbox->post([this] { answerNext(); });
        };
    }
    connection_ = bus::Connection::open(
        place_.loop, {.address = place_.address, .livenessPause = kLivenessPause}, std::move(told));
}

void SessionBus::lost(const std::string& why) {
    if (isPossible()) {
        QTimer::singleShot(place_.retryPause, inbox_->context.get(), [this] { open(); });
    }
    if (std::exchange(state_, State::lost) != State::lost) {
        events_.lost(why);
    }
}

void SessionBus::answerNext() {
    bus::Interface::Task answer;
    {
        const std::lock_guard lock(inbox_->mutex);
        if (inbox_->arrived.empty()) {
            return;
        }
        answer = std::move(inbox_->arrived.front().answer);
        inbox_->arrived.pop_front();
    }
    try {
        answer();
    } catch (const std::exception& e) {
        TLOG_ERROR("A question from the session bus -- failed: {}", e.what());
    }
}

void SessionBus::takeQuestions(bool take) {
    std::deque<Inbox::Arrived> refused;
    {
        const std::lock_guard lock(inbox_->mutex);
        inbox_->takesQuestions = take;
        if (!take) {
            refused.swap(inbox_->arrived);
        }
    }
    for (const Inbox::Arrived& each : refused) {
        Inbox::refuse(each.question);
    }
}

bool SessionBus::isPossible() const {
    return !bus::LocalAddresses(place_.address).empty();
}

bool SessionBus::waitUntilReady(std::chrono::milliseconds patience) {
    std::unique_lock lock(inbox_->mutex);
    inbox_->changed.wait_for(lock, patience,
                             [this] { return inbox_->attempt != Inbox::Attempt::connecting; });
    return inbox_->attempt == Inbox::Attempt::ready;
}

std::string SessionBus::failure() const {
    const std::lock_guard lock(inbox_->mutex);
    if (inbox_->attempt == Inbox::Attempt::ready || !isPossible()) {
        return {};
    }
    return inbox_->attempt == Inbox::Attempt::failed ? inbox_->failure : "no answer in time";
}

void SessionBus::call(bus::Message message, std::chrono::milliseconds timeout,
                      std::function<void(const Reply&)> done) {
    connection_->call(std::move(message), bus::Clock::now() + timeout,
                      [inbox = inbox_, done = std::move(done)](const Reply& reply) {
                          inbox->post([done, reply] { done(reply); });
                      });
}

std::shared_ptr<bus::Subscription> SessionBus::subscribe(const std::string& rule,
                                                         std::function<void(const bus::Message&)> heard) {
    return connection_->subscribe(rule,
                                  [inbox = inbox_, heard = std::move(heard)](const bus::Message& signal) {
                                      inbox->post([heard, signal] { heard(signal); });
                                  });
}

}  // namespace useragent
