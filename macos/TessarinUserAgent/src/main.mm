#import <Foundation/Foundation.h>

#import "MacAgentPlatform.h"
#include "common/log.h"
#include "useragent/Agent.h"

int main(int argc, const char* argv[]) {
    InstallLogCrashHandlers();
    @autoreleasepool {
        useragent::MacAgentPlatform platform(argc, argv);
        return useragent::RunAgent(platform);
    }
}
