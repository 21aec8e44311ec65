#include "accessibility/ShowingChildren.h"

#include <memory>
#include <utility>
#include <vector>

#include "accessibility/FieldDescription.h"

namespace useragent {
namespace {

using cmn::bus::Batch;

cmn::bus::Result<atspi::Objects> FindOneByOne(const AtspiReader& reader) {
    auto all = reader.ask(atspi::ChildrenOf(reader.object()));
    if (!all) {
        return all;
    }
    std::erase_if(*all, [&](const atspi::ObjectRef& child) { return reader.isSilent(child); });
    Batch batch = reader.newBatch();
    std::vector<Batch::Answer<atspi::States>> states;
    for (const atspi::ObjectRef& child : *all) {
        states.push_back(batch.ask(atspi::StatesOf(child)));
    }
    if (!reader.finish(batch)) {
        return cmn::bus::Error{cmn::bus::error::kTimeout, "not all children answered"};
    }
    atspi::Objects showing;
    for (std::size_t i = 0; i < all->size(); ++i) {
        if (atspi::Has(states[i].read().valueOr(0), atspi::State::showing)) {
            showing.push_back(std::move((*all)[i]));
        }
    }
    return showing;
}

cmn::bus::Result<atspi::Objects> Find(const AtspiReader& reader) {
    if (reader.element().children) {
        return *reader.element().children;
    }
    const std::string& busName = reader.object().busName;
    if (reader.session()->canSelect(busName)) {
        auto selected = reader.ask(atspi::ShowingChildrenOf(reader.object()));
        if (selected || atspi::ErrorOf(selected.error()) != AXError::attributeUnsupported) {
            return selected;
        }
        reader.session()->cannotSelect(busName);
    }
    return FindOneByOne(reader);
}

// A child, and what is asked of it.
struct Child {
    std::shared_ptr<AtspiElement> element;
    Batch::Answer<atspi::Role> role;
    Batch::Answer<atspi::Objects> children;
};

}  // namespace

AXError ReadShowingChildren(const AtspiReader& reader, AXValue& value) {
    auto showing = Find(reader);
    if (!showing) {
        return atspi::ErrorOf(showing.error());
    }
    const bool isSelecting = reader.session()->canSelect(reader.object().busName);
    Batch batch = reader.newBatch();
    std::vector<Child> children;
    for (atspi::ObjectRef& object : *showing) {
        if (!reader.isSilent(object)) {
            Child& child = children.emplace_back();
            child.role = batch.ask(atspi::RoleOf(object));
            if (isSelecting) {
                child.children = batch.ask(atspi::ShowingChildrenOf(object));
            }
            child.element =
                std::make_shared<AtspiElement>(reader.element().pid, reader.session(), std::move(object));
        }
    }
    if (!reader.finish(batch)) {
        return AXError::cannotComplete;
    }
    std::vector<std::shared_ptr<AtspiElement>> fields;
    std::vector<AXValue> elements;
    for (const Child& child : children) {
        if (const auto role = child.role.read(); role && atspi::MayBeTextField(*role)) {
            fields.push_back(child.element);
        } else if (role) {
            child.element->known[kRoleAttribute] = atspi::AXRoleName(*role, 0);
        }
        if (isSelecting) {
            if (auto own = child.children.read()) {
                child.element->children = std::move(*own);
            }
        }
        elements.emplace_back(AXElementRef(child.element));
    }
    value = std::move(elements);
    return DescribeFields(reader, fields);
}

AXError DescribeFields(const AtspiReader& reader, const std::vector<std::shared_ptr<AtspiElement>>& fields) {
    Batch batch = reader.newBatch();
    std::vector<FieldQuestions> questions;
    questions.reserve(fields.size());
    for (const auto& field : fields) {
        questions.emplace_back(batch, field->object);
    }
    const bool complete = reader.finish(batch);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (auto description = questions[i].read()) {
            fields[i]->known = description->known;
            fields[i]->field = std::make_shared<const FieldDescription>(std::move(*description));
        }
    }
    return complete ? AXError::success : AXError::cannotComplete;
}

}  // namespace useragent
