#pragma once

#include <cstddef>
#include <ctime>
#include <optional>
#include <string_view>

namespace cmn {

// What the log asks of the world around it. Tests put their own in its place.
class LogOutput {
 public:
    virtual ~LogOutput() = default;

    // Seconds since 1970. Called from every thread that logs.
    virtual std::time_t now();
    // Opens the file for appending, writes the text and closes it. How many bytes of the text are in the file
    // then; empty when it could not be opened. A file is made for its owner alone, a link is not followed,
    // and a text that the file does not take whole is left in it up to its last whole line if that can be
    // done.
    virtual std::optional<std::size_t> append(const char* file, std::string_view text);
    // Writes to the standard error stream.
    virtual void echo(std::string_view text);
};

}  // namespace cmn
