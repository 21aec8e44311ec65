#import "UserAgentProxy.h"

#import "ServiceInterface.h"
#import "URLExtractorImpl.h"
#import "common_mac/FoundationBridges.h"

namespace cmn {

void UserAgentProxy::version(std::function<void(const std::string&)> reply) {
    SendMessage("version:", [this, reply] {
        [remote_ version:^(NSString* version) {
          if (reply) {
              reply(ToStdString(version));
          }
        }];
    });
}

void UserAgentProxy::setURLExtractor(std::shared_ptr<URLExtractor> extractor,
                                     std::function<void(bool)> reply) {
    SendMessage("setURLExtractor:reply:", [this, extractor, reply] {
        [remote_ setURLExtractor:[[URLExtractorImpl alloc] initWithDelegate:extractor]
                           reply:^(BOOL accepted) {
                             if (reply) {
                                 reply(accepted != NO);
                             }
                           }];
    });
}

void UserAgentProxy::sendURL(const std::string& url, const std::string& browser, std::int32_t processID) {
    SendMessage("sendURL:browser:processID:", [&] {
        NSString* const text = [NSString stringWithStdString:url];
        NSString* const name = [NSString stringWithStdString:browser];
        if (text != nil && name != nil) {
            [remote_ sendURL:text browser:name processID:processID];
        }
    });
}

void URLExtractorProxy::getURL(const std::string& browser, std::function<void(const std::string&)> reply) {
    SendMessage("getURL:reply:", [this, &browser, reply] {
        [remote_ getURL:ToNSString(browser)
                  reply:^(NSURL* url) {
                    if (reply) {
                        reply(ToStdString(url));
                    }
                  }];
    });
}

}  // namespace cmn
