#import "interface/AppDelegate.h"

#include <optional>
#include <utility>

#import "common_mac/FoundationBridges.h"
#import "interface/AppKitInterface.h"
#import "interface/PropertiesWindowController.h"
#import "permissions/FinderSyncExtension.h"
#import "permissions/MacSettingsPanes.h"

namespace {

useragent::InterfaceEnvironment g_environment;

}  // namespace

@implementation AppDelegate {
    std::shared_ptr<useragent::AppDelegate> _delegate;
    std::function<void()> _menuNeedsUpdate;
}

+ (void)setEnvironment:(useragent::InterfaceEnvironment)environment {
    g_environment = std::move(environment);
}

// Made at the first use: URLs may come before the launch.
- (const std::shared_ptr<useragent::AppDelegate>&)portableDelegate {
    if (!_delegate) {
        _delegate = useragent::MakeAppDelegate(
            {std::make_shared<useragent::AppKitInterface>(self), g_environment.accessibility,
             std::make_shared<useragent::FinderSyncExtension>(),
             std::make_shared<useragent::MacSettingsPanes>(), std::make_shared<useragent::NoNotices>(),
             g_environment.dispatch, g_environment.transport, nullptr});
        self.appMenu.menu = _delegate->appMenu();
    }
    return _delegate;
}

- (std::shared_ptr<cmn::FinderExtensionXPCClient>)XPCClient {
    return _delegate ? _delegate->xpcClient() : nullptr;
}

- (void)applicationDidFinishLaunching:(NSNotification*)__unused notification {
    self.fileFiltersWindows = [NSMutableArray array];
    [self portableDelegate]->applicationDidFinishLaunching();
}

- (void)checkAgentIconPermission {
    [self portableDelegate]->checkAgentIconPermission();
}

- (void)updateMenu {
    [self portableDelegate]->updateMenu();
}

- (void)setMenuNeedsUpdateHandler:(std::function<void()>)handler {
    _menuNeedsUpdate = std::move(handler);
}

- (void)menuNeedsUpdate:(NSMenu*)__unused menu {
    if (_menuNeedsUpdate) {
        _menuNeedsUpdate();
    }
}

- (BOOL)applicationSupportsSecureRestorableState:(NSApplication*)__unused application {
    return useragent::AppDelegate::applicationSupportsSecureRestorableState() ? YES : NO;
}

- (void)application:(NSApplication*)__unused application openURLs:(NSArray<NSURL*>*)urls {
    std::vector<std::string> texts;
    for (NSURL* url in urls) {
        texts.push_back(cmn::ToStdString(url));
    }
    [self portableDelegate]->openURLs(texts);
}

- (void)showFileFiltersForFile:(nullable NSString*)path {
    [self portableDelegate]->showFileFilters(path != nil ? std::optional(cmn::ToStdString(path))
                                                         : std::nullopt);
}

- (BOOL)checkFileEncryption:(nullable NSString*)path {
    return [self portableDelegate]->checkFileEncryption(cmn::ToStdString(path)) ? YES : NO;
}

- (void)windowWillClose:(NSNotification*)notification {
    NSWindowController* closed = nil;
    NSMutableArray<NSWindowController*>* const windows = self.fileFiltersWindows;
    @synchronized(windows) {
        for (NSWindowController* open in windows) {
            if (open.window == notification.object) {
                closed = open;
                break;
            }
        }
        if (closed != nil) {
            [windows removeObjectIdenticalTo:closed];
        }
    }
    if ([closed isKindOfClass:[PropertiesWindowController class]]) {
        [(PropertiesWindowController*)closed reportClose];
    }
}

@end
