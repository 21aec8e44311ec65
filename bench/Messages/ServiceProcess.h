#pragma once

#include <string>
#include <vector>

#include "../Common/TemporaryFolder.h"
#include "support/ChildProcess.h"

// This program again, as the process of a service; ended with this object.
class ServiceProcess {
 public:
    // Returns when the service answers. Ends the program when it does not within 20 seconds.
    ServiceProcess(const char* kind, const std::string& busName);

    pid_t pid() const { return process_.pid(); }

    // What such a process runs, by the program's arguments; nothing when it is none.
    static bool isOne(const std::vector<std::string>& arguments);
    static int run(const std::vector<std::string>& arguments);

    static constexpr const char* kOurs = "service-ours";
    static constexpr const char* kBareQt = "service-bare-qt";
    static constexpr const char* kBareSdBus = "service-bare-sdbus";
    static constexpr const char* kBareQtName = "com.example.BareQt";
    static constexpr const char* kBareSdBusName = "com.example.BareSdBus";
    static constexpr const char* kBarePath = "/com/example/Bare";

 private:
    bench::TemporaryFolder folder_;  // of the service's log
    fake::ChildProcess process_;
};
