#include "AtspiFixture.h"

#include <mutex>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/AtspiElement.h"
#include "accessibility/EarlyLooks.h"
#include "useragent/FindURLElement.h"

using useragent::AtspiElement;
using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXValue;

struct FakeScreen::State {
    std::mutex mutex;  // guards what follows
    useragent::OnScreen windows;
    useragent::ScreenEvents told;
    int timesAsked = 0;
};

std::shared_ptr<FakeScreen::State> FakeScreen::MakeState() {
    return std::make_shared<State>();
}

useragent::Screen FakeScreen::port() {
    return {[state = state_](std::int32_t) {
                const std::lock_guard lock(state->mutex);
                ++state->timesAsked;
                return state->windows;
            },
            {},
            [state = state_](useragent::ScreenEvents told) {
                const std::lock_guard lock(state->mutex);
                state->told = std::move(told);
            }};
}

void FakeScreen::show(const std::vector<std::string>& titles, bool isInFront) {
    std::function<void()> changed;
    {
        const std::lock_guard lock(state_->mutex);
        state_->windows = {titles, isInFront};
        changed = state_->told.changed;
    }
    changed();
}

void FakeScreen::retitle() {
    std::function<void()> retitled;
    {
        const std::lock_guard lock(state_->mutex);
        retitled = state_->told.retitled;
    }
    retitled();
}

int FakeScreen::timesAsked() const {
    const std::lock_guard lock(state_->mutex);
    return state_->timesAsked;
}

AtspiFixture::AtspiFixture(std::chrono::milliseconds callDeadline, const std::function<void()>& beginCycle,
                           std::optional<useragent::Screen> given)
    : accessibility(std::make_shared<useragent::AtspiAccessibility>(
          dispatch,
          useragent::AtspiSettings{desktop.sessionBus.address(),
                                   {},
                                   callDeadline,
                                   given ? std::move(*given) : screen.port(),
                                   std::make_shared<useragent::EarlyLooks>(dispatch->loop(), beginCycle)})) {}

AtspiFixture::~AtspiFixture() {
    accessibility.reset();
    dispatch->stop();
}

std::optional<std::string> AtspiFixture::text(const AXElementRef& element, const std::string& attribute) {
    AXValue value;
    error = accessibility->copyAttributeValue(element, attribute, value);
    const auto* const string = std::get_if<useragent::AXStringRef>(&value);
    if (error != AXError::success || string == nullptr) {
        return std::nullopt;
    }
    return (*string)->directUTF8();
}

std::optional<std::vector<AXElementRef>> AtspiFixture::children(const AXElementRef& element) {
    AXValue value;
    error = accessibility->copyAttributeValue(element, useragent::kChildrenAttribute, value);
    const auto* const array = std::get_if<std::vector<AXValue>>(&value);
    if (error != AXError::success || array == nullptr) {
        return std::nullopt;
    }
    std::vector<AXElementRef> elements;
    for (const AXValue& entry : *array) {
        elements.push_back(std::get<AXElementRef>(entry));
    }
    return elements;
}

AXElementRef AtspiFixture::mainWindow(std::int32_t pid) {
    look({pid});
    AXValue value;
    error = accessibility->copyAttributeValue(accessibility->createApplication(pid),
                                              useragent::kMainWindowAttribute, value);
    const auto* const window = std::get_if<AXElementRef>(&value);
    return error == AXError::success && window != nullptr ? *window : nullptr;
}

AXElementRef AtspiFixture::foundField(std::int32_t pid) {
    const AXElementRef window = mainWindow(pid);
    return window ? useragent::FindURLElement(*accessibility, window, 0) : nullptr;
}

AXElementRef AtspiFixture::addressField(std::int32_t pid) {
    const auto field = std::static_pointer_cast<const AtspiElement>(foundField(pid));
    return field ? std::make_shared<AtspiElement>(pid, field->session, field->object) : nullptr;
}

AXElementRef AtspiFixture::object(const std::string& busName, const std::string& path, std::int32_t pid) {
    const auto bus = accessibility->bus().lock();
    return std::make_shared<AtspiElement>(pid, bus->session(bus->deadline()),
                                          useragent::atspi::ObjectRef{busName, path});
}

void AtspiFixture::look(const std::vector<std::int32_t>& pids) {
    std::vector<useragent::WindowInfo> browsers;
    for (const std::int32_t pid : pids) {
        browsers.emplace_back().ownerPid = pid;
    }
    accessibility->prepare(browsers);
}

std::chrono::milliseconds AtspiFixture::timeOf(const std::function<void()>& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

useragent::AXObserverCallback Notifications::callback() {
    return [this](const AXElementRef& element, const std::string& name) {
        entries.push_back({element, name});
    };
}
