#import "interface/AppKitMenuItem.h"

#import "common_mac/FoundationBridges.h"
#include "useragent/DisplayText.h"

namespace useragent {

namespace {

NSImage* SystemSymbol(NSString* name) {
    return [NSImage imageWithSystemSymbolName:name accessibilityDescription:@""];
}

NSImage* ImageOf(MenuImage image) {
    if (image == MenuImage::none) {
        return nil;
    }
    NSImage* const symbol = SystemSymbol(@"accessibility");
    return symbol != nil ? symbol : SystemSymbol(@"person.circle");
}

NSAttributedString* RedText(NSString* text) {
    return [[NSAttributedString alloc] initWithString:text
                                           attributes:@{NSForegroundColorAttributeName : [NSColor redColor]}];
}

}  // namespace

void AppKitMenuItem::setContent(const MenuItemContent& content) {
    NSMenuItem* const item = item_;
    if (item == nil || shown_ == content) {
        return;
    }
    NSString* const title = [NSString stringWithStdString:OneLine(content.title)];
    item.title = title != nil ? title : @"";
    // A cleared attributed title shows the plain one in the usual colour.
    item.attributedTitle = content.isRed ? RedText(item.title) : nil;
    if (!shown_ || shown_->image != content.image) {
        item.image = ImageOf(content.image);
    }
    shown_ = content;
}

}  // namespace useragent
