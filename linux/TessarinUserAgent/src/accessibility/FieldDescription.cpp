#include "accessibility/FieldDescription.h"

#include <initializer_list>
#include <map>
#include <utility>

namespace useragent {
namespace {

std::optional<std::string> FirstOf(const std::map<std::string, std::string>& attributes,
                                   std::initializer_list<const char*> names) {
    for (const char* const name : names) {
        if (const auto found = attributes.find(name); found != attributes.end()) {
            return found->second;
        }
    }
    return std::nullopt;
}

}  // namespace

FieldQuestions::FieldQuestions(Batch& batch, const atspi::ObjectRef& object)
    : role_(batch.ask(atspi::RoleOf(object))),
      states_(batch.ask(atspi::StatesOf(object))),
      name_(batch.ask(atspi::NameOf(object))),
      identifier_(batch.ask(atspi::IdentifierOf(object))),
      attributes_(batch.ask(atspi::AttributesOf(object))),
      text_(batch.ask(atspi::TextOf(object))) {}

std::optional<FieldDescription> FieldQuestions::read() const {
    const auto role = role_.read();
    const auto states = states_.read();
    FieldDescription description;
    description.text = text_.read();
    if (!role || !states || atspi::Has(*states, atspi::State::defunct) ||
        (!description.text && atspi::ErrorOf(description.text.error()) == AXError::invalidUIElement)) {
        return std::nullopt;
    }
    description.states = *states;
    description.known[kRoleAttribute] = atspi::AXRoleName(*role, *states);
    if (auto name = name_.read()) {
        description.known[kDescriptionAttribute] = std::move(*name);
    }
    const std::string identifier = identifier_.read().valueOr("");
    description.known[kIdentifierAttribute] = identifier.empty() ? std::nullopt : std::optional(identifier);
    const auto attributes = attributes_.read().valueOr({});
    description.known[kDOMIdentifierAttribute] = FirstOf(attributes, {"id"});
    description.known[kPlaceholderValueAttribute] = FirstOf(attributes, {"placeholder", "placeholder-text"});
    return description;
}

}  // namespace useragent
