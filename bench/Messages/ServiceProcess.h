#pragma once

#include <sys/types.h>

#include <string>

#include "../Common/TemporaryFolder.h"

// This program again, as the process of a service; ended with this object.
class ServiceProcess {
 public:
    // Returns when the service answers. Ends the program when it does not within 20 seconds.
    ServiceProcess(const char* kind, const std::string& busName);
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    // What the child runs: `main` hands over to these when it was started as a service.
    static int runOurs(const std::string& installPath);
    static int runBare();

    static constexpr const char* kOurs = "service-ours";
    static constexpr const char* kBare = "service-bare";
    static constexpr const char* kBareName = "com.example.Bare";
    static constexpr const char* kBarePath = "/com/example/Bare";

 private:
    bench::TemporaryFolder folder_;  // of the service's log
    pid_t pid_ = -1;
};
