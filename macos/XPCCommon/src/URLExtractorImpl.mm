#import "URLExtractorImpl.h"

#include <utility>

#import "common_mac/FoundationBridges.h"
#import "macos_usercommon/MacXPCPeer.h"

@implementation URLExtractorImpl {
    std::shared_ptr<cmn::URLExtractor> _delegate;
}

- (instancetype)initWithDelegate:(std::shared_ptr<cmn::URLExtractor>)delegate {
    self = [super init];
    if (self != nil) {
        _delegate = std::move(delegate);
    }
    return self;
}

- (void)getURL:(NSString*)browser reply:(void (^)(NSURL* _Nullable url))reply {
    // An exception leaves the question without an answer; the daemon stops waiting by itself. Those of the
    // portable extractor are dealt with there.
    @try {
        const cmn::XPCPeerScope scope(cmn::PeerOf([NSXPCConnection currentConnection]));
        _delegate->getURL(cmn::ToStdString(browser), [reply](const std::string& url) {
            if (reply != nil) {
                reply([NSURL URLWithStdString:url]);
            }
        });
    } @catch (NSException* exception) {
        NSLog(@"%@", exception);
    }
}

@end
