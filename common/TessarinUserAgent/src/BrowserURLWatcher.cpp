#include "useragent/BrowserURLWatcher.h"

#include <algorithm>
#include <chrono>
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

// Of setting up a context whose main window changes meanwhile; then it is left to the next cycle.
constexpr int kMostAttempts = 3;

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
    Contexts ended;
    {
        const std::lock_guard lock(mutex_);
        ended.swap(contexts_);
    }
    ended.clear();
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
    if (found == contexts_.end() || !found->second->isSetUp) {
        TLOG_DEBUG("getUrl for browser: '{}' -- failed.", cmn::EscapeControls(browser));
        return {};
    }
    return found->second->url;
}

std::vector<BrowserURLWatcher::Watched> BrowserURLWatcher::watched() const {
    std::vector<Watched> all;
    const std::lock_guard lock(mutex_);
    for (const auto& [name, context] : contexts_) {
        all.push_back({name, context->pid, std::nullopt, context->url});
        if (context->isSetUp) {
            all.back().readSince = context->setUpAt;
        }
    }
    return all;
}

void BrowserURLWatcher::watchBrowserProcess() {
    while (running_) {
        // Also on early exits: a cycle that failed must not turn into a busy loop.
        const cmn::ScopedAction pause([this] { ports_.pause->wait(kPollingPause); });
        try {
            bool isWatching = true;
            ports_.accessibility->runCycle([&] { isWatching = pollOnce(); });
            if (!isWatching) {
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
        if (lastFound_) {
            ports_.accessibility->prepare(*lastFound_);
        }
        return true;
    }
    std::map<std::string, WindowInfo> frontMost;
    for (const WindowInfo& window : *windows) {
        frontMost.emplace(window.ownerName.value_or(std::string()), window);
    }
    BrowserProcesses running;
    BrowserProcesses closed;
    std::vector<WindowInfo> observed;
    for (const auto& [name, pid] : browsers_) {
        const auto found = frontMost.find(name);
        if (found == frontMost.end()) {
            closed.emplace(name, pid);
        } else {
            running.emplace(name, found->second.ownerPid);
            observed.push_back(std::move(found->second));
        }
    }
    ports_.accessibility->prepare(observed);
    for (WindowInfo& window : observed) {
        window.title.reset();  // until then another window may be in front
    }
    lastFound_ = std::move(observed);
    if (running_) {
        handleBrowserProcesses(running, closed);
    }
    return running_;
}

void BrowserURLWatcher::handleBrowserProcesses(const BrowserProcesses& running,
                                               const BrowserProcesses& closed) {
    Contexts ended;
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [name, pid] : closed) {
            ended.insert(contexts_.extract(name));
        }
    }
    ended.clear();
    for (const auto& [name, pid] : running) {
        Context context = beginContext(name, pid);
        if (!context) {
            continue;
        }
        TLOG_INFO("Init context for -- {}", name);
        // Not kept here: one that is replaced meanwhile would go on to observe the window that was left.
        if (setUp(std::move(context))) {
            TLOG_INFO("Found URL element for -- {}", name);
            TLOG_INFO("Current URL -- {}", cmn::EscapeControls(getURL(name)));
        }
    }
}

// Null when that process is watched already, or nothing is watched any more.
BrowserURLWatcher::Context BrowserURLWatcher::beginContext(const std::string& name, std::int32_t pid) {
    Context before;  // ends without the mutex
    const std::lock_guard lock(mutex_);
    const auto found = contexts_.find(name);
    if (!running_ || (found != contexts_.end() && found->second->pid == pid)) {
        return nullptr;
    }
    if (found != contexts_.end()) {
        before = std::move(found->second);
    }
    return contexts_[name] = std::make_shared<BrowserURLWatcherContext>(name, pid);
}

bool BrowserURLWatcher::setUp(Context context) {
    // Also when an exception ends it: half a context would be taken for a whole one.
    cmn::ScopedAction drop([&] {
        const std::lock_guard lock(mutex_);
        if (isCurrent(context)) {
            contexts_.erase(context->name);
        }
    });
    AXElementRef changed;
    std::uint64_t change = 0;
    for (int attempt = 1;; ++attempt) {
        const bool isGood = initContext(context);
        Context next;
        bool isDone = false;
        {
            const std::lock_guard lock(mutex_);
            if (!isCurrent(context)) {
                return false;
            }
            if (context->isOutdated && attempt < kMostAttempts) {
                next = contexts_[context->name] =
                    std::make_shared<BrowserURLWatcherContext>(context->name, context->pid);
            } else if (isGood && !context->isOutdated) {
                isDone = context->isSetUp = true;
                context->setUpAt = ports_.now();
                changed = std::move(context->changedField);
                change = ++context->changes;  // before any notification that is served from now on
            }
        }
        if (isDone) {
            break;
        }
        if (!next) {
            if (isGood) {
                // What was read is not kept: nobody would tell that change again.
                TLOG_DEBUG("The main window of {} changed in each attempt to set it up", context->name);
            }
            return false;
        }
        context = std::move(next);
    }
    drop.disarm();
    if (changed) {
        updateURL(changed, context, change);
    }
    return true;
}

bool BrowserURLWatcher::initContext(const Context& context) {
    const std::int32_t pid = context->pid;
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
            context->mainWindowChangedObserver)) {
        TLOG_ERROR("Subscribe kAXMainWindowChangedNotification -- failed");
        return false;
    }
    const auto* window = std::get_if<AXElementRef>(&mainWindow);
    const auto now = [this] {
        return running_ ? ports_.now() : std::chrono::steady_clock::time_point::max();
    };
    SearchReader search(accessibility, now, accessibility.searchDeadline());
    const AXElementRef field = window && *window ? FindURLElement(search, *window, 0) : nullptr;
    if (!running_) {
        return false;
    }
    if (search.expired()) {
        TLOG_WARN("The search for the URL field of {} took too long and was ended", context->name);
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
            context->valueChangedObserver)) {
        TLOG_ERROR("Subscribe kAXValueChangedNotification -- failed");
        return false;
    }
    std::uint64_t change = 0;
    {
        const std::lock_guard lock(mutex_);
        change = ++context->changes;
    }
    updateURL(field, context, change);
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

BrowserURLWatcher::Context BrowserURLWatcher::findContext(std::int32_t pid) const {
    const auto found = std::find_if(contexts_.begin(), contexts_.end(),
                                    [pid](const auto& entry) { return entry.second->pid == pid; });
    return found != contexts_.end() ? found->second : nullptr;
}

bool BrowserURLWatcher::isCurrent(const Context& context) const {
    const auto found = contexts_.find(context->name);
    return found != contexts_.end() && found->second == context;
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
    Context context;
    std::uint64_t change = 0;
    {
        const std::lock_guard lock(mutex_);
        context = findContext(*pid);
        if (!context) {
            return;
        }
        if (!context->isSetUp) {
            context->changedField = element;
            return;
        }
        change = ++context->changes;
    }
    updateURL(element, context, change);
}

void BrowserURLWatcher::handleMainWindowChanged(const AXElementRef& element) {
    const std::optional<std::int32_t> pid = PidOf(*ports_.accessibility, element);
    if (!pid) {
        return;
    }
    Context context;
    {
        Context before;  // ends without the mutex
        const std::lock_guard lock(mutex_);
        before = findContext(*pid);
        if (!before) {
            return;
        }
        if (!before->isSetUp) {
            before->isOutdated = true;
            return;
        }
        context = contexts_[before->name] = std::make_shared<BrowserURLWatcherContext>(before->name, *pid);
    }
    setUp(std::move(context));
}

void BrowserURLWatcher::updateURL(const AXElementRef& field, const Context& context, std::uint64_t change) {
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
    const std::lock_guard lock(mutex_);
    // What was told later may have been read faster.
    if (isCurrent(context) && context->stored < change) {
        context->stored = change;
        storeURL(*text, *context);
    }
}

void BrowserURLWatcher::storeURL(const AXString& text, BrowserURLWatcherContext& context) {
    if (const char* direct = text.directUTF8()) {
        context.url = direct;
    } else {
        // Deliberately the URL stored so far: the line is written before the conversion.
        TLOG_DEBUG("URL changed for {} -- {}", context.name, cmn::EscapeControls(context.url));
        const std::size_t maximum = text.maximumUTF8Size();
        std::vector<char> buffer(maximum + 1);
        if (text.copyUTF8(buffer.data(), maximum)) {
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
