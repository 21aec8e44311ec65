#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "accessibility/AtspiQueries.h"
#include "useragent/Accessibility.h"

namespace useragent {

struct FieldDescription;
class Session;

// What was read of an object along with others; nothing for an attribute that it does not have.
using KnownAttributes = std::map<std::string, std::optional<std::string>>;

// Handle of an object on the accessibility bus, or of a whole application, whose bus name is looked up when
// it is read. May carry what was read along with it. Immutable, shared between threads.
struct AtspiElement : AXElement {
    explicit AtspiElement(std::int32_t applicationPid) : pid(applicationPid) {}
    AtspiElement(std::int32_t applicationPid, std::weak_ptr<Session> ofSession, atspi::ObjectRef ref)
        : pid(applicationPid), session(std::move(ofSession)), object(std::move(ref)) {}

    bool isApplication() const { return object.path.empty(); }

    std::int32_t pid;                // of the application it was reached through
    std::weak_ptr<Session> session;  // outside of which the reference means nothing
    atspi::ObjectRef object;
    KnownAttributes known;                   // the value only as it was when the element was handed out
    std::optional<atspi::Objects> children;  // all that show, as they were when the parent was read
    std::shared_ptr<const FieldDescription> field;  // as it was then, of what may be an address field
    // Instead of all children: what a search of a window has found in it.
    std::optional<std::vector<std::shared_ptr<const AtspiElement>>> found;
};

AXStringRef MakeAXString(std::string text);

}  // namespace useragent
