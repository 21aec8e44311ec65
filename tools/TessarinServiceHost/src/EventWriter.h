#pragma once

#include <cstdio>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace host {

using EventValue = std::variant<std::string, int>;
using EventField = std::pair<const char*, EventValue>;

// One line for an event, without line break: a JSON object, or "name key=value ..." with quoted texts. Bytes
// that are no UTF-8 are replaced.
std::string FormatEvent(bool json, std::string_view event, std::initializer_list<EventField> fields);

// Writes events as whole lines, at once. Thread-safe.
class EventWriter {
 public:
    EventWriter(std::FILE* file, bool json) : file_(file), json_(json) {}

    void write(std::string_view event, std::initializer_list<EventField> fields = {});

 private:
    std::FILE* const file_;
    const bool json_;
    std::mutex mutex_;
};

}  // namespace host
