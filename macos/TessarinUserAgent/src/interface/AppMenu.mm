#import "interface/AppMenu.h"

#include <utility>

#import "interface/AppKitMenuItem.h"

@implementation AppMenu {
    std::shared_ptr<useragent::AppMenu> _menu;
}

- (std::shared_ptr<useragent::AppMenu>)menuWithEnvironment:(useragent::AppMenu::Environment)environment {
    const auto wrapped = [](NSMenuItem* item) { return std::make_shared<useragent::AppKitMenuItem>(item); };
    _menu = std::make_shared<useragent::AppMenu>(
        useragent::MenuItems{wrapped(self.fulldiskItem), wrapped(self.accessibilityItem),
                             wrapped(self.finderItem), wrapped(self.versionItem)},
        std::move(environment));
    return _menu;
}

- (void)updateMenuWithFulldiskAccess:(BOOL)granted {
    if (_menu) {
        _menu->updateMenu(granted != NO);
    }
}

- (IBAction)option1Selected:(nullable id)__unused sender {
    if (_menu) {
        _menu->option1Selected();
    }
}

- (IBAction)option2Selected:(nullable id)__unused sender {
    if (_menu) {
        _menu->option2Selected();
    }
}

- (IBAction)option3Selected:(nullable id)__unused sender {
    if (_menu) {
        _menu->option3Selected();
    }
}

@end
