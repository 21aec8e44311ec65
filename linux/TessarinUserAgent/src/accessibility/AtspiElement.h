#pragma once

#include <QString>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "accessibility/AtspiMessages.h"
#include "useragent/Accessibility.h"

namespace useragent {

// Handle of an object on the accessibility bus, or of a whole application, whose bus name is looked up when
// it is read. May carry what was read along with it. Immutable, shared between threads.
struct AtspiElement : AXElement {
    struct Nature {
        atspi::Role role = 0;
        atspi::States states = 0;  // only where they matter for the role's name
    };

    explicit AtspiElement(std::int32_t applicationPid) : pid(applicationPid) {}
    AtspiElement(std::int32_t applicationPid, std::uint64_t busEpoch, atspi::ObjectRef ref)
        : pid(applicationPid), epoch(busEpoch), object(std::move(ref)) {}

    bool isApplication() const { return object.path.isEmpty(); }

    std::int32_t pid;         // of the application it was reached through
    std::uint64_t epoch = 0;  // of the bus that the reference belongs to
    atspi::ObjectRef object;
    std::optional<Nature> nature;
    std::optional<QString> name;
    std::optional<std::vector<atspi::ObjectRef>>
        children;                  // all of them, as they were when the parent was read
    std::optional<QString> value;  // fresh when a notification delivered it
};

// Text as the bus delivers it: always valid UTF-8 without NULs.
AXStringRef MakeAXString(const QString& text);

}  // namespace useragent
