#import <Foundation/Foundation.h>

#import "MacAgentPlatform.h"
#include "useragent/Agent.h"

int main(int argc, const char* argv[]) {
    @autoreleasepool {
        useragent::MacAgentPlatform platform(argc, argv);
        return useragent::RunAgent(platform);
    }
}
