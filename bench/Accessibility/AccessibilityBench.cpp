// How long it takes to find a browser's address field through the agent's accessibility end.
// Usage: AccessibilityBench PID ROUNDS. Prints one JSON object.

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <QCoreApplication>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <vector>

#include "CallCounter.h"
#include "accessibility/AtspiAccessibility.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "useragent/FindURLElement.h"

namespace {

using useragent::AXElementRef;

// The whole way of the watcher, from the process id on.
AXElementRef FindField(useragent::Accessibility& accessibility, std::int32_t pid) {
    useragent::AXValue window;
    const AXElementRef application = accessibility.createApplication(pid);
    if (accessibility.copyAttributeValue(application, useragent::kMainWindowAttribute, window) !=
        useragent::AXError::success) {
        return nullptr;
    }
    return useragent::FindURLElement(accessibility, std::get<AXElementRef>(window), 0);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    if (argc != 3) {
        fmt::print(stderr, "usage: {} PID ROUNDS\n", argv[0]);
        return 2;
    }
    const auto pid = static_cast<std::int32_t>(std::strtol(argv[1], nullptr, 10));
    const long rounds = std::strtol(argv[2], nullptr, 10);
    const auto dispatch = std::make_shared<cmn::LinuxDispatch>();
    bool found = true;
    std::vector<double> milliseconds;
    std::vector<unsigned long> calls;
    {
        useragent::AtspiAccessibility accessibility(dispatch, useragent::SettingsOfThisSession());
        accessibility.isProcessTrusted();  // connects, as the library does before its first search
        for (long round = 0; round < rounds; ++round) {
            const unsigned long callsBefore = CountedCalls();
            const auto start = std::chrono::steady_clock::now();
            found = FindField(accessibility, pid) && found;
            milliseconds.push_back(
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
            calls.push_back(CountedCalls() - callsBefore);
        }
    }
    dispatch->stop();
    fmt::print("{{\"found\": {}, \"calls\": [{}], \"milliseconds\": [{:.3f}]}}\n", found,
               fmt::join(calls, ", "), fmt::join(milliseconds, ", "));
    return 0;
}
