#include "accessibility/WindowSearch.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "accessibility/AtspiReader.h"
#include "accessibility/FieldDescription.h"
#include "accessibility/MainWindow.h"
#include "accessibility/ShowingChildren.h"
#include "common/log.h"
#include "useragent/Deadlines.h"
#include "useragent/FindURLElement.h"
#include "useragent/SearchReader.h"

namespace useragent {
namespace {

using cmn::bus::Batch;

// Of an address field; what lies deeper is something else.
constexpr int kMostAncestors = 20;

// The application's tree, each read of it with a deadline of its own.
class TreeReader : public AccessibilityReader {
 public:
    explicit TreeReader(std::shared_ptr<Session> session) : session_(std::move(session)) {}

    AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute,
                               AXValue& value) override {
        const auto target = std::static_pointer_cast<const AtspiElement>(element);
        return AtspiReader(session_, *target, session_->deadline()).read(attribute, value);
    }

 private:
    const std::shared_ptr<Session> session_;
};

bool HasPath(const std::vector<std::string>& paths, const std::string& path) {
    return std::find(paths.begin(), paths.end(), path) != paths.end();
}

}  // namespace

void WindowSearch::Known::remember(const Found& found) {
    std::erase_if(mainWindows, [&](const std::string& path) {
        return path == found.window.path || !found.windows.contains(path);
    });
    if (!found.window.path.empty()) {
        mainWindows.insert(mainWindows.begin(), found.window.path);
    }
    std::erase_if(minimised, [&](const std::string& path) { return !found.windows.contains(path); });
    for (auto* const ofWindows : {&fields, &pages}) {
        std::erase_if(*ofWindows, [&](const auto& entry) { return !found.windows.contains(entry.first); });
    }
    if (found.field && found.field->isPage) {
        pages[found.window.path] = *found.field;
    } else if (found.field) {
        fields[found.window.path] = *found.field;
        pages.erase(found.window.path);
    }
}

WindowSearch::WindowSearch(std::shared_ptr<Session> session, std::int32_t pid, std::string busName)
    : session_(std::move(session)), pid_(pid), root_{std::move(busName), atspi::kRootPath} {}

AXError WindowSearch::run(const Known& known, Found& found) {
    const AXError error = chooseWindow(known, found);
    if (error == AXError::success) {
        findField(known, found);
    }
    return error;
}

AXError WindowSearch::chooseWindow(const Known& known, Found& found) {
    const AtspiElement application(pid_, session_, root_);
    const AtspiReader reader(session_, application, session_->deadline());
    if (reader.isSilent(root_)) {
        return AXError::cannotComplete;
    }
    const auto objects = reader.ask(atspi::ChildrenOf(root_));
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
    const bool isSelecting = session_->canSelect(root_.busName);
    Batch batch = reader.newBatch();
    std::vector<Answers> answers;
    for (const atspi::ObjectRef& object : *objects) {
        answers.push_back(
            {batch.ask(atspi::RoleOf(object)), batch.ask(atspi::StatesOf(object)),
             batch.ask(atspi::NameOf(object)),
             batch.ask(isSelecting ? atspi::ShowingChildrenOf(object) : atspi::ChildrenOf(object))});
    }
    if (!reader.finish(batch)) {
        return AXError::cannotComplete;
    }
    std::vector<TopLevel> windows;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        TopLevel& window = windows.emplace_back(
            TopLevel{(*objects)[i].path, answers[i].role.read().valueOr(0),
                     answers[i].states.read().valueOr(0), answers[i].name.read().valueOr("")});
        if (known.minimised.contains(window.path)) {
            window.states = window.states | atspi::State::iconified;
        }
        found.windows[window.path] = IsCandidate(window);
    }
    const auto chosen = ChooseMainWindow(windows, known.mainWindows, known.frontTitle, known.isCovered);
    if (!chosen) {
        return AXError::noValue;
    }
    found.window = (*objects)[*chosen];
    found.title = windows[*chosen].title;
    found.isActive = atspi::Has(windows[*chosen].states, atspi::State::active);
    auto children = answers[*chosen].children.read();
    if (isSelecting && !children && atspi::ErrorOf(children.error()) == AXError::attributeUnsupported) {
        session_->cannotSelect(root_.busName);
    }
    careForContent(found.window, children);
    if (isSelecting && children && !children->empty()) {
        showing_ = std::move(*children);
    }
    return AXError::success;
}

// Browsers of the Chromium family build the tree of a window once somebody asks it for its attributes.
void WindowSearch::careForContent(const atspi::ObjectRef& window,
                                  const cmn::bus::Result<atspi::Objects>& children) {
    bool staysEmpty = !children || children->empty();
    if (staysEmpty) {
        const AtspiElement element(pid_, session_, window);
        const AtspiReader reader(session_, element, session_->deadline());
        Batch batch = reader.newBatch();
        batch.ask(atspi::AttributesOf(window));
        const auto answer = batch.ask(atspi::ChildrenOf(window));
        reader.finish(batch);
        const auto& again = answer.read();
        staysEmpty = again && again->empty();
    }
    session_->applications.noteWindowContent(pid_, staysEmpty);
}

void WindowSearch::findField(const Known& known, Found& found) {
    const auto before = known.fields.find(found.window.path);
    const bool wasFound = before != known.fields.end();
    if (wasFound && !before->second.isPage && describe(before->second, found) && found.isFieldShowing) {
        return;
    }
    const std::optional<AddressField> hidden = std::exchange(found.field, std::nullopt);
    TreeReader tree(session_);
    SearchReader search(tree, &std::chrono::steady_clock::now, kURLFieldSearchDeadline);
    const auto deadline = cmn::bus::Clock::now() + kURLFieldSearchDeadline;
    const auto window = std::make_shared<AtspiElement>(pid_, session_, found.window);
    window->children = std::exchange(showing_, std::nullopt);
    const auto field = std::static_pointer_cast<const AtspiElement>(FindURLElement(search, window, 0));
    if (search.expired()) {
        TLOG_WARN("The search for the URL field of {} took too long and was ended",
                  fmt::format("the process {}", pid_));
    }
    if (field && field->field) {
        adopt(*field->field, {field->object, {}}, found);
        return;
    }
    if ((field && describe({field->object, {}}, found)) || (!hidden && findCovered(found, deadline))) {
        return;
    }
    // A dialog may hide a field that is still there, and a page that fills the screen takes it away.
    if (hidden) {
        describe(*hidden, found);
    } else if (wasFound) {
        describePage(known, found);
    }
}

// In a window that others cover, some browsers show nothing below the window.
bool WindowSearch::findCovered(Found& found, cmn::bus::Deadline deadline) {
    const AtspiElement element(pid_, session_, found.window);
    const AtspiReader reader(session_, element, std::min(session_->deadline(), deadline));
    std::vector<std::shared_ptr<AtspiElement>> fields;
    for (atspi::ObjectRef& entry : reader.ask(atspi::EntriesOf(found.window)).valueOr({})) {
        fields.push_back(std::make_shared<AtspiElement>(pid_, session_, std::move(entry)));
        fields.back()->found.emplace();
    }
    DescribeFields(reader, fields);
    std::erase_if(fields, [](const auto& field) { return !field->field; });
    for (;;) {
        const auto window = std::make_shared<AtspiElement>(pid_, session_, found.window);
        window->found.emplace(fields.begin(), fields.end());
        TreeReader tree(session_);
        const auto field = std::static_pointer_cast<const AtspiElement>(FindURLElement(tree, window, 0));
        if (!field) {
            return false;
        }
        if (!isInPage(field->object, found.window, deadline)) {
            adopt(*field->field, {field->object, {}}, found);
            return true;
        }
        std::erase(fields, field);
    }
}

// Also when it is not known.
bool WindowSearch::isInPage(atspi::ObjectRef object, const atspi::ObjectRef& window,
                            cmn::bus::Deadline deadline) const {
    for (int depth = 0; depth < kMostAncestors && object.path != window.path; ++depth) {
        const AtspiElement element(pid_, session_, object);
        const AtspiReader reader(session_, element, std::min(session_->deadline(), deadline));
        auto parent = reader.ask(atspi::ParentOf(object));
        const auto role = parent ? reader.ask(atspi::RoleOf(*parent)) : parent.error();
        if (!role || atspi::AXRoleName(*role, 0) == kWebAreaRole) {
            return true;
        }
        object = std::move(*parent);
    }
    return object.path != window.path;
}

// False when it is no field any more.
bool WindowSearch::describe(AddressField field, Found& found) {
    const AtspiElement element(pid_, session_, field.object);
    const AtspiReader reader(session_, element, session_->deadline());
    Batch batch = reader.newBatch();
    const FieldQuestions questions(batch, field.object);
    reader.finish(batch);
    const auto description = questions.read();
    if (description) {
        adopt(*description, std::move(field), found);
    }
    return description.has_value();
}

void WindowSearch::adopt(const FieldDescription& description, AddressField field, Found& found) {
    field.known = description.known;
    field.known.try_emplace(kDescriptionAttribute, "");
    field.isMute = !atspi::Has(description.states, atspi::State::editable);
    found.isFieldShowing = atspi::Has(description.states, atspi::State::showing);
    found.text = description.text;
    found.field = std::move(field);
}

// The page in the place of the field that the window had.
bool WindowSearch::describePage(const Known& known, Found& found) {
    const AtspiElement window(pid_, session_, found.window);
    const AtspiReader reader(session_, window, session_->deadline());
    auto pages = reader.ask(atspi::ShowingPagesOf(found.window)).valueOr({});
    const auto before = known.pages.find(found.window.path);
    if (pages.empty() && before != known.pages.end()) {
        pages.push_back(before->second.object);  // others cover the window: nothing in it is showing
    }
    if (pages.empty()) {
        return false;
    }
    auto address = reader.ask(atspi::AddressOfPage(pages.front()));
    if (!address || address->empty()) {
        return false;
    }
    found.field = AddressField{pages.front(), known.fields.at(found.window.path).known, true, true};
    found.text = std::move(address);
    return true;
}

bool WindowSearch::stillHolds(const Found& found, const std::string& frontTitle,
                              const std::optional<std::string>& title) const {
    const std::string& mainWindow = found.window.path;
    const auto isOther = [&](const std::string& path) {
        const auto known = found.windows.find(path);
        return path != mainWindow && (known == found.windows.end() || known->second);
    };
    const auto onScreen = session_->takeFrames(root_.busName);
    if (onScreen && HasPath(onScreen->active, mainWindow)) {
        return true;
    }
    if (onScreen && onScreen->showing && HasPath(*onScreen->showing, mainWindow)) {
        return std::none_of(onScreen->active.begin(), onScreen->active.end(), isOther);
    }
    TitleMatch match = TitleMatch::whole;
    if (!frontTitle.empty()) {
        match = MatchTitle(title.value_or(""), frontTitle);
        if (match != TitleMatch::none && found.candidates() == 1) {
            return true;
        }
    }
    const atspi::States states =
        AskAndWait(session_->connection, atspi::StatesOf(found.window), session_->deadline())
            .valueOr(atspi::States{} | atspi::State::defunct);
    if (atspi::Has(states, atspi::State::active) && match != TitleMatch::none) {
        return true;
    }
    return !atspi::Has(states, atspi::State::defunct) && !atspi::Has(states, atspi::State::iconified) &&
           isNoOtherInFront(found, frontTitle, match);
}

// None is active, nor has a title that fits better than that of the main window.
bool WindowSearch::isNoOtherInFront(const Found& found, const std::string& frontTitle,
                                    TitleMatch match) const {
    const auto windows = AskAndWait(session_->connection, atspi::ChildrenOf(root_), session_->deadline());
    if (!windows || windows->size() != found.windows.size()) {
        return false;
    }
    struct Window {
        Batch::Answer<atspi::States> states;
        Batch::Answer<std::string> title;
    };
    Batch batch(session_->connection, session_->deadline());
    std::vector<Window> others;
    for (const atspi::ObjectRef& window : *windows) {
        const auto known = found.windows.find(window.path);
        if (known == found.windows.end()) {
            return false;
        }
        if (known->second && window.path != found.window.path) {
            others.push_back({batch.ask(atspi::StatesOf(window)), batch.ask(atspi::NameOf(window))});
        }
    }
    batch.wait();
    return std::none_of(others.begin(), others.end(), [&](const Window& other) {
        return atspi::Has(other.states.read().valueOr(0), atspi::State::active) ||
               MatchTitle(other.title.read().valueOr(""), frontTitle) > match;
    });
}

}  // namespace useragent
