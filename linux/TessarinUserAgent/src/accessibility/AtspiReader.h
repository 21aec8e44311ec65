#pragma once

#include <memory>
#include <string>
#include <utility>

#include "accessibility/AtspiElement.h"
#include "accessibility/Session.h"
#include "useragent/Accessibility.h"

namespace useragent {

// Reads one element: whom to ask, and until when. An application that leaves a read unanswered is not asked
// again until it has answered a ping.
class AtspiReader {
 public:
    AtspiReader(std::shared_ptr<Session> session, const AtspiElement& element, cmn::bus::Deadline deadline)
        : session_(std::move(session)), element_(element), deadline_(deadline) {}

    AXError read(const std::string& attribute, AXValue& value);

    // Finds the object behind the element: for an application its root. An error when it cannot be asked now.
    AXError locate();

    const AtspiElement& element() const { return element_; }
    const atspi::ObjectRef& object() const { return object_; }
    const std::shared_ptr<Session>& session() const { return session_; }

    // Whether the object's application is known not to answer.
    bool isSilent(const atspi::ObjectRef& object) const { return session_->silent->isSilent(object.busName); }

    cmn::bus::Batch newBatch() const { return {session_->connection, deadline_}; }
    // Waits, and remembers who does not answer or is gone. False when not all calls were answered.
    bool finish(cmn::bus::Batch& batch) const;

    template <typename T>
    cmn::bus::Result<T> ask(const atspi::Query<T>& query) const {
        cmn::bus::Batch batch = newBatch();
        const auto answer = batch.ask(query);
        finish(batch);
        return answer.read();
    }

 private:
    AXError readLocated(const std::string& attribute, AXValue& value) const;

    const std::shared_ptr<Session> session_;
    const AtspiElement& element_;
    const cmn::bus::Deadline deadline_;
    atspi::ObjectRef object_;
};

}  // namespace useragent
