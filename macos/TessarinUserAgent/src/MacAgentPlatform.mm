#import "MacAgentPlatform.h"

#import <AppKit/AppKit.h>

#import "accessibility/MacAccessibility.h"
#import "accessibility/MacWindowList.h"
#import "common_mac/CFAutoPointer.h"
#import "interface/AppDelegate.h"
#import "macos_usercommon/MacDispatch.h"
#import "macos_usercommon/MacXPCTransport.h"

namespace useragent {

namespace {

// A stopped run loop alone does not end an AppKit application: it begins the next pass.
void EndApplicationOnceTheRunFlagIsCleared() {
    const cmn::CFAutoPointer observer(
        CFRunLoopObserverCreateWithHandler(kCFAllocatorDefault, kCFRunLoopBeforeWaiting | kCFRunLoopExit,
                                           true, 0, ^(CFRunLoopObserverRef, CFRunLoopActivity) {
                                             if (!g_run) {
                                                 [[NSApplication sharedApplication] terminate:nil];
                                             }
                                           }));
    const auto reference = static_cast<CFRunLoopObserverRef>(const_cast<void*>(observer.get()));
    CFRunLoopAddObserver(CFRunLoopGetMain(), reference, kCFRunLoopCommonModes);
}

}  // namespace

void StopCurrentRunLoop() {
    CFRunLoopStop(CFRunLoopGetCurrent());
}

std::shared_ptr<Accessibility> MacAgentPlatform::accessibility() {
    if (!accessibility_) {
        accessibility_ = std::make_shared<MacAccessibility>(dispatch());
    }
    return accessibility_;
}

std::shared_ptr<WindowList> MacAgentPlatform::windowList() {
    return std::make_shared<MacWindowList>();
}

std::shared_ptr<cmn::Dispatch> MacAgentPlatform::dispatch() {
    if (!dispatch_) {
        dispatch_ = std::make_shared<cmn::MacDispatch>();
    }
    return dispatch_;
}

std::shared_ptr<cmn::XPCTransport> MacAgentPlatform::transport() {
    return std::make_shared<cmn::MacXPCTransport>();
}

std::shared_ptr<cmn::Semaphore> MacAgentPlatform::pollingPause() {
    return dispatch()->createSemaphore(0);
}

// Nobody asks for the status here.
int MacAgentPlatform::runApplication(StatusSource) {
    [::AppDelegate setEnvironment:{accessibility(), dispatch(), transport()}];
    EndApplicationOnceTheRunFlagIsCleared();
    return NSApplicationMain(argc_, argv_);
}

}  // namespace useragent
