#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AgentCommands.h"
#include "LogRingReader.h"
#include "common/utf8.h"
#include "doctor/Installation.h"

namespace ctl {

namespace {

// Of several logs the one that was written last.
std::optional<LogRingReader> FindLog(const Surroundings& surroundings) {
    const auto stems = LogStems(surroundings.agent, surroundings.userLogs);
    const std::vector<LogRingReader> logs(stems.begin(), stems.end());
    const auto last = std::max_element(logs.begin(), logs.end(), [](const auto& a, const auto& b) {
        return a.lastWritten() < b.lastWritten();
    });
    return last->lastWritten() ? std::optional(*last) : std::nullopt;
}

// Lines for a terminal, which they must not tell anything.
class TerminalLines {
 public:
    explicit TerminalLines(std::ostream& out) : out_(out) {}

    void add(std::string_view text) {
        pending_ += text;
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = pending_.find('\n', begin)) != std::string::npos; begin = end + 1) {
            out_ << cmn::EscapeControls(std::string_view(pending_).substr(begin, end - begin)) << '\n';
        }
        pending_.erase(0, begin);
    }
    // What has no end yet.
    void flush() {
        out_ << cmn::EscapeControls(pending_);
        pending_.clear();
    }

 private:
    std::ostream& out_;
    std::string pending_;
};

}  // namespace

int Logs(const Arguments& arguments, const Surroundings& surroundings, Console& console) {
    auto log = FindLog(surroundings);
    if (!log) {
        console.err << "There is no log of the agent\n";
        return kSomethingIsWrong;
    }
    TerminalLines lines(console.out);
    const auto take = [&](const std::string& text) {
        console.columns != 0 ? lines.add(text) : static_cast<void>(console.out << text);
    };
    bool good = log->readOn(take);
    if (arguments.has("-f")) {
        console.out.flush();
        while (console.goOn()) {
            log->readOn(take);  // a file that has just gone comes back
            console.out.flush();
        }
    }
    lines.flush();
    if (!good) {
        console.err << "A file of the log cannot be read\n";
    }
    return good ? kAllIsWell : kSomethingIsWrong;
}

}  // namespace ctl
