#include "accessibility/AtspiReader.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <vector>

#include "accessibility/MainWindow.h"
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

// Browsers of the Chromium family build the tree of a window once somebody asks it for its attributes.
void CareForContent(const AtspiReader& reader, const atspi::ObjectRef& window,
                    const cmn::bus::Result<atspi::Objects>& children) {
    bool staysEmpty = children && children->empty();
    if (staysEmpty) {
        Batch batch = reader.newBatch();
        batch.ask(atspi::AttributesOf(window));
        const auto answer = batch.ask(atspi::ChildrenOf(window));
        reader.finish(batch);
        const auto again = answer.read();
        staysEmpty = again && again->empty();
    }
    reader.session()->applications.noteWindowContent(reader.element().pid, staysEmpty);
}

AXError ReadMainWindow(const AtspiReader& reader, AXValue& value) {
    const auto objects = reader.ask(atspi::ChildrenOf(reader.object()));
    if (!objects) {
        return atspi::ErrorOf(objects.error());
    }
    if (objects->size() > kMostTopLevels) {
        return AXError::cannotComplete;
    }
    struct Answers {
        Batch::Answer<atspi::Role> role;
        Batch::Answer<atspi::States> states;
        Batch::Answer<std::string> name;
        Batch::Answer<atspi::Objects> children;
    };
    Batch batch = reader.newBatch();
    std::vector<Answers> answers;
    for (const atspi::ObjectRef& object : *objects) {
        answers.push_back({batch.ask(atspi::RoleOf(object)), batch.ask(atspi::StatesOf(object)),
                           batch.ask(atspi::NameOf(object)), batch.ask(atspi::ChildrenOf(object))});
    }
    if (!reader.finish(batch)) {
        return AXError::cannotComplete;
    }
    std::vector<TopLevel> windows;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        windows.push_back({(*objects)[i].path, answers[i].role.read().valueOr(0),
                           answers[i].states.read().valueOr(0), answers[i].name.read().valueOr("")});
    }
    const std::int32_t pid = reader.element().pid;
    Applications& applications = reader.session()->applications;
    const std::optional<std::size_t> chosen = ChooseMainWindow(windows, applications.mainWindow(pid));
    if (!chosen) {
        return AXError::noValue;
    }
    const atspi::ObjectRef& object = (*objects)[*chosen];
    CareForContent(reader, object, answers[*chosen].children.read());
    applications.setMainWindow(pid, object.path);
    const auto window = std::make_shared<AtspiElement>(pid, reader.session(), object);
    window->known[kRoleAttribute] = atspi::AXRoleName(windows[*chosen].role, windows[*chosen].states);
    value = AXElementRef(window);
    return AXError::success;
}

}  // namespace

AXError AtspiReader::read(const std::string& attribute, AXValue& value) {
    const auto known = element_.known.find(attribute);
    if (known != element_.known.end() && attribute == kValueAttribute) {
        return GiveText(known->second, value);  // also when the application has become silent
    }
    AXError error = locate();
    if (error != AXError::success) {
        return error;
    }
    if (known != element_.known.end()) {
        return GiveText(known->second, value);
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
    if (attribute == kMainWindowAttribute && element_.isApplication()) {
        return ReadMainWindow(*this, value);
    }
    return AXError::attributeUnsupported;
}

}  // namespace useragent
