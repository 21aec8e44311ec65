#pragma once

#include <optional>
#include <string>

namespace useragent {

// Decides, for one field, when its value has to be read and which reads are changes. A change reaches us as
// one or more signals without the resulting text. An application answers in the order of its signals, so
// signals that arrive before the answer of a running read are covered by that read.
class ValueFollower {
 public:
    enum class Retry { none, now, later };

    // A signal arrived. True when a read has to be started.
    bool changed();

    // The running read was answered. True when the text is another than the one last told.
    bool read(const std::string& text);

    // The running read was not answered in time, so a change may be missing.
    void unanswered();

    // The running read failed for good: the field is gone.
    void failed() { reading_ = false; }

    // The application answers again: whether what is missing should be asked for. It is not pressed when it
    // leaves that read unanswered, too.
    Retry recovered();

 private:
    bool reading_ = false;
    bool missing_ = false;
    bool retried_ = false;
    std::optional<std::string> told_;
};

}  // namespace useragent
