#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "accessibility/AtspiElement.h"
#include "accessibility/Listener.h"
#include "accessibility/Session.h"
#include "accessibility/TextMirror.h"

namespace useragent {

// An address field as a search has found it.
struct AddressField {
    atspi::ObjectRef object;
    KnownAttributes known;  // without its text
    // While a page fills the screen there is no field; then this is the page, whose address is read instead.
    bool isPage = false;
    bool isMute = false;  // its application does not tell its changes
};

// The text of one address field. A change is told at the insertion that completes it, without asking the
// application; a read after it verifies. Read anew when signals may have been missed. Signals and answers
// come in the bus's thread.
class FieldWatch : public std::enable_shared_from_this<FieldWatch> {
 public:
    // Both in the bus's thread: `onOutdated` is called when the object is no address field any more, or
    // another kind of one; `isInFront` tells whether no other window on screen is in front of the field's.
    struct Owner {
        std::function<void()> onOutdated;
        std::function<bool()> isInFront;
    };

    FieldWatch(const std::shared_ptr<Session>& session, std::int32_t pid, AddressField field,
               atspi::ObjectRef window, Owner owner);

    // Any thread.
    void open();
    const AddressField& field() const { return field_; }
    std::shared_ptr<const AtspiElement> element() const;  // with its text, when that is known
    // Tells changes from `given` on, which is the text that the listener knows.
    void listen(const std::shared_ptr<Listener>& listener, std::optional<std::string> given);
    // Whether its application leaves its changes untold, which may change; then it is read once a second.
    void setMute(bool isMute);
    // When it was read last it was no address field any more.
    bool isUnfit() const { return isUnfit_; }
    // What was read of it elsewhere.
    void take(const cmn::bus::Result<std::string>& text);

    // The bus's thread. `done` is called when the application has answered or will not; not when all is over.
    void refresh(const std::function<void()>& done = {});
    // The application answers again.
    void recovered();

 private:
    struct Hearer {
        std::weak_ptr<Listener> listener;
        std::optional<std::string> given;
    };

    void heard(const cmn::bus::Message& signal);
    void textChanged(const cmn::bus::Message& signal);
    void verify();
    void readRegularly();
    void finish(const cmn::bus::Result<std::string>& text, const std::function<void()>& done);
    void judge(const cmn::bus::Result<std::string>& text, const cmn::bus::Result<atspi::States>& states);
    // With the mutex held.
    void tell();
    std::shared_ptr<const AtspiElement> makeElement() const;

    const std::weak_ptr<Session> session_;
    const std::int32_t pid_;
    const AddressField field_;
    const atspi::ObjectRef window_;
    const Owner owner_;
    std::shared_ptr<cmn::bus::Subscription> signals_;

    bool isReading_ = false;  // the bus's thread only, as the next
    bool isRetried_ = false;
    std::atomic<bool> isUnfit_{false};

    mutable std::mutex mutex_;  // guards what follows
    TextMirror mirror_;
    bool isMissing_ = false;  // a read was not answered
    bool isMute_ = false;
    bool isReadRegularly_ = false;
    std::vector<Hearer> hearers_;
};

}  // namespace useragent
