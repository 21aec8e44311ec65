#include "accessibility/FieldWatch.h"

#include <fmt/format.h>

#include <utility>

namespace useragent {
namespace {

using namespace std::chrono_literals;

// Between reads of a field whose changes are not told.
constexpr auto kPauseOfReads = 1s;

}  // namespace

FieldWatch::FieldWatch(const std::shared_ptr<Session>& session, std::int32_t pid, AddressField field,
                       atspi::ObjectRef window, Owner owner)
    : session_(session),
      pid_(pid),
      field_(std::move(field)),
      window_(std::move(window)),
      owner_(std::move(owner)) {}

void FieldWatch::open() {
    const std::shared_ptr<Session> session = session_.lock();
    if (!session || field_.isPage) {
        return;
    }
    signals_ = session->connection->subscribe(
        fmt::format("type='signal',sender='{}',interface='{}',path='{}'", field_.object.busName,
                    atspi::kObjectEventInterface, field_.object.path),
        [weak = weak_from_this()](const cmn::bus::Message& signal) {
            if (const auto self = weak.lock()) {
                self->heard(signal);
            }
        });
}

std::shared_ptr<const AtspiElement> FieldWatch::element() const {
    const std::lock_guard lock(mutex_);
    return makeElement();
}

std::shared_ptr<const AtspiElement> FieldWatch::makeElement() const {
    auto element = std::make_shared<AtspiElement>(pid_, session_, field_.object);
    element->known = field_.known;
    if (mirror_.text() && !isMissing_) {
        element->known[kValueAttribute] = mirror_.text();
    }
    return element;
}

void FieldWatch::listen(const std::shared_ptr<Listener>& listener, std::optional<std::string> given) {
    const std::lock_guard lock(mutex_);
    std::erase_if(hearers_, [](const Hearer& hearer) { return hearer.listener.expired(); });
    hearers_.push_back({listener, std::move(given)});
    tell();
}

void FieldWatch::take(const cmn::bus::Result<std::string>& text) {
    const std::lock_guard lock(mutex_);
    isMissing_ = !text;
    if (text) {
        mirror_.set(*text);
        tell();
    }
}

void FieldWatch::tell() {
    if (!mirror_.text() || isMissing_) {
        return;
    }
    std::shared_ptr<const AtspiElement> element;
    for (Hearer& hearer : hearers_) {
        const auto listener = hearer.listener.lock();
        if (!listener || hearer.given == mirror_.text()) {
            continue;
        }
        hearer.given = mirror_.text();
        if (!element) {
            element = makeElement();
        }
        listener->tell(element, kValueChangedNotification);
    }
}

void FieldWatch::heard(const cmn::bus::Message& signal) {
    if (signal.member() == "TextChanged") {
        textChanged(signal);
    } else if (signal.member() == "StateChanged" && atspi::IsOfEditing(signal)) {
        owner_.onOutdated();
    }
}

void FieldWatch::textChanged(const cmn::bus::Message& signal) {
    {
        const std::lock_guard lock(mutex_);
        if (const auto change = atspi::TextChangeOf(signal)) {
            mirror_.apply(*change);
            // A deletion alone is half of a change, mostly.
            if (change->kind == TextChange::Kind::inserted) {
                tell();
            }
        }
    }
    verify();
}

void FieldWatch::verify() {
    // An application answers in the order of its signals, so those before an answer are covered by it.
    if (!isReading_) {
        refresh();
    }
}

void FieldWatch::setMute(bool isMute) {
    {
        const std::lock_guard lock(mutex_);
        isMute_ = isMute;
        if (!isMute || std::exchange(isReadRegularly_, true)) {
            return;
        }
    }
    readRegularly();
}

void FieldWatch::readRegularly() {
    const std::shared_ptr<Session> session = session_.lock();
    if (!session) {
        return;
    }
    session->surroundings.loop->after(kPauseOfReads, [weak = weak_from_this()] {
        const auto self = weak.lock();
        const auto alive = self ? self->session_.lock() : nullptr;
        if (!alive) {
            return;
        }
        {
            const std::lock_guard lock(self->mutex_);
            if (!self->isMute_) {
                self->isReadRegularly_ = false;
                return;
            }
        }
        self->readRegularly();
        if (self->owner_.isInFront()) {
            self->refresh();  // some browsers say of a restored window that it is not active
        } else if (!alive->silent->isSilent(self->window_.busName)) {
            cmn::bus::Ask<atspi::States>(
                *alive->connection, atspi::StatesOf(self->window_), alive->deadline(),
                [weak](const auto& states) {
                    const auto watch = weak.lock();
                    if (watch && states && atspi::Has(*states, atspi::State::active)) {
                        watch->refresh();
                    }
                });
        }
    });
}

void FieldWatch::refresh(const std::function<void()>& done) {
    const std::shared_ptr<Session> session = session_.lock();
    if (!session) {
        return;
    }
    if (session->silent->isSilent(field_.object.busName)) {
        const std::lock_guard lock(mutex_);
        isMissing_ = true;
    } else {
        isReading_ = true;
        const auto query = field_.isPage ? atspi::AddressOfPage(field_.object) : atspi::TextOf(field_.object);
        cmn::bus::Ask<std::string>(*session->connection, query, session->deadline(),
                                   [weak = weak_from_this(), done](const auto& text) {
                                       if (const auto self = weak.lock()) {
                                           self->finish(text, done);
                                       }
                                   });
        return;
    }
    if (done) {
        done();
    }
}

void FieldWatch::recovered() {
    bool isMissing = false;
    {
        const std::lock_guard lock(mutex_);
        isMissing = isMissing_;
    }
    // It is not pressed when it leaves the read unanswered again.
    if (isMissing && !isReading_ && !std::exchange(isRetried_, true)) {
        refresh();
    }
}

void FieldWatch::finish(const cmn::bus::Result<std::string>& text, const std::function<void()>& done) {
    isReading_ = false;
    const std::shared_ptr<Session> session = session_.lock();
    if (session && !text && atspi::IsTimeout(text.error())) {
        const std::lock_guard lock(mutex_);
        isMissing_ = true;
        session->silent->note(field_.object.busName, pid_);
    } else if (text && !text->empty()) {
        isRetried_ = false;
        isUnfit_ = false;
        take(text);
    } else if (session) {
        // A dead field may answer with an empty text.
        cmn::bus::Ask<atspi::States>(*session->connection, atspi::StatesOf(field_.object),
                                     session->deadline(),
                                     [weak = weak_from_this(), text, done](const auto& states) {
                                         if (const auto self = weak.lock()) {
                                             self->judge(text, states);
                                         }
                                         if (done) {
                                             done();
                                         }
                                     });
        return;
    }
    if (done) {
        done();
    }
}

void FieldWatch::judge(const cmn::bus::Result<std::string>& text,
                       const cmn::bus::Result<atspi::States>& states) {
    isRetried_ = false;
    const bool isAlive = text && states && !atspi::Has(*states, atspi::State::defunct);
    if (isAlive) {
        take(text);
    }
    // Of a dead one the text, if it gave one, is no address. Told once: it may stay so.
    if (!isUnfit_.exchange(!isAlive) && !isAlive) {
        owner_.onOutdated();
    }
}

}  // namespace useragent
