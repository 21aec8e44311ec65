#include "AtspiFixture.h"

#include "useragent/FindURLElement.h"

using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXValue;

AtspiFixture::AtspiFixture(std::chrono::milliseconds callDeadline)
    : accessibility(std::make_shared<useragent::AtspiAccessibility>(
          dispatch, useragent::AtspiSettings{desktop.sessionBus.address(), {}, callDeadline})) {}

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
    AXValue value;
    error = accessibility->copyAttributeValue(accessibility->createApplication(pid),
                                              useragent::kMainWindowAttribute, value);
    const auto* const window = std::get_if<AXElementRef>(&value);
    return error == AXError::success && window != nullptr ? *window : nullptr;
}

AXElementRef AtspiFixture::addressField(std::int32_t pid) {
    const AXElementRef window = mainWindow(pid);
    return window ? useragent::FindURLElement(*accessibility, window, 0) : nullptr;
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
