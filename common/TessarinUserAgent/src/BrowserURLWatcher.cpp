#include "useragent/BrowserURLWatcher.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <optional>
#include <utility>

#include "AXText.h"
#include "common/ScopedAction.h"
#include "common/log.h"
#include "common/threads.h"
#include "common/utf8.h"
#include "useragent/Deadlines.h"
#include "useragent/FindURLElement.h"
#include "xpccommon/UserAgentXPCClient.h"

namespace useragent {
namespace {

// The process that the element of a notification belongs to.
std::optional<std::int32_t> PidOf(Accessibility& accessibility, const AXElementRef& element) {
    std::int32_t pid = 0;
    const AXError error = accessibility.getPid(element, pid);
    if (error != AXError::success) {
        TLOG_ERROR("AXUIElementGetPid -- failed: {}", error);
        return std::nullopt;
    }
    return pid;
}

}  // namespace

BrowserURLWatcherContext::~BrowserURLWatcherContext() {
    pid = 0;
    for (auto* observer : {&mainWindowChangedObserver, &valueChangedObserver}) {
        if (*observer) {
            (*observer)->removeFromMainRunLoop();
            observer->reset();
        }
    }
}

BrowserURLWatcher::BrowserURLWatcher(std::vector<std::string> browsers, WatcherPorts ports)
    : ports_(std::move(ports)) {
    for (std::string& name : browsers) {
        browsers_.emplace(std::move(name), 0);
    }
    pollingTask_ =
        cmn::MakeThread([this] { return std::async(std::launch::async, [this] { watchBrowserProcess(); }); });
}

BrowserURLWatcher::~BrowserURLWatcher() {
    stop();
}

void BrowserURLWatcher::stop() {
    if (!pollingTask_.valid()) {
        return;
    }
    // First, so that no cycle makes contexts after they were cleared, and a search ends early.
    running_ = false;
    ports_.pause->signal();
    {
        const std::lock_guard lock(mutex_);
        contexts_.clear();
    }
    pollingTask_.wait();
    pollingTask_ = {};
}

void BrowserURLWatcher::setXPCClient(std::weak_ptr<cmn::UserAgentXPCClient> client) {
    client_ = std::move(client);
    clientSet_ = true;
}

std::string BrowserURLWatcher::getURL(const std::string& browser) {
    const std::lock_guard lock(mutex_);
    const auto found = contexts_.find(browser);
    if (found == contexts_.end()) {
        TLOG_DEBUG("getUrl for browser: '{}' -- failed.", cmn::EscapeControls(browser));
        return {};
    }
    return found->second.url;
}

void BrowserURLWatcher::watchBrowserProcess() {
    while (running_) {
        // Also on early exits: a cycle that failed must not turn into a busy loop.
        const cmn::ScopedAction pause([this] { ports_.pause->wait(kPollingPause); });
        try {
            if (!pollOnce()) {
                break;
            }
        } catch (const std::exception& error) {
            // Out of memory or threads, say: the next cycle tries again.
            TLOG_ERROR("A look at the browsers failed: {}", error.what());
        }
    }
}

bool BrowserURLWatcher::pollOnce() {
    const auto windows = ports_.windowList->copyOnScreenWindows();
    if (!windows) {
        TLOG_WARN("CGWindowListCopyWindowInfo -- failed.");
        return true;
    }
    BrowserProcesses owners;
    for (const WindowInfo& window : *windows) {
        owners.emplace(window.ownerName.value_or(std::string()), window.ownerPid);
    }
    const auto byName = [](const auto& left, const auto& right) { return left.first < right.first; };
    BrowserProcesses running;
    std::set_intersection(owners.begin(), owners.end(), browsers_.begin(), browsers_.end(),
                          std::inserter(running, running.end()), byName);
    BrowserProcesses closed;
    std::set_difference(browsers_.begin(), browsers_.end(), running.begin(), running.end(),
                        std::inserter(closed, closed.end()), byName);

    std::vector<std::int32_t> pids;
    std::transform(running.begin(), running.end(), std::back_inserter(pids),
                   [](const auto& browser) { return browser.second; });
    ports_.accessibility->prepare(pids);

    const std::lock_guard lock(mutex_);
    if (!running_) {
        return false;
    }
    handleBrowserProcesses(running, closed);
    return true;
}

void BrowserURLWatcher::handleBrowserProcesses(const BrowserProcesses& running,
                                               const BrowserProcesses& closed) {
    for (const auto& [name, pid] : closed) {
        contexts_.erase(name);
    }
    for (const auto& [name, pid] : running) {
        const auto existing = contexts_.find(name);
        if (existing != contexts_.end()) {
            if (existing->second.pid == pid) {
                continue;
            }
            contexts_.erase(existing);
        }
        TLOG_INFO("Init context for -- {}", name);
        if (addContext(name, pid)) {
            TLOG_INFO("Found URL element for -- {}", name);
            TLOG_INFO("Current URL -- {}", cmn::EscapeControls(contexts_[name].url));
        }
    }
}

bool BrowserURLWatcher::addContext(const std::string& name, std::int32_t pid) {
    BrowserURLWatcherContext& context = contexts_[name];
    context.name = name;
    // Also when an exception ends it: half a context would be taken for a whole one.
    cmn::ScopedAction drop([&] { contexts_.erase(name); });
    if (!initContext(pid, context)) {
        return false;
    }
    drop.disarm();
    return true;
}

bool BrowserURLWatcher::initContext(std::int32_t pid, BrowserURLWatcherContext& context) {
    context.pid = pid;
    Accessibility& accessibility = *ports_.accessibility;
    const AXElementRef application = accessibility.createApplication(pid);
    if (!application) {
        TLOG_ERROR("AXUIElementCreateApplication -- failed");
        return false;
    }
    AXValue mainWindow;
    const AXError error = accessibility.copyAttributeValue(application, kMainWindowAttribute, mainWindow);
    if (error != AXError::success) {
        TLOG_ERROR("Get kAXMainWindowAttribute -- failed: {}", error);
        return false;
    }
    if (!subscribe(
            pid, application, kMainWindowChangedNotification,
            [this](const AXElementRef& element, const std::string&) {
                handleNoThrow(&BrowserURLWatcher::handleMainWindowChanged, element);
            },
            context.mainWindowChangedObserver)) {
        TLOG_ERROR("Subscribe kAXMainWindowChangedNotification -- failed");
        return false;
    }
    const auto* window = std::get_if<AXElementRef>(&mainWindow);
    const auto now = [this] {
        return running_ ? ports_.now() : std::chrono::steady_clock::time_point::max();
    };
    DeadlineReader search(accessibility, now, kURLFieldSearchDeadline);
    const AXElementRef field = window && *window ? FindURLElement(search, *window, 0) : nullptr;
    if (!running_) {
        return false;
    }
    if (search.expired()) {
        TLOG_WARN("The search for the URL field of {} took too long and was ended", context.name);
    }
    if (!field) {
        TLOG_ERROR("URL Element not found");
        return false;
    }
    if (!subscribe(
            pid, field, kValueChangedNotification,
            [this](const AXElementRef& element, const std::string&) {
                handleNoThrow(&BrowserURLWatcher::handleValueChanged, element);
            },
            context.valueChangedObserver)) {
        TLOG_ERROR("Subscribe kAXValueChangedNotification -- failed");
        return false;
    }
    updateURL(field, context);
    return true;
}

bool BrowserURLWatcher::subscribe(std::int32_t pid, const AXElementRef& element,
                                  const std::string& notification, AXObserverCallback callback,
                                  std::unique_ptr<AXObserver>& observer) {
    AXError error = ports_.accessibility->createObserver(pid, std::move(callback), observer);
    if (error != AXError::success) {
        TLOG_ERROR("AXObserverCreateWithInfoCallback -- failed: {}", error);
        return false;
    }
    error = observer->addNotification(element, notification);
    if (error != AXError::success) {
        TLOG_ERROR("AXObserverAddNotification -- failed: {}", error);
        return false;
    }
    observer->addToMainRunLoop();
    return true;
}

BrowserURLWatcher::Contexts::iterator BrowserURLWatcher::findContext(std::int32_t pid) {
    return std::find_if(contexts_.begin(), contexts_.end(),
                        [pid](const auto& entry) { return entry.second.pid == pid; });
}

void BrowserURLWatcher::handleNoThrow(Handler handler, const AXElementRef& element) noexcept {
    try {
        (this->*handler)(element);
    } catch (const std::exception& error) {
        TLOG_ERROR("A notification of a browser could not be handled: {}", error.what());
    }
}

void BrowserURLWatcher::handleValueChanged(const AXElementRef& element) {
    const std::optional<std::int32_t> pid = PidOf(*ports_.accessibility, element);
    if (!pid) {
        return;
    }
    const std::lock_guard lock(mutex_);
    const auto found = findContext(*pid);
    if (found != contexts_.end()) {
        updateURL(element, found->second);
    }
}

void BrowserURLWatcher::handleMainWindowChanged(const AXElementRef& element) {
    const std::optional<std::int32_t> pid = PidOf(*ports_.accessibility, element);
    if (!pid) {
        return;
    }
    const std::lock_guard lock(mutex_);
    const auto found = findContext(*pid);
    if (found == contexts_.end()) {
        return;
    }
    const std::string name = found->second.name;
    contexts_.erase(found);
    addContext(name, *pid);
}

void BrowserURLWatcher::updateURL(const AXElementRef& field, BrowserURLWatcherContext& context) {
    AXValue value;
    AXError error = ports_.accessibility->copyAttributeValue(field, kValueAttribute, value);
    const AXStringRef text = AsString(value);
    if (error == AXError::success && !text) {
        error = AXError::noValue;
    }
    if (error != AXError::success) {
        TLOG_DEBUG("AXUIElementCopyAttributeValue -- failed: {}", error);
        return;
    }
    if (const char* direct = text->directUTF8()) {
        context.url = direct;
    } else {
        // Deliberately the URL stored so far: the line is written before the conversion.
        TLOG_DEBUG("URL changed for {} -- {}", context.name, cmn::EscapeControls(context.url));
        const std::size_t maximum = text->maximumUTF8Size();
        std::vector<char> buffer(maximum + 1);
        if (text->copyUTF8(buffer.data(), maximum)) {
            context.url = buffer.data();
        }
    }
    if (context.url.empty()) {
        return;
    }
    TLOG_DEBUG("URL changed for {} {} {}", context.name, cmn::EscapeControls(context.url), context.pid);
    if (!clientSet_) {
        return;
    }
    if (const auto client = client_.lock()) {
        // Only queues the message, so it is safe with the mutex held.
        client->sendURL(context.url, context.name, context.pid);
    }
}

std::shared_ptr<BrowserURLWatcher> CreateBrowserURLWatcher(std::vector<std::string> browsers,
                                                           WatcherPorts ports) {
    return std::make_shared<BrowserURLWatcher>(std::move(browsers), std::move(ports));
}

void RequestAccesibilityPermission(Accessibility& accessibility) {
    if (accessibility.isProcessTrustedWithPrompt()) {
        TLOG_DEBUG("AXIsProcessTrustedWithOptions return true");
    } else {
        TLOG_ERROR("AXIsProcessTrustedWithOptions return false, UserAgent not trusted");
    }
}

}  // namespace useragent
