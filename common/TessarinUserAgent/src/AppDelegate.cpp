#include "useragent/AppDelegate.h"

#include <exception>
#include <iterator>
#include <utility>

#include "common/SystemUtils.h"
#include "common/log.h"
#include "common/utf8.h"
#include "useragent/PropertiesURL.h"
#include "usercommon/Answer.h"

namespace useragent {

namespace {

constexpr std::chrono::seconds kMenuUpdateInterval{300};
constexpr std::chrono::nanoseconds kEncryptionDeadline{100'000'000};

FilterRecords ToFilterRecords(std::vector<cmn::ScanRecord> records) {
    return {std::make_move_iterator(records.begin()), std::make_move_iterator(records.end())};
}

}  // namespace

// Tells who asked when the last request of it is gone, whatever became of that.
struct AppDelegate::Asked {
    explicit Asked(Opened opened) : done(std::move(opened)) {}
    ~Asked() { tell(dropped + notOpened); }
    Asked(const Asked&) = delete;
    Asked& operator=(const Asked&) = delete;

    void tell(std::size_t count) {
        if (done) {
            std::exchange(done, nullptr)(count);
        }
    }

    Opened done;
    std::size_t dropped = 0;
    std::size_t notOpened = 0;  // of the others
};

AppDelegate::AppDelegate(Environment environment) : environment_(std::move(environment)) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
    xpcClient_ = std::make_shared<cmn::FinderExtensionXPCClient>(environment_.dispatch,
                                                                 environment_.transport, serviceOwners());
    xpcClient_->connect();
    statusItem_ = environment_.interface->createStatusItem(whileAlive(&AppDelegate::menuNeedsUpdate));
    statusItem_->setImage(StatusImage::menuIcon);
    statusItem_->setMenu(appMenu()->items());
    environment_.dispatch->asyncMain(whileAlive(&AppDelegate::updateMenu));
    openNextLater();
    environment_.interface->scheduleRepeatingTimer(kMenuUpdateInterval, whileAlive(&AppDelegate::updateMenu));
}

cmn::ServiceOwners AppDelegate::serviceOwners() const {
    try {
        return cmn::OwnersOf(environment_.properties.settings());
    } catch (const std::exception& e) {
        TLOG_WARN("The settings cannot be read: {}", e.what());
        return cmn::OwnersOf({});
    }
}

std::function<void()> AppDelegate::whileAlive(void (AppDelegate::*action)()) {
    return [weakSelf = weak_from_this(), action] {
        if (const auto self = weakSelf.lock()) {
            (self.get()->*action)();
        }
    };
}

void AppDelegate::updateMenu() {
    const std::optional<bool> answer = xpcClient_->fullDiskAccess();
    const bool granted = answer.value_or(false);
    statusItem_->setImage(ImageOf(answer));
    appMenu()->updateMenu(granted);
    statusItem_->setMenu(appMenu()->items());
    if (granted) {
        checkAgentIconPermission();
    } else {
        // What is missing is shown even to those who switched the icon off.
        statusItem_->setVisible(true);
    }
    environment_.notices->review(answer);
}

void AppDelegate::checkAgentIconPermission() {
    const auto statuses = xpcClient_->getUIVisibilityStatuses();
    const auto disabled = statuses.find(cmn::kAgentIconDisableKey);
    statusItem_->setVisible(disabled == statuses.end() || !disabled->second);
}

void AppDelegate::openURLs(const std::vector<std::string>& urls, std::string activationToken, Opened done) {
    const auto asked = std::make_shared<Asked>(std::move(done));
    for (const std::string& url : urls) {
        auto request = ParsePropertiesURL(url);
        if (request && waiting_.size() >= kMostWaiting) {
            ++asked->dropped;
        } else if (request) {
            ++asked->notOpened;
            waiting_.push_back({std::move(request->path), std::exchange(activationToken, {}), asked});
        }
    }
    if (asked->dropped != 0) {
        TLOG_ERROR("{} requests to show a file's properties are dropped: {} are waiting", asked->dropped,
                   waiting_.size());
    }
    openNextLater();
    onMainAfter(kMostPatience, [weakAsked = std::weak_ptr(asked)] {
        if (const auto waiting = weakAsked.lock()) {
            waiting->tell(waiting->dropped);
        }
    });
}

void AppDelegate::onMainAfter(std::chrono::milliseconds delay, std::function<void()> task) const {
    environment_.dispatch->after(
        delay, cmn::QueuePriority::high,
        [queues = environment_.dispatch, task = std::move(task)] { queues->asyncMain(task); });
}

void AppDelegate::openNextLater() {
    if (xpcClient_ && !waiting_.empty() && !std::exchange(willOpenNext_, true)) {
        environment_.dispatch->asyncMain(whileAlive(&AppDelegate::openNext));
    }
}

bool AppDelegate::applicationWillEnd(std::function<void()> seen) {
    const auto refused = std::exchange(waiting_, {});  // whoever asked is told at the end of this
    allSeen_ = std::move(seen);
    return notSeen_.empty();
}

void AppDelegate::wasSeen(int window) {
    if (notSeen_.erase(window) != 0 && notSeen_.empty() && allSeen_) {
        std::exchange(allSeen_, nullptr)();
    }
}

// One of them only: each may wait for the service, and the menu is served between two.
void AppDelegate::openNext() {
    willOpenNext_ = false;
    if (waiting_.empty()) {
        return;
    }
    const Request request = std::move(waiting_.front());
    waiting_.pop_front();
    openNextLater();
    try {
        if (showFileFilters(request.path, request.activationToken)) {
            --request.asked->notOpened;
        }
    } catch (const std::exception& e) {
        TLOG_ERROR("A request to open something failed: {}", e.what());
    }
}

bool AppDelegate::showFileFilters(const std::optional<std::string>& path,
                                  const std::string& activationToken) {
    const int number = ++lastWindow_;
    auto window = environment_.interface->createPropertiesWindow([weakSelf = weak_from_this(), number] {
        if (const auto self = weakSelf.lock()) {
            self->windowWillClose(number);
        }
    });
    if (!window) {
        cmn::SystemLog("Error: Could not load FileFiltersViewController from storyboard.");
        return false;
    }
    auto controller = std::make_unique<FileFiltersViewController>(environment_.properties);
    const std::string asked = path.value_or(std::string());
    controller->setFileName(path);
    // Messages carry text: the service would be asked about another name.
    if (cmn::IsValidUtf8(asked)) {
        controller->setFiltersArray(ToFilterRecords(xpcClient_->getFileFilters(asked)));
        controller->setIsEncrypted(checkFileEncryption(asked));
    } else {
        TLOG_WARN("The name of a file is not UTF-8, nobody is asked about it: {}",
                  cmn::EscapeControls(asked));
    }
    window->show(std::move(controller), activationToken);
    fileFiltersWindows_.emplace(number, std::move(window));
    notSeen_.insert(number);
    onMainAfter(kSeen, [weakSelf = weak_from_this(), number] {
        if (const auto self = weakSelf.lock()) {
            self->wasSeen(number);
        }
    });
    return true;
}

bool AppDelegate::checkFileEncryption(const std::string& path) {
    if (!xpcClient_->connected()) {
        return false;
    }
    const auto answer = std::make_shared<cmn::Answer<bool>>(*environment_.dispatch, false);
    xpcClient_->setCompleteblock([answer](bool encrypted) { answer->set(encrypted); });
    xpcClient_->checkEncryptionStatus(path);
    return answer->wait(kEncryptionDeadline);
}

void AppDelegate::gatherStatus(bool withAddresses, std::function<void(const std::string&)> done) {
    AgentStatus status;
    status.icon = DescribePlace(statusItem_ ? statusItem_->place() : IconPlace::none);
    status.permissions.finderExtension = appMenu()->environment().extension->isExtensionEnabled();
    environment_.dispatch->async(cmn::QueuePriority::high, [status = std::move(status), withAddresses,
                                                            done = std::move(done),
                                                            others = environment_.status,
                                                            accessibility =
                                                                appMenu()->environment().accessibility,
                                                            client = xpcClient_]() mutable {
        if (others) {
            others(status);
        }
        status.services.push_back({cmn::kFinderExtensionXPCMachServiceName, client && client->connected()});
        status.permissions.fullDiskAccess = client && client->checkFullDiskAccess();
        status.permissions.accessibility = accessibility->isProcessTrusted();
        if (!withAddresses) {
            RemoveAddresses(status);
        }
        done(cmn::proto::ObjectToJson(status));
    });
}

void AppDelegate::windowWillClose(int window) {
    const auto closed = fileFiltersWindows_.extract(window);  // destroyed once it is no longer among them
    wasSeen(window);
}

std::shared_ptr<AppDelegate> MakeAppDelegate(AppDelegateParts parts) {
    const auto now = [] {
        return std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now());
    };
    const auto menu = std::make_shared<AppMenu>(
        AppMenu::Environment{std::move(parts.accessibility), parts.extension, parts.panes,
                             [] { return cmn::proto::GetProduct("Agent"); }});
    const auto notices = std::make_shared<PermissionNotices>(
        PermissionNotices::Environment{std::move(parts.notices), std::move(parts.extension),
                                       std::move(parts.panes), ToldOnce::OfThisUser()});
    return std::make_shared<AppDelegate>(AppDelegate::Environment{std::move(parts.interface),
                                                                  menu,
                                                                  notices,
                                                                  std::move(parts.dispatch),
                                                                  std::move(parts.transport),
                                                                  {cmn::proto::GetSettings, now},
                                                                  std::move(parts.status)});
}

}  // namespace useragent
