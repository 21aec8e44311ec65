#import "UserAgentExportedObject.h"

#include <utility>

#import "ServiceInterface.h"
#import "UserAgentProxy.h"
#import "common_mac/FoundationBridges.h"

@implementation UserAgentExportedObject {
    std::shared_ptr<cmn::UserAgentProtocol> _service;
}

- (instancetype)initWithService:(std::shared_ptr<cmn::UserAgentProtocol>)service {
    self = [super init];
    if (self != nil) {
        _service = std::move(service);
    }
    return self;
}

- (void)version:(void (^)(NSString*))reply {
    cmn::AnswerNoThrow("version:", [&] {
        _service->version([reply](const std::string& version) {
            if (reply != nil) {
                reply([NSString stringWithStdString:version]);
            }
        });
    });
}

- (void)setURLExtractor:(id<URLExtractor>)extractor reply:(void (^)(BOOL))reply {
    cmn::AnswerNoThrow("setURLExtractor:reply:", [&] {
        _service->setURLExtractor(
            extractor != nil ? std::make_shared<cmn::URLExtractorProxy>(extractor) : nullptr,
            [reply](bool accepted) {
                if (reply != nil) {
                    reply(accepted ? YES : NO);
                }
            });
    });
}

- (void)sendURL:(NSString*)url browser:(NSString*)browser processID:(int)processID {
    cmn::AnswerNoThrow("sendURL:browser:processID:", [&] {
        _service->sendURL(cmn::ToStdString(url), cmn::ToStdString(browser), processID);
    });
}

@end
