#pragma once

#include <QString>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "accessibility/AtspiReading.h"
#include "useragent/Accessibility.h"

namespace useragent {

// Reads the children of an element that are showing, with what a search asks of them next: role, and their
// own children. Any thread.
class ShowingChildren {
 public:
    AXError read(const AtspiReading& reading, std::vector<AXValue>& elements);

 private:
    using Objects = std::vector<atspi::ObjectRef>;

    AXError find(const AtspiReading& reading, Objects& showing);
    AXError findOneByOne(const AtspiReading& reading, Objects& showing);
    AXError describe(const AtspiReading& reading, Objects showing, std::vector<AXValue>& elements);
    AXError describeFields(const AtspiReading& reading,
                           const std::vector<std::shared_ptr<AtspiElement>>& fields);

    // Whether the application can be asked for the children in question in one call.
    bool canSelect(const AtspiReading& reading, const QString& busName);
    void cannotSelect(const QString& busName);

    std::mutex mutex_;  // guards what follows
    std::uint64_t epoch_ = 0;
    std::set<QString> withoutSelection_;
};

}  // namespace useragent
