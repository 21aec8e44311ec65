#import "macos_usercommon/FileWatch.h"

#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <unistd.h>

#include <utility>

#import "common_mac/FoundationBridges.h"
#include "usercommon/CallNoThrow.h"
#include "usercommon/FileWatch.h"

namespace {

// Not deletion, attributes, links or revocation.
constexpr dispatch_source_vnode_flags_t kWatchedEvents =
    DISPATCH_VNODE_WRITE | DISPATCH_VNODE_EXTEND | DISPATCH_VNODE_RENAME;
static_assert(kWatchedEvents == 38);

}  // namespace

@interface FileWatch ()
@property(nonatomic, strong, nullable) dispatch_source_t source;
@end

@implementation FileWatch

- (nullable instancetype)initWithURL:(NSURL*)url withDelegate:(nullable void (^)(void))handler {
    self = [super init];
    if (self == nil) {
        return nil;
    }
    const char* const path = url.path.fileSystemRepresentation;
    const int file = path != nullptr ? open(path, O_EVTONLY | O_CLOEXEC) : -1;
    if (file < 0) {
        return nil;
    }
    dispatch_source_t const source =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_VNODE, static_cast<uintptr_t>(file), kWatchedEvents,
                               dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0));
    if (source == nil) {
        close(file);
        return nil;
    }
    dispatch_source_set_event_handler(source, ^{
      if (handler != nil) {
          handler();
      }
    });
    dispatch_source_set_cancel_handler(source, ^{
      close(file);
    });
    self.source = source;
    dispatch_resume(source);
    return self;
}

- (void)dealloc {
    if (_source != nil) {
        dispatch_source_cancel(_source);
        _source = nil;
    }
}

@end

namespace cmn {

namespace {

class MacFileWatch final : public FileWatch {
 public:
    explicit MacFileWatch(::FileWatch* watch) : watch_(watch) {}

 private:
    [[maybe_unused]] ::FileWatch* const watch_;  // watches for as long as it is held
};

}  // namespace

std::unique_ptr<FileWatch> CreateFileWatch(const std::filesystem::path& file, std::function<void()> handler) {
    @autoreleasepool {
        NSURL* const url = [NSURL fileURLWithStdString:file.string()];
        if (url == nil) {
            return nullptr;  // its name is not UTF-8
        }
        ::FileWatch* const watch =
            [[::FileWatch alloc] initWithURL:url
                                withDelegate:^{
                                  if (handler) {
                                      CallNoThrow("The handler of a watched file", handler);
                                  }
                                }];
        return watch != nil ? std::make_unique<MacFileWatch>(watch) : nullptr;
    }
}

}  // namespace cmn
