#import "interface/PropertiesWindowController.h"

@implementation PropertiesWindowController

- (void)reportClose {
    void (^const willClose)(void) = self.willClose;
    self.willClose = nil;
    if (willClose != nil) {
        willClose();
    }
}

@end
