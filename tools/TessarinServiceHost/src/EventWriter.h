#pragma once

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "usercommon/XPCPeer.h"

namespace host {

using EventValue = std::variant<std::string, std::int64_t>;
using EventField = std::pair<const char*, EventValue>;
using EventFields = std::vector<EventField>;

// One line for an event, without line break: a JSON object, or "name key=value ..." with quoted texts. Bytes
// that are no UTF-8 are replaced.
std::string FormatEvent(bool json, std::string_view event, const EventFields& fields);

// Those of a report, with the user who sent it when that is known.
EventFields ReportFields(const std::string& url, const std::string& browser, std::int32_t processID,
                         const std::optional<cmn::XPCPeer>& peer);

// Writes events as whole lines, at once. Thread-safe.
class EventWriter {
 public:
    EventWriter(std::FILE* file, bool json) : file_(file), json_(json) {}

    void write(std::string_view event, const EventFields& fields = {});

 private:
    std::FILE* const file_;
    const bool json_;
    std::mutex mutex_;
};

}  // namespace host
