#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "accessibility/AtspiQueries.h"
#include "accessibility/Session.h"

namespace useragent {

// What is known of an application on the accessibility bus, for as long as it has its bus name.
struct AtspiApplicationRecord {
    std::int32_t pid = 0;
    std::string name;  // the product's; empty while it is not known
    bool isBrowser = false;
    std::map<std::string, bool> frames;  // those on screen, by path: whether it has a title
    std::uint64_t lastActive = 0;        // the look that found it active last; 0 for none

    auto windows() const {
        return std::count_if(frames.begin(), frames.end(), [](const auto& frame) { return frame.second; });
    }
};
using AtspiApplicationRecords = std::map<std::string, AtspiApplicationRecord>;  // by bus name

// One look at the applications on the accessibility bus, at each step at all of them at once. No step may use
// up the time of the next.
class AtspiSurvey {
 public:
    // `number` is that of this look.
    AtspiSurvey(Session& session, AtspiApplicationRecords& records, const std::vector<std::string>& browsers,
                std::uint64_t number)
        : session_(session), records_(records), browsers_(browsers), number_(number) {}

    // Brings the records up to date. Returns the bus names of the browsers in the registry's order; nothing
    // when they cannot be known.
    std::optional<std::vector<std::string>> take(cmn::bus::Deadline deadline);

 private:
    // What a browser shows now.
    struct Answer {
        std::vector<std::string> frames;  // paths
        bool isActive = false;
        bool isComplete = false;
    };
    using Answers = std::map<std::string, Answer>;  // by bus name

    void learnProcesses(const std::vector<std::string>& names, cmn::bus::Deadline deadline);
    void learnNames(cmn::bus::Deadline deadline);
    void selectFrames(Answers& answers, cmn::bus::Deadline deadline);
    void goThroughChildren(Answers& answers, cmn::bus::Deadline deadline);
    void learnTitles(Answers& answers, cmn::bus::Deadline deadline);

    bool canBeAsked(const std::string& busName) const;
    void finish(cmn::bus::Batch& batch) const;

    Session& session_;
    AtspiApplicationRecords& records_;
    const std::vector<std::string>& browsers_;
    const std::uint64_t number_;
};

}  // namespace useragent
