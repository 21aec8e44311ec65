#include "accessibility/ShowingChildren.h"

#include <memory>
#include <utility>

namespace useragent {
namespace {

// More than this could not be read before any deadline.
constexpr int kMostChildren = 8192;

}  // namespace

AXError ShowingChildren::read(const AtspiReading& reading, std::vector<AXValue>& elements) {
    Objects showing;
    const AXError error = find(reading, showing);
    return error == AXError::success ? describe(reading, std::move(showing), elements) : error;
}

AXError ShowingChildren::find(const AtspiReading& reading, Objects& showing) {
    if (reading.element().children) {
        showing = *reading.element().children;
        return AXError::success;
    }
    if (!canSelect(reading, reading.object().busName)) {
        return findOneByOne(reading, showing);
    }
    const QDBusMessage reply = reading.ask(atspi::GetShowingChildren(reading.object(), kMostChildren + 1));
    auto selected = atspi::ReadObjects(reply, reading.deadline());
    if (selected) {
        showing = std::move(*selected);
        return AXError::success;
    }
    const AXError error = atspi::ErrorOf(reply);
    if (error == AXError::attributeUnsupported) {
        cannotSelect(reading.object().busName);
        return findOneByOne(reading, showing);
    }
    return Clock::now() >= reading.deadline() ? AXError::cannotComplete : error;
}

AXError ShowingChildren::findOneByOne(const AtspiReading& reading, Objects& showing) {
    const QDBusMessage reply = reading.ask(reading.call("GetChildren"));
    auto all = atspi::ReadObjects(reply, reading.deadline());
    if (!all) {
        return Clock::now() >= reading.deadline() ? AXError::cannotComplete : atspi::ErrorOf(reply);
    }
    if (all->size() > kMostChildren) {
        return AXError::cannotComplete;
    }
    std::erase_if(*all, [&](const atspi::ObjectRef& child) { return reading.isSilent(child); });
    std::vector<QDBusMessage> calls;
    for (const atspi::ObjectRef& child : *all) {
        calls.push_back(atspi::Call(child, atspi::kAccessibleInterface, "GetState"));
    }
    const Replies replies = reading.ask(calls);
    if (!replies.complete) {
        return AXError::cannotComplete;
    }
    for (std::size_t i = 0; i < all->size(); ++i) {
        if (atspi::Has(atspi::ReadStates(replies.messages[i]).value_or(0), atspi::State::showing)) {
            showing.push_back(std::move((*all)[i]));
        }
    }
    return AXError::success;
}

AXError ShowingChildren::describe(const AtspiReading& reading, Objects showing,
                                  std::vector<AXValue>& elements) {
    if (showing.size() > kMostChildren) {
        return AXError::cannotComplete;
    }
    std::erase_if(showing, [&](const atspi::ObjectRef& child) { return reading.isSilent(child); });
    const std::size_t count = showing.size();
    std::vector<QDBusMessage> calls;
    for (const atspi::ObjectRef& child : showing) {
        calls.push_back(atspi::Call(child, atspi::kAccessibleInterface, "GetRole"));
    }
    const bool isSelecting = canSelect(reading, reading.object().busName);
    for (std::size_t i = 0; isSelecting && i < count; ++i) {
        calls.push_back(atspi::GetShowingChildren(showing[i], kMostChildren + 1));
    }
    const Replies replies = reading.ask(calls);
    if (!replies.complete) {
        return AXError::cannotComplete;
    }
    std::vector<std::shared_ptr<AtspiElement>> fields;
    for (std::size_t i = 0; i < count; ++i) {
        const auto child = std::make_shared<AtspiElement>(reading.element().pid, reading.link().epoch,
                                                          std::move(showing[i]));
        if (const auto role = atspi::ReadNumber(replies.messages[i])) {
            child->nature = {*role, 0};
            if (atspi::MayBeTextField(*role)) {
                fields.push_back(child);
            }
        }
        if (isSelecting) {
            child->children = atspi::ReadObjects(replies.messages[count + i], reading.deadline());
        }
        elements.emplace_back(AXElementRef(child));
    }
    return describeFields(reading, fields);
}

AXError ShowingChildren::describeFields(const AtspiReading& reading,
                                        const std::vector<std::shared_ptr<AtspiElement>>& fields) {
    std::vector<QDBusMessage> calls;
    for (const auto& field : fields) {
        calls.push_back(atspi::Call(field->object, atspi::kAccessibleInterface, "GetState"));
        calls.push_back(atspi::GetProperty(field->object, atspi::kAccessibleInterface, "Name"));
    }
    const Replies replies = reading.ask(calls);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (const auto states = atspi::ReadStates(replies.messages[2 * i])) {
            fields[i]->nature->states = *states;
        } else {
            fields[i]->nature.reset();
        }
        fields[i]->name = atspi::ReadStringProperty(replies.messages[2 * i + 1]);
    }
    return replies.complete ? AXError::success : AXError::cannotComplete;
}

bool ShowingChildren::canSelect(const AtspiReading& reading, const QString& busName) {
    const std::lock_guard lock(mutex_);
    if (epoch_ < reading.link().epoch) {
        epoch_ = reading.link().epoch;
        withoutSelection_.clear();
    }
    return !withoutSelection_.contains(busName);
}

void ShowingChildren::cannotSelect(const QString& busName) {
    const std::lock_guard lock(mutex_);
    withoutSelection_.insert(busName);
}

}  // namespace useragent
