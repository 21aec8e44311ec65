#import "FinderExtensionProxy.h"

#include <utility>

#import "FinderExtensionExportedObject.h"
#import "ServiceInterface.h"
#import "common_mac/FoundationBridges.h"

namespace cmn {

namespace {

// What came from another process need not be what was agreed on.
template <typename Class>
Class* Checked(id object) {
    return [object isKindOfClass:[Class class]] ? static_cast<Class*>(object) : nil;
}

// Values that are no texts count with their description, which reads as the same number.
std::vector<ScanRecord> ToScanRecords(NSArray* result) {
    std::vector<ScanRecord> records;
    for (id element in Checked<NSArray>(result)) {
        ScanRecord record;
        NSDictionary* const dictionary = Checked<NSDictionary>(element);
        for (id key in dictionary) {
            record[ToStdString([key description])] = ToStdString([dictionary[key] description]);
        }
        records.push_back(std::move(record));
    }
    return records;
}

UIVisibilityStatuses ToStatuses(NSDictionary* dictionary) {
    UIVisibilityStatuses statuses;
    for (id key in Checked<NSDictionary>(dictionary)) {
        statuses[ToStdString([key description])] = [Checked<NSNumber>(dictionary[key]) boolValue] != NO;
    }
    return statuses;
}

}  // namespace

void FinderExtensionProxy::version(std::function<void(const std::string&)> reply) {
    SendMessage("version:", [this, reply] {
        [remote_ version:^(NSString* version) {
          if (reply) {
              reply(ToStdString(version));
          }
        }];
    });
}

void FinderExtensionProxy::checkEncryptionStatus(const std::string& path,
                                                 std::shared_ptr<FinderExtensionDelegate> delegate) {
    SendMessage("checkEncryptionStatus:delegate:", [&] {
        [remote_
            checkEncryptionStatus:ToNSString(path)
                         delegate:delegate ? [[FinderExtensionDelegateObject alloc] initWithDelegate:delegate]
                                           : nil];
    });
}

void FinderExtensionProxy::decrypt(const std::string& path, std::function<void(std::int32_t)> reply) {
    SendMessage("decrypt:withCompletion:", [this, &path, reply] {
        [remote_ decrypt:ToNSString(path)
            withCompletion:^(int status) {
              if (reply) {
                  reply(status);
              }
            }];
    });
}

void FinderExtensionProxy::getScanResult(const std::string& path,
                                         std::function<void(std::vector<ScanRecord>)> reply) {
    SendMessage("getScanResult:withCompletion:", [this, &path, reply] {
        [remote_ getScanResult:ToNSString(path)
                withCompletion:^(NSArray<NSDictionary*>* result) {
                  if (reply) {
                      reply(ToScanRecords(result));
                  }
                }];
    });
}

void FinderExtensionProxy::allowedExtensions(std::function<void(const std::vector<std::string>&)> reply) {
    SendMessage("allowedExtensionsWithCompletion:", [this, reply] {
        [remote_ allowedExtensionsWithCompletion:^(NSArray<NSString*>* extensions) {
          NSArray* const array = Checked<NSArray>(extensions);
          if (reply) {
              reply(array != nil ? [array stdStringVector] : std::vector<std::string>());
          }
        }];
    });
}

void FinderExtensionProxy::checkFullDiskAccess(std::function<void(bool)> reply) {
    SendMessage("checkFullDiskAccessWithCompletion:", [this, reply] {
        [remote_ checkFullDiskAccessWithCompletion:^(BOOL granted) {
          if (reply) {
              reply(granted != NO);
          }
        }];
    });
}

void FinderExtensionProxy::getUIVisibilityStatuses(std::function<void(const UIVisibilityStatuses&)> reply) {
    SendMessage("getUIVisibilityStatusesWithCompletion:", [this, reply] {
        [remote_ getUIVisibilityStatusesWithCompletion:^(NSDictionary<NSString*, NSNumber*>* statuses) {
          if (reply) {
              reply(ToStatuses(statuses));
          }
        }];
    });
}

void FinderExtensionProxy::sendLogMessage(const std::string& message, const std::string& level) {
    SendMessage("sendLogMessage:level:",
                [&] { [remote_ sendLogMessage:ToNSString(message) level:ToNSString(level)]; });
}

void FinderExtensionDelegateProxy::didCheckEncryptionStatus(bool encrypted) {
    SendMessage("didCheckEncryptionStatus:",
                [&] { [remote_ didCheckEncryptionStatus:encrypted ? YES : NO]; });
}

}  // namespace cmn
