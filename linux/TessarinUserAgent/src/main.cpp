#include <exception>

#include "LinuxAgentPlatform.h"
#include "common/SystemUtils.h"
#include "useragent/Agent.h"

int main(int argc, char** argv) {
    try {
        useragent::LinuxAgentPlatform platform(argc, argv);
        return useragent::RunAgent(platform);
    } catch (const std::exception& error) {
        // Before the log is set up there is only the system log.
        cmn::SystemLog(error.what());
    }
    return 0;
}
