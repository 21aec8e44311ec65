#include "useragent/PreparedWindows.h"

#include <fmt/format.h>

#include <array>
#include <utility>
#include <vector>

#include "common/ScopedAction.h"
#include "common/log.h"
#include "useragent/FindURLElement.h"

namespace useragent {
namespace {

// All that the watcher and its search ask of a field.
constexpr std::array kFieldAttributes{
    kRoleAttribute,          kDescriptionAttribute,      kIdentifierAttribute,
    kDOMIdentifierAttribute, kPlaceholderValueAttribute, kValueAttribute};

}  // namespace

PreparedWindows::PreparedWindows(std::shared_ptr<cmn::Dispatch> dispatch,
                                 std::shared_ptr<AccessibilityReader> reader, MonotonicClock now,
                                 std::chrono::nanoseconds searchBudget)
    : dispatch_(std::move(dispatch)),
      reader_(std::move(reader)),
      now_(std::move(now)),
      searchBudget_(searchBudget) {}

void PreparedWindows::announce(std::int32_t pid, const AXElementRef& application,
                               std::function<void()> tell) {
    std::uint64_t announcement = 0;
    {
        const std::lock_guard lock(mutex_);
        announcement = latest_[pid] = ++announcements_;
    }
    dispatch_->async(cmn::QueuePriority::high, [weak = weak_from_this(), pid, application, announcement,
                                                tell = std::move(tell)] {
        const auto self = weak.lock();
        if (!self || !self->isLatest(pid, announcement)) {
            return;
        }
        self->dispatch_->asyncMain([weak, window = self->examine(pid, application), announcement, tell] {
            if (const auto alive = weak.lock()) {
                alive->show(window, announcement, tell);
            }
        });
    });
}

bool PreparedWindows::isLatest(std::int32_t pid, std::uint64_t announcement) const {
    const std::lock_guard lock(mutex_);
    const auto latest = latest_.find(pid);
    return latest != latest_.end() && latest->second == announcement;
}

PreparedWindows::Window PreparedWindows::examine(std::int32_t pid, const AXElementRef& application) const {
    Window found;
    found.pid = pid;
    found.mainWindow.error =
        reader_->copyAttributeValue(application, kMainWindowAttribute, found.mainWindow.value);
    const auto* const window = std::get_if<AXElementRef>(&found.mainWindow.value);
    if (found.mainWindow.error != AXError::success || window == nullptr || !*window) {
        return found;
    }
    found.window = *window;
    SearchReader search(*reader_, now_, searchBudget_);
    found.field = FindURLElement(search, found.window, 0);
    if (search.expired()) {
        TLOG_WARN("The search for the URL field of {} took too long and was ended",
                  fmt::format("the process {}", pid));
    }
    if (found.field) {
        for (const char* const attribute : kFieldAttributes) {
            Answer& answer = found.ofField[attribute];
            answer.error = reader_->copyAttributeValue(found.field, attribute, answer.value);
        }
    }
    return found;
}

// Main thread.
void PreparedWindows::show(Window window, std::uint64_t announcement, const std::function<void()>& tell) {
    const std::int32_t pid = window.pid;
    if (!isLatest(pid, announcement)) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        latest_.erase(pid);
        shown_ = std::move(window);
    }
    const cmn::ScopedAction shown([this] {
        const std::lock_guard lock(mutex_);
        shown_.reset();
    });
    tell();
}

std::optional<AXError> PreparedWindows::read(std::int32_t pid, const AXElementRef& element,
                                             const std::string& attribute, AXValue& value) const {
    const std::lock_guard lock(mutex_);
    if (!shown_ || shown_->pid != pid) {
        return std::nullopt;
    }
    if (attribute == kMainWindowAttribute) {
        value = shown_->mainWindow.value;
        return shown_->mainWindow.error;
    }
    if (attribute == kChildrenAttribute && shown_->window && element == shown_->window) {
        value = shown_->field ? std::vector<AXValue>{shown_->field} : std::vector<AXValue>();
        return AXError::success;
    }
    const auto answer = shown_->ofField.find(attribute);
    if (!shown_->field || element != shown_->field || answer == shown_->ofField.end()) {
        return std::nullopt;
    }
    value = answer->second.value;
    return answer->second.error;
}

}  // namespace useragent
