#include "useragent/ObservedBrowsers.h"

#include <algorithm>
#include <utility>

#include "AXText.h"

namespace useragent {

void ObservedBrowsers::observe(std::int32_t pid, const AXElementRef& element, const std::string& notification,
                               Tell tell) {
    const std::lock_guard lock(mutex_);
    Browser& browser = browsers_[pid];
    if (notification == kValueChangedNotification) {
        browser.field = {element, std::move(tell)};
        browser.text.reset();
    } else {
        browser.application = {element, std::move(tell)};
    }
}

void ObservedBrowsers::note(std::int32_t pid, const std::string& attribute, const AXValue& value) {
    const std::lock_guard lock(mutex_);
    if (const auto text = AsString(value); text && attribute == kValueAttribute) {
        browsers_[pid].text = TextOf(*text);
    }
    if (const auto* const window = std::get_if<AXElementRef>(&value);
        window != nullptr && attribute == kMainWindowAttribute) {
        browsers_[pid].mainWindow = *window;
    }
}

AXError ObservedBrowsers::look(std::int32_t pid, const AXElementRef& application,
                               AccessibilityReader& reader) {
    Browser known;
    {
        const std::lock_guard lock(mutex_);
        known = browsers_[pid];
    }
    AXValue window;
    const AXError answer = reader.copyAttributeValue(application, kMainWindowAttribute, window);
    if (answer == AXError::cannotComplete || !known.application.tell || !known.field.tell) {
        return answer;
    }
    const auto* const mainWindow = std::get_if<AXElementRef>(&window);
    AXValue value;
    const AXError error = reader.copyAttributeValue(known.field.element, kValueAttribute, value);
    if (error == AXError::invalidUIElement ||
        (answer == AXError::success && mainWindow != nullptr && !isSame_(*mainWindow, known.mainWindow))) {
        known.application.tell(known.application.element, kMainWindowChangedNotification);
    } else if (const auto text = AsString(value);
               error == AXError::success && text && TextOf(*text) != known.text) {
        known.field.tell(known.field.element, kValueChangedNotification);
    }
    return answer;
}

void ObservedBrowsers::keepOnly(const std::vector<std::int32_t>& pids) {
    const std::lock_guard lock(mutex_);
    std::erase_if(browsers_, [&](const auto& browser) {
        return std::find(pids.begin(), pids.end(), browser.first) == pids.end();
    });
}

}  // namespace useragent
