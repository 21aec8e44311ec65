#import "MacAgentPlatform.h"

#import <AppKit/AppKit.h>
#include <dispatch/dispatch.h>

#include <csignal>

#import "accessibility/MacAccessibility.h"
#import "accessibility/MacWindowList.h"
#import "interface/AppDelegate.h"
#import "macos_usercommon/MacDispatch.h"
#import "macos_usercommon/MacXPCTransport.h"

namespace useragent {

namespace {

void EndApplication() {
    [[NSApplication sharedApplication] terminate:nil];
}

// The signal's handler stops the run loop of whichever thread received the signal, and AppKit begins a
// stopped run loop's next pass. The main queue is told of the signal too, and wakes the main thread.
void EndApplicationOnSigterm() {
    static dispatch_source_t source;  // tells for as long as it is held
    source = dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL, SIGTERM, 0, dispatch_get_main_queue());
    dispatch_source_set_event_handler(source, ^{
      EndApplication();
    });
    // A signal that came before the source was there is not told to it.
    dispatch_source_set_registration_handler(source, ^{
      if (!g_run) {
          EndApplication();
      }
    });
    dispatch_resume(source);
}

// An application without windows in front is put to sleep otherwise, and the look at the browsers, each five
// seconds, comes late.
void StayAwake() {
    [[maybe_unused]] static id activity;  // lasts for as long as it is held
    activity =
        [[NSProcessInfo processInfo] beginActivityWithOptions:NSActivityUserInitiatedAllowingIdleSystemSleep
                                                       reason:@"Browsers are watched"];
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
    EndApplicationOnSigterm();
    StayAwake();
    return NSApplicationMain(argc_, argv_);
}

}  // namespace useragent
