#include "accessibility/AtspiReader.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <vector>

#include "accessibility/ShowingChildren.h"

namespace useragent {
namespace {

using cmn::bus::Batch;

AXError GiveText(std::string text, AXValue& value) {
    value = MakeAXString(std::move(text));
    return AXError::success;
}

// Attributes that are one text. An empty one may mean that there is none.
struct TextAttribute {
    const char* name;
    atspi::Query<std::string> (*query)(const atspi::ObjectRef&);
    bool isAbsentWhenEmpty;
};
constexpr std::array kTextAttributes{
    TextAttribute{kValueAttribute, &atspi::TextOf, false},
    TextAttribute{kDescriptionAttribute, &atspi::NameOf, false},
    TextAttribute{kIdentifierAttribute, &atspi::IdentifierOf, true},
};

AXError ReadText(const AtspiReader& reader, const TextAttribute& attribute, AXValue& value) {
    auto text = reader.ask(attribute.query(reader.object()));
    if (!text) {
        return atspi::ErrorOf(text.error());
    }
    return text->empty() && attribute.isAbsentWhenEmpty ? AXError::noValue
                                                        : GiveText(std::move(*text), value);
}

AXError ReadObjectAttribute(const AtspiReader& reader, std::initializer_list<const char*> names,
                            AXValue& value) {
    const auto attributes = reader.ask(atspi::AttributesOf(reader.object()));
    if (!attributes) {
        return atspi::ErrorOf(attributes.error());
    }
    for (const char* const name : names) {
        if (const auto found = attributes->find(name); found != attributes->end()) {
            return GiveText(found->second, value);
        }
    }
    return AXError::noValue;
}

AXError ReadRole(const AtspiReader& reader, AXValue& value) {
    Batch batch = reader.newBatch();
    const auto roleAnswer = batch.ask(atspi::RoleOf(reader.object()));
    const auto statesAnswer = batch.ask(atspi::StatesOf(reader.object()));
    reader.finish(batch);
    const auto role = roleAnswer.read();
    const auto states = statesAnswer.read();
    if (!role || !states) {
        return atspi::ErrorOf(role ? states.error() : role.error());
    }
    return GiveText(atspi::AXRoleName(*role, *states), value);
}

}  // namespace

AXError AtspiReader::read(const std::string& attribute, AXValue& value) {
    if (attribute == kMainWindowAttribute && element_.isApplication()) {
        return session_->mainWindow(element_.pid, deadline_, value);
    }
    const auto known = element_.known.find(attribute);
    if (known != element_.known.end() && attribute == kValueAttribute) {
        return GiveText(*known->second, value);  // also when the application has become silent
    }
    AXError error = locate();
    if (error != AXError::success) {
        return error;
    }
    if (known != element_.known.end()) {
        return known->second ? GiveText(*known->second, value) : AXError::noValue;
    }
    if (attribute == kChildrenAttribute && element_.found) {
        value = std::vector<AXValue>(element_.found->begin(), element_.found->end());
        return AXError::success;
    }
    error = readLocated(attribute, value);
    const std::string used = object_.busName;
    if (error != AXError::success && element_.isApplication() && locate() == AXError::success &&
        object_.busName != used) {
        // The bus name was out of date: the process has another one now.
        error = readLocated(attribute, value);
    }
    return error;
}

AXError AtspiReader::locate() {
    object_ = element_.object;
    if (element_.isApplication()) {
        object_ = {session_->applications.busName(element_.pid, deadline_), atspi::kRootPath};
        if (object_.busName.empty()) {
            return AXError::cannotComplete;
        }
    } else if (element_.session.lock() != session_) {
        return AXError::invalidUIElement;
    }
    return isSilent(object_) ? AXError::cannotComplete : AXError::success;
}

bool AtspiReader::finish(Batch& batch) const {
    const bool complete = batch.wait();
    for (const std::string& busName : batch.silent()) {
        session_->silent->note(busName, element_.pid);
    }
    for (const std::string& busName : batch.absent()) {
        session_->applications.forget(element_.pid, busName);
    }
    return complete;
}

AXError AtspiReader::readLocated(const std::string& attribute, AXValue& value) const {
    const auto* const text =
        std::find_if(kTextAttributes.begin(), kTextAttributes.end(),
                     [&](const TextAttribute& known) { return known.name == attribute; });
    if (text != kTextAttributes.end()) {
        return ReadText(*this, *text, value);
    }
    if (attribute == kChildrenAttribute) {
        return ReadShowingChildren(*this, value);
    }
    if (attribute == kRoleAttribute) {
        return ReadRole(*this, value);
    }
    if (attribute == kDOMIdentifierAttribute) {
        return ReadObjectAttribute(*this, {"id"}, value);
    }
    if (attribute == kPlaceholderValueAttribute) {
        return ReadObjectAttribute(*this, {"placeholder", "placeholder-text"}, value);
    }
    return AXError::attributeUnsupported;
}

}  // namespace useragent
