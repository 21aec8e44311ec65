#import "interface/AppKitInterface.h"

#include <utility>

#include "common/log.h"
#import "common_mac/FoundationBridges.h"
#import "interface/FileFiltersViewController.h"
#import "interface/FilterRecords.h"
#import "interface/PropertiesWindowController.h"

namespace useragent {

namespace {

NSString* NameOf(StatusImage image) {
    return IsRed(image) ? @"MenuIconRed" : @"MenuIcon";
}

class AppKitStatusItem final : public StatusItem {
 public:
    AppKitStatusItem(NSStatusItem* item, ::AppMenu* menu) : item_(item), menu_(menu) {}

    void setImage(StatusImage image) override {
        NSStatusBarButton* const button = item_.button;
        button.image = [NSImage imageNamed:NameOf(image)];
        button.toolTip = [NSString stringWithUTF8String:DescribeImage(image)];
    }
    void setMenu(const MenuItems& items) override { [menu_ showItems:items]; }
    void setVisible(bool visible) override { item_.visible = visible ? YES : NO; }
    IconPlace place() const override { return item_.visible ? IconPlace::statusArea : IconPlace::none; }

 private:
    NSStatusItem* const item_;
    ::AppMenu* const menu_;
};

// Nil when the storyboard does not hold what is expected. The platform throws for a missing storyboard or
// scene.
::FileFiltersViewController* LoadFileFiltersViewController() {
    @try {
        NSStoryboard* const storyboard = [NSStoryboard storyboardWithName:@"Main"
                                                                   bundle:[NSBundle mainBundle]];
        id const controller = [storyboard instantiateControllerWithIdentifier:@"FileFiltersViewController"];
        return [controller isKindOfClass:[::FileFiltersViewController class]]
                   ? static_cast<::FileFiltersViewController*>(controller)
                   : nil;
    } @catch (NSException* exception) {
        TLOG_ERROR("The storyboard cannot be loaded: {}", cmn::ToStdString(exception.description));
        return nil;
    }
}

NSWindow* CreateWindow(NSViewController* content) {
    NSWindow* const window = [[NSWindow alloc]
        initWithContentRect:NSMakeRect(0, 0, 400, 300)
                  styleMask:NSWindowStyleMaskTitled | NSWindowStyleMaskClosable | NSWindowStyleMaskResizable
                    backing:NSBackingStoreBuffered
                      defer:NO];
    window.releasedWhenClosed = NO;
    window.contentViewController = content;  // loads the view
    window.title = @"Tessarin Properties";
    window.level = NSFloatingWindowLevel;
    [window center];
    return window;
}

class AppKitPropertiesWindow final : public PropertiesWindow {
 public:
    AppKitPropertiesWindow(::FileFiltersViewController* content, ::AppDelegate* delegate,
                           std::function<void()> willClose)
        : content_(content), delegate_(delegate), willClose_(std::move(willClose)) {}
    ~AppKitPropertiesWindow() override {
        if (controller_.willClose == nil) {
            return;  // never shown, or the user is closing it
        }
        controller_.willClose = nil;
        controller_.window.delegate = nil;
        NSMutableArray<NSWindowController*>* const windows = delegate_.fileFiltersWindows;
        @synchronized(windows) {
            [windows removeObjectIdenticalTo:controller_];
        }
        [controller_ close];
    }
    AppKitPropertiesWindow(const AppKitPropertiesWindow&) = delete;
    AppKitPropertiesWindow& operator=(const AppKitPropertiesWindow&) = delete;

    void show(std::unique_ptr<FileFiltersViewController> controller,
              const std::string& /*activationToken*/) override {
        content_.filtersArray = ToNSArray(controller->filtersArray());
        content_.fileName = controller->fileName() ? cmn::ToNSString(*controller->fileName()) : nil;
        content_.isEncrypted = controller->isEncrypted() ? YES : NO;
        [content_ setContent:std::move(controller)];
        controller_ = [[PropertiesWindowController alloc] initWithWindow:CreateWindow(content_)];
        const std::function<void()> willClose = willClose_;
        controller_.willClose = ^{
          willClose();
        };
        [controller_ showWindow:nil];
        ::AppDelegate* const delegate = delegate_;
        controller_.window.delegate = delegate;
        NSMutableArray<NSWindowController*>* const windows = delegate.fileFiltersWindows;
        @synchronized(windows) {
            [windows addObject:controller_];
        }
    }

 private:
    ::FileFiltersViewController* const content_;
    __weak ::AppDelegate* const delegate_;
    const std::function<void()> willClose_;
    PropertiesWindowController* controller_ = nil;  // until it is shown
};

}  // namespace

std::shared_ptr<StatusItem> AppKitInterface::createStatusItem(std::function<void()> menuNeedsUpdate) {
    ::AppDelegate* const delegate = delegate_;
    NSStatusItem* const item =
        [[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength];
    delegate.statusItem = item;
    // No action: a click opens the menu.
    item.button.target = delegate;
    [delegate setMenuNeedsUpdateHandler:std::move(menuNeedsUpdate)];
    delegate.appMenu.delegate = delegate;
    item.menu = delegate.appMenu;
    return std::make_shared<AppKitStatusItem>(item, delegate.appMenu);
}

std::unique_ptr<PropertiesWindow> AppKitInterface::createPropertiesWindow(std::function<void()> willClose) {
    ::FileFiltersViewController* const content = LoadFileFiltersViewController();
    if (content == nil) {
        return nullptr;
    }
    return std::make_unique<AppKitPropertiesWindow>(content, delegate_, std::move(willClose));
}

void AppKitInterface::scheduleRepeatingTimer(std::chrono::seconds interval, std::function<void()> /*tick*/) {
    // The delegate's own `updateMenu` is what ticks.
    ::AppDelegate* const delegate = delegate_;
    delegate.menuUpdateTimer =
        [NSTimer scheduledTimerWithTimeInterval:static_cast<NSTimeInterval>(interval.count())
                                         target:delegate
                                       selector:@selector(updateMenu)
                                       userInfo:nil
                                        repeats:YES];
}

}  // namespace useragent
