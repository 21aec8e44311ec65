#pragma once

#include <optional>
#include <string>

#include "accessibility/AtspiElement.h"
#include "linux_bus/Batch.h"

namespace useragent {

// What a search and the watcher want to know of an object that may be an address field.
struct FieldDescription {
    KnownAttributes known;  // without its text, and without what could not be read
    atspi::States states = 0;
    cmn::bus::Result<std::string> text = std::string();
};

// All of it asked for along with the other questions of a batch. One thread.
class FieldQuestions {
 public:
    FieldQuestions(cmn::bus::Batch& batch, const atspi::ObjectRef& object);

    // After the batch's wait. Nothing of an object that is dead or gone.
    std::optional<FieldDescription> read() const;

 private:
    using Batch = cmn::bus::Batch;

    Batch::Answer<atspi::Role> role_;
    Batch::Answer<atspi::States> states_;
    Batch::Answer<std::string> name_;
    Batch::Answer<std::string> identifier_;
    Batch::Answer<std::map<std::string, std::string>> attributes_;
    Batch::Answer<std::string> text_;
};

}  // namespace useragent
