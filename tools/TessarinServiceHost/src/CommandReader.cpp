#include "CommandReader.h"

#include <boost/algorithm/string/trim.hpp>
#include <utility>

namespace host {

CommandReader::CommandReader(std::function<void(const std::string&)> onLine) : onLine_(std::move(onLine)) {}

void CommandReader::feed(std::string_view bytes) {
    for (const char byte : bytes) {
        if (byte == '\n') {
            endLine();
        } else if (line_.size() < kLongestLine) {
            line_ += byte;
        } else {
            overlong_ = true;
        }
    }
}

void CommandReader::finish() {
    endLine();
}

void CommandReader::endLine() {
    std::string line = std::exchange(line_, {});
    boost::algorithm::trim(line);
    if (!std::exchange(overlong_, false) && !line.empty()) {
        onLine_(line);
    }
}

}  // namespace host
