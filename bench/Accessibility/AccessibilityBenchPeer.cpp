// The same search with the desktop's own client library, for comparison.
// Usage: AccessibilityBenchPeer PID ROUNDS [fresh]. With "fresh" the library's cache is emptied before each
// round. Prints one JSON object.

#include <atspi/atspi.h>
#include <fmt/core.h>
#include <fmt/ranges.h>

#include <boost/algorithm/string/predicate.hpp>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "CallCounter.h"

namespace {

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename Object>
using Ref = std::unique_ptr<Object, Unref>;

constexpr unsigned kMaxDepth = 29;

bool Has(AtspiAccessible* object, AtspiStateType state) {
    const Ref<AtspiStateSet> states(atspi_accessible_get_state_set(object));
    return states && atspi_state_set_contains(states.get(), state) != FALSE;
}

std::string NameOf(AtspiAccessible* object) {
    gchar* const name = atspi_accessible_get_name(object, nullptr);
    const std::string text = name != nullptr ? name : "";
    g_free(name);
    return text;
}

bool IsAddressField(AtspiAccessible* object) {
    const AtspiRole role = atspi_accessible_get_role(object, nullptr);
    if ((role != ATSPI_ROLE_ENTRY && role != ATSPI_ROLE_COMBO_BOX) || !Has(object, ATSPI_STATE_EDITABLE)) {
        return false;
    }
    const std::string name = NameOf(object);
    return boost::algorithm::icontains(name, "address") && boost::algorithm::icontains(name, "search");
}

Ref<AtspiAccessible> Search(AtspiAccessible* object, unsigned depth) {
    if (depth > kMaxDepth) {
        return nullptr;
    }
    const int count = atspi_accessible_get_child_count(object, nullptr);
    unsigned counter = depth;
    for (int i = 0; i < count; ++i) {
        Ref<AtspiAccessible> child(atspi_accessible_get_child_at_index(object, i, nullptr));
        if (!child || !Has(child.get(), ATSPI_STATE_SHOWING)) {
            continue;
        }
        if (IsAddressField(child.get())) {
            return child;
        }
        if (Ref<AtspiAccessible> found = Search(child.get(), ++counter)) {
            return found;
        }
    }
    return nullptr;
}

Ref<AtspiAccessible> MainWindow(AtspiAccessible* application) {
    const int count = atspi_accessible_get_child_count(application, nullptr);
    Ref<AtspiAccessible> first;
    for (int i = 0; i < count; ++i) {
        Ref<AtspiAccessible> window(atspi_accessible_get_child_at_index(application, i, nullptr));
        if (!window || atspi_accessible_get_role(window.get(), nullptr) != ATSPI_ROLE_FRAME ||
            NameOf(window.get()).empty()) {
            continue;
        }
        if (Has(window.get(), ATSPI_STATE_ACTIVE)) {
            return window;
        }
        if (!first) {
            first = std::move(window);
        }
    }
    return first;
}

bool FindField(guint pid) {
    const Ref<AtspiAccessible> desktop(atspi_get_desktop(0));
    const int count = atspi_accessible_get_child_count(desktop.get(), nullptr);
    for (int i = 0; i < count; ++i) {
        const Ref<AtspiAccessible> application(
            atspi_accessible_get_child_at_index(desktop.get(), i, nullptr));
        if (application && atspi_accessible_get_process_id(application.get(), nullptr) == pid) {
            const Ref<AtspiAccessible> window = MainWindow(application.get());
            return window && Search(window.get(), 0);
        }
    }
    return false;
}

void EmptyCache() {
    const Ref<AtspiAccessible> desktop(atspi_get_desktop(0));
    atspi_accessible_clear_cache(desktop.get());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        fmt::print(stderr, "usage: {} PID ROUNDS [fresh]\n", argv[0]);
        return 2;
    }
    const auto pid = static_cast<guint>(std::strtoul(argv[1], nullptr, 10));
    const long rounds = std::strtol(argv[2], nullptr, 10);
    const bool isFresh = argc > 3;
    atspi_init();
    bool found = true;
    std::vector<double> milliseconds;
    std::vector<unsigned long> calls;
    for (long round = 0; round < rounds; ++round) {
        if (isFresh) {
            EmptyCache();
        }
        const unsigned long callsBefore = CountedCalls();
        const auto start = std::chrono::steady_clock::now();
        found = FindField(pid) && found;
        milliseconds.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        calls.push_back(CountedCalls() - callsBefore);
    }
    fmt::print("{{\"found\": {}, \"calls\": [{}], \"milliseconds\": [{:.3f}]}}\n", found,
               fmt::join(calls, ", "), fmt::join(milliseconds, ", "));
    return 0;
}
