#import "interface/PropertiesWindowController.h"

@implementation PropertiesWindowController

// The Escape key.
- (void)cancelOperation:(nullable id)sender {
    [self.window performClose:sender];
}

- (void)reportClose {
    void (^const willClose)(void) = self.willClose;
    self.willClose = nil;
    if (willClose != nil) {
        willClose();
    }
}

@end
