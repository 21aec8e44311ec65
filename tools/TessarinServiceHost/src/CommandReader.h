#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace host {

// Cuts a byte stream into command lines. Incomplete lines wait for their end; an overlong one is given up.
class CommandReader {
 public:
    static constexpr std::size_t kLongestLine = 65536;

    // `onLine` gets each line without its end and without surrounding blanks, empty ones not.
    explicit CommandReader(std::function<void(const std::string& line)> onLine);

    void feed(std::string_view bytes);
    // The stream has ended: an unfinished line counts.
    void finish();

 private:
    void endLine();

    const std::function<void(const std::string&)> onLine_;
    std::string line_;
    bool overlong_ = false;
};

}  // namespace host
