#include "windowlist/AtspiSurvey.h"

#include <utility>

#include "accessibility/MainWindow.h"
#include "windowlist/OwnerName.h"

namespace useragent {
namespace {

using atspi::ObjectRef;
using cmn::bus::Batch;
using cmn::bus::Deadline;
using cmn::bus::HalfWayTo;

template <typename Items, typename Item>
bool IsIn(const Items& items, const Item& item) {
    return std::find(items.begin(), items.end(), item) != items.end();
}

ObjectRef RootOf(const std::string& busName) {
    return {busName, atspi::kRootPath};
}

// The frames of an application that have all of the states.
atspi::Query<atspi::Objects> FramesWith(const std::string& busName, atspi::States states) {
    return atspi::MatchesOf(RootOf(busName), states, {atspi::kRoleFrame}, kMostTopLevels + 1, false);
}

constexpr atspi::States kShowing = atspi::States{1} << static_cast<unsigned>(atspi::State::showing);
constexpr atspi::States kShowingAndActive = atspi::State::showing | atspi::State::active;

std::vector<std::string> PathsOf(const atspi::Objects& objects) {
    std::vector<std::string> paths;
    std::transform(objects.begin(), objects.end(), std::back_inserter(paths),
                   [](const ObjectRef& object) { return object.path; });
    return paths;
}

}  // namespace

std::optional<std::vector<std::string>> AtspiSurvey::take(Deadline deadline) {
    const auto names = session_.applications.registered(HalfWayTo(deadline));
    if (!names) {
        return std::nullopt;
    }
    std::erase_if(records_, [&](const auto& entry) { return !IsIn(*names, entry.first); });
    learnProcesses(*names, HalfWayTo(deadline));
    learnNames(HalfWayTo(deadline));
    Answers answers;
    for (const auto& [busName, record] : records_) {
        if (record.isBrowser && canBeAsked(busName)) {
            answers[busName];
        }
    }
    selectFrames(answers, HalfWayTo(deadline));
    goThroughChildren(answers, HalfWayTo(deadline));
    learnTitles(answers, deadline);
    if (!session_.connection->isReady()) {
        return std::nullopt;  // that nobody answered says nothing then
    }
    std::vector<std::string> browsers;
    std::copy_if(names->begin(), names->end(), std::back_inserter(browsers), [this](const std::string& name) {
        const auto record = records_.find(name);
        return record != records_.end() && record->second.isBrowser;
    });
    return browsers;
}

// A unique name stays with its process. Only of one that is silent is it asked again whether it is there.
void AtspiSurvey::learnProcesses(const std::vector<std::string>& names, Deadline deadline) {
    std::vector<std::string> wanted;
    std::copy_if(names.begin(), names.end(), std::back_inserter(wanted), [this](const std::string& name) {
        return !records_.contains(name) || session_.silent->isSilent(name);
    });
    const auto pids = session_.applications.processIds(wanted, deadline);
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (pids[i] && *pids[i] != 0) {
            records_[wanted[i]].pid = *pids[i];
        } else if (pids[i]) {
            records_.erase(wanted[i]);
        }
    }
}

void AtspiSurvey::learnNames(Deadline deadline) {
    std::vector<std::pair<std::string, Batch::Answer<std::string>>> asked;
    Batch batch(session_.connection, deadline);
    for (const auto& [busName, record] : records_) {
        if (record.name.empty() && canBeAsked(busName)) {
            asked.emplace_back(busName, batch.ask(atspi::NameOf(RootOf(busName))));
        }
    }
    finish(batch);
    for (const auto& [busName, answer] : asked) {
        AtspiApplicationRecord& record = records_[busName];
        record.name = OwnerName(answer.read().valueOr(""));
        record.isBrowser = IsIn(browsers_, record.name);
        if (record.isBrowser) {
            // Browsers of the Chromium family do not say which window is active unless somebody wants to hear
            // when that changes.
            session_.events->add({atspi::kWindowActivateEvent}, busName, deadline);
        }
    }
}

// Asks for the active frames, and for all that are showing where none of those is a window: a browser in
// front is asked once.
void AtspiSurvey::selectFrames(Answers& answers, Deadline deadline) {
    using Frames = std::map<std::string, Batch::Answer<atspi::Objects>>;
    Frames active;
    Batch ofActive(session_.connection, HalfWayTo(deadline));
    for (const auto& [busName, answer] : answers) {
        if (session_.canSelect(busName)) {
            active[busName] = ofActive.ask(FramesWith(busName, kShowingAndActive));
        }
    }
    finish(ofActive);
    Frames showing;
    Batch ofShowing(session_.connection, deadline);
    for (const auto& [busName, reply] : active) {
        const auto frames = reply.read();
        if (!frames && atspi::ErrorOf(frames.error()) == AXError::attributeUnsupported) {
            session_.cannotSelect(busName);
            continue;
        }
        Session::FramesOnScreen onScreen{PathsOf(frames.valueOr({})), std::nullopt};
        auto& known = records_[busName].frames;
        if (std::any_of(onScreen.active.begin(), onScreen.active.end(),
                        [&](const std::string& path) { return known.contains(path) && known[path]; })) {
            Answer& answer = answers[busName];
            std::transform(known.begin(), known.end(), std::back_inserter(answer.frames),
                           [](const auto& frame) { return frame.first; });
            answer.isActive = answer.isComplete = true;
            session_.noteFrames(busName, std::move(onScreen));
        } else if (canBeAsked(busName)) {
            showing[busName] = ofShowing.ask(FramesWith(busName, kShowing));
        }
    }
    finish(ofShowing);
    for (const auto& [busName, reply] : showing) {
        const auto frames = reply.read();
        const bool isTooMuch = frames ? frames->size() > kMostTopLevels : atspi::IsTimeout(frames.error());
        if (!isTooMuch && active[busName].arrived()) {
            Session::FramesOnScreen onScreen{PathsOf(active[busName].read().valueOr({})),
                                             PathsOf(frames.valueOr({}))};
            answers[busName] = {*onScreen.showing, !onScreen.active.empty(), true};
            session_.noteFrames(busName, std::move(onScreen));
        }
    }
}

// For those that cannot select.
void AtspiSurvey::goThroughChildren(Answers& answers, Deadline deadline) {
    struct Frame {
        std::string path;
        Batch::Answer<atspi::Role> role;
        Batch::Answer<atspi::States> states;
    };
    std::map<std::string, Batch::Answer<atspi::Objects>> asked;
    Batch roots(session_.connection, HalfWayTo(deadline));
    for (const auto& [busName, answer] : answers) {
        if (!session_.canSelect(busName)) {
            asked[busName] = roots.ask(atspi::ChildrenOf(RootOf(busName)));
        }
    }
    finish(roots);
    std::map<std::string, std::vector<Frame>> frames;
    Batch batch(session_.connection, deadline);
    for (const auto& [busName, children] : asked) {
        const auto objects = children.read();
        if (objects && objects->size() <= kMostTopLevels) {
            frames[busName];
            for (const ObjectRef& object : *objects) {
                frames[busName].push_back(
                    {object.path, batch.ask(atspi::RoleOf(object)), batch.ask(atspi::StatesOf(object))});
            }
        }
    }
    finish(batch);
    for (const auto& [busName, found] : frames) {
        Answer& answer = answers[busName];
        answer.isComplete = true;
        for (const Frame& frame : found) {
            const atspi::States states = frame.states.read().valueOr(0);
            if (frame.role.read().valueOr(0) == atspi::kRoleFrame &&
                atspi::Has(states, atspi::State::showing)) {
                answer.frames.push_back(frame.path);
                answer.isActive |= atspi::Has(states, atspi::State::active);
            }
            answer.isComplete &= frame.role.arrived() && frame.states.arrived();
        }
    }
}

// Frames without a title are menus and bubbles. A title may come late, so they are asked again while nothing
// else is there.
void AtspiSurvey::learnTitles(Answers& answers, Deadline deadline) {
    std::map<std::string, std::map<std::string, Batch::Answer<std::string>>> asked;
    Batch batch(session_.connection, deadline);
    for (const auto& [busName, answer] : answers) {
        const auto& known = records_[busName].frames;
        const bool hasWindow =
            std::any_of(answer.frames.begin(), answer.frames.end(), [&](const std::string& path) {
                const auto frame = known.find(path);
                return frame != known.end() && frame->second;
            });
        for (const std::string& path : answer.frames) {
            if (!known.contains(path) || !hasWindow) {
                asked[busName][path] = batch.ask(atspi::NameOf({busName, path}));
            }
        }
    }
    finish(batch);
    for (const auto& [busName, answer] : answers) {
        AtspiApplicationRecord& record = records_[busName];
        std::map<std::string, bool> frames;
        bool isComplete = answer.isComplete;
        for (const std::string& path : answer.frames) {
            const auto question = asked[busName].find(path);
            if (question == asked[busName].end()) {
                frames[path] = record.frames[path];
            } else {
                frames[path] = !question->second.read().valueOr("").empty();
                isComplete &= question->second.arrived();
            }
        }
        if (isComplete) {
            record.frames = std::move(frames);
            record.lastActive = answer.isActive ? number_ : record.lastActive;
        }
    }
}

bool AtspiSurvey::canBeAsked(const std::string& busName) const {
    return !session_.silent->isSilent(busName);
}

// Waits, and remembers who does not answer.
void AtspiSurvey::finish(Batch& batch) const {
    batch.wait();
    for (const std::string& busName : batch.silent()) {
        if (const auto record = records_.find(busName); record != records_.end()) {
            session_.silent->note(busName, record->second.pid);
        }
    }
}

}  // namespace useragent
