#import "FinderExtensionExportedObject.h"

#include <utility>

#import "FinderExtensionProxy.h"
#import "ServiceInterface.h"
#import "common_mac/FoundationBridges.h"

namespace {

NSArray<NSDictionary*>* ToScanResult(const std::vector<cmn::ScanRecord>& records) {
    NSMutableArray<NSDictionary*>* const result = [NSMutableArray arrayWithCapacity:records.size()];
    for (const cmn::ScanRecord& record : records) {
        NSMutableDictionary<NSString*, NSString*>* const dictionary = [NSMutableDictionary dictionary];
        for (const auto& [key, value] : record) {
            dictionary[cmn::ToNSString(key)] = cmn::ToNSString(value);
        }
        [result addObject:dictionary];
    }
    return [result copy];
}

NSDictionary<NSString*, NSNumber*>* ToStatuses(const cmn::UIVisibilityStatuses& statuses) {
    NSMutableDictionary<NSString*, NSNumber*>* const dictionary = [NSMutableDictionary dictionary];
    for (const auto& [key, value] : statuses) {
        dictionary[cmn::ToNSString(key)] = value ? @YES : @NO;
    }
    return [dictionary copy];
}

}  // namespace

@implementation FinderExtensionExportedObject {
    std::shared_ptr<cmn::FinderExtensionCommunicator> _service;
}

- (instancetype)initWithService:(std::shared_ptr<cmn::FinderExtensionCommunicator>)service {
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
                reply(cmn::ToNSString(version));
            }
        });
    });
}

- (void)checkEncryptionStatus:(NSString*)path delegate:(NSObject<FinderExtensionDelegate>*)delegate {
    cmn::AnswerNoThrow("checkEncryptionStatus:delegate:", [&] {
        _service->checkEncryptionStatus(
            cmn::ToStdString(path),
            delegate != nil ? std::make_shared<cmn::FinderExtensionDelegateProxy>(delegate) : nullptr);
    });
}

- (void)decrypt:(NSString*)path withCompletion:(void (^)(int))completion {
    cmn::AnswerNoThrow("decrypt:withCompletion:", [&] {
        _service->decrypt(cmn::ToStdString(path), [completion](std::int32_t status) {
            if (completion != nil) {
                completion(status);
            }
        });
    });
}

- (void)getScanResult:(NSString*)path withCompletion:(void (^)(NSArray<NSDictionary*>*))completion {
    cmn::AnswerNoThrow("getScanResult:withCompletion:", [&] {
        _service->getScanResult(cmn::ToStdString(path), [completion](std::vector<cmn::ScanRecord> records) {
            if (completion != nil) {
                completion(ToScanResult(records));
            }
        });
    });
}

- (void)allowedExtensionsWithCompletion:(void (^)(NSArray<NSString*>*))completion {
    cmn::AnswerNoThrow("allowedExtensionsWithCompletion:", [&] {
        _service->allowedExtensions([completion](const std::vector<std::string>& extensions) {
            if (completion != nil) {
                completion([[NSArray arrayWithStringVector:extensions] copy]);
            }
        });
    });
}

- (void)checkFullDiskAccessWithCompletion:(void (^)(BOOL))completion {
    cmn::AnswerNoThrow("checkFullDiskAccessWithCompletion:", [&] {
        _service->checkFullDiskAccess([completion](bool granted) {
            if (completion != nil) {
                completion(granted ? YES : NO);
            }
        });
    });
}

- (void)getUIVisibilityStatusesWithCompletion:(void (^)(NSDictionary<NSString*, NSNumber*>*))completion {
    cmn::AnswerNoThrow("getUIVisibilityStatusesWithCompletion:", [&] {
        _service->getUIVisibilityStatuses([completion](const cmn::UIVisibilityStatuses& statuses) {
            if (completion != nil) {
                completion(ToStatuses(statuses));
            }
        });
    });
}

- (void)sendLogMessage:(NSString*)message level:(NSString*)level {
    cmn::AnswerNoThrow("sendLogMessage:level:",
                       [&] { _service->sendLogMessage(cmn::ToStdString(message), cmn::ToStdString(level)); });
}

@end

@implementation FinderExtensionDelegateObject {
    std::weak_ptr<cmn::FinderExtensionDelegate> _delegate;
}

- (instancetype)initWithDelegate:(std::weak_ptr<cmn::FinderExtensionDelegate>)delegate {
    self = [super init];
    if (self != nil) {
        _delegate = std::move(delegate);
    }
    return self;
}

- (void)didCheckEncryptionStatus:(BOOL)encrypted {
    cmn::AnswerNoThrow("didCheckEncryptionStatus:", [&] {
        if (const auto delegate = _delegate.lock()) {
            delegate->didCheckEncryptionStatus(encrypted != NO);
        }
    });
}

@end
