#import "interface/AppMenu.h"

#include <algorithm>
#include <utility>

#import "common_mac/FoundationBridges.h"
#include "useragent/DisplayText.h"

namespace {

NSImage* SystemSymbol(NSString* name) {
    return [NSImage imageWithSystemSymbolName:name accessibilityDescription:@""];
}

NSImage* ImageOf(useragent::MenuImage image) {
    if (image == useragent::MenuImage::none) {
        return nil;
    }
    NSImage* const symbol = SystemSymbol(@"accessibility");
    return symbol != nil ? symbol : SystemSymbol(@"person.circle");
}

NSAttributedString* RedText(NSString* text) {
    return [[NSAttributedString alloc] initWithString:text
                                           attributes:@{NSForegroundColorAttributeName : [NSColor redColor]}];
}

void Show(const useragent::MenuItemContent& content, NSMenuItem* item) {
    if (item == nil) {
        return;
    }
    item.title = cmn::ToNSString(useragent::OneLine(content.title));
    // A cleared attributed title shows the plain one in the usual colour.
    item.attributedTitle = content.isRed ? RedText(item.title) : nil;
    item.image = ImageOf(content.image);
}

}  // namespace

@implementation AppMenu {
    useragent::MenuItems _shown;
}

- (void)showItems:(const useragent::MenuItems&)items {
    NSMenuItem* const outlets[] = {self.fulldiskItem, self.accessibilityItem, self.finderItem,
                                   self.versionItem};
    const useragent::MenuItems before = std::exchange(_shown, items);
    for (std::size_t index = 0; index < std::min(items.size(), std::size(outlets)); ++index) {
        if (index >= before.size() || before[index].content != items[index].content) {
            Show(items[index].content, outlets[index]);
        }
    }
}

- (void)updateMenuWithFulldiskAccess:(BOOL)granted {
    if (_menu) {
        _menu->updateMenu(granted != NO);
        [self showItems:_menu->items()];
    }
}

- (void)select:(std::size_t)index {
    if (index < _shown.size() && _shown[index].selected) {
        _shown[index].selected();
    }
}

- (IBAction)option1Selected:(nullable id)__unused sender {
    [self select:0];
}

- (IBAction)option2Selected:(nullable id)__unused sender {
    [self select:1];
}

- (IBAction)option3Selected:(nullable id)__unused sender {
    [self select:2];
}

@end
