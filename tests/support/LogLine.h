#pragma once

#include <gmock/gmock.h>

#include <string>

namespace fake {

// A line of the log with that tag, e.g. " WARN", and whose text, behind the place in the source, is `text`.
inline testing::Matcher<std::string> LogLine(const std::string& tag, const std::string& text) {
    return testing::AllOf(testing::StartsWith("[" + tag + "] ["), testing::EndsWith(" -- " + text));
}

}  // namespace fake
