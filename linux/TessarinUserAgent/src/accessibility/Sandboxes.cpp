#include "accessibility/Sandboxes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string_view>

#include "common/ScopedAction.h"
#include "common/rapidjson.h"

namespace useragent {
namespace {

constexpr const char* kProxy = "xdg-dbus-proxy";
constexpr const char* kSandboxInfo = "root/.flatpak-info";

// They stand between a sandbox and its main program.
constexpr std::array<std::string_view, 4> kWrappers{"bash", "bwrap", "dash", "sh"};
constexpr int kMostWrappers = 16;

// The beginning of a regular file, which is all there is of those that are read here; empty when it cannot be
// read. Whoever made it is not trusted: no link is followed and nothing is waited for.
std::string ReadSmallFile(const std::filesystem::path& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (file < 0) {
        return {};
    }
    const cmn::ScopedAction close([&] { ::close(file); });
    struct stat facts {};
    std::array<char, 16384> bytes{};
    if (::fstat(file, &facts) != 0 || !S_ISREG(facts.st_mode)) {
        return {};
    }
    const ssize_t count = ::read(file, bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

std::optional<std::int32_t> ProcessId(std::string_view text) {
    std::int32_t pid = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
    return error == std::errc() && end == text.data() + text.size() && pid > 0 ? std::optional(pid)
                                                                               : std::nullopt;
}

// The file's fields are: id, name in brackets, state, parent.
std::int32_t ParentIn(const std::string& stat) {
    std::istringstream fields(stat.substr(std::min(stat.rfind(')'), stat.size() - 1) + 1));
    std::string state;
    std::int32_t parent = 0;
    fields >> state >> parent;
    return parent;
}

}  // namespace

Sandboxes::Places Sandboxes::PlacesOfThisSession() {
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    const std::filesystem::path runtime =
        folder != nullptr && *folder != '\0' ? folder : "/run/user/" + std::to_string(::getuid());
    return {"/proc", runtime / ".flatpak"};
}

bool Sandboxes::isProxy(std::int32_t pid) const {
    return nameOf(pid) == kProxy;
}

std::int32_t Sandboxes::programBehind(std::int32_t proxy, const std::vector<std::int32_t>& wanted) const {
    const std::string sandbox = sandboxOf(proxy);
    if (sandbox.empty()) {
        return 0;
    }
    const auto found = std::find_if(wanted.begin(), wanted.end(),
                                    [&](std::int32_t pid) { return sandboxOf(pid) == sandbox; });
    return found != wanted.end() ? *found : mainProgramOf(sandbox);
}

std::string Sandboxes::sandboxOf(std::int32_t pid) const {
    constexpr std::string_view kKey = "instance-id=";
    std::istringstream lines(ReadSmallFile(fileOf(pid, kSandboxInfo)));
    for (std::string line; std::getline(lines, line);) {
        // A number: it becomes a part of a path.
        if (line.starts_with(kKey) &&
            line.find_first_not_of("0123456789", kKey.size()) == std::string::npos) {
            return line.substr(kKey.size());
        }
    }
    return {};
}

std::int32_t Sandboxes::mainProgramOf(const std::string& sandbox) const {
    rapidjson::Document info;
    info.Parse(ReadSmallFile(places_.instances / sandbox / "bwrapinfo.json").c_str());
    if (info.HasParseError() || !info.IsObject() || !info.HasMember("child-pid") ||
        !info["child-pid"].IsInt()) {
        return 0;
    }
    std::int32_t program = info["child-pid"].GetInt();
    if (sandboxOf(program) != sandbox) {
        return 0;  // a file of a sandbox that is gone, and a process that has the number now
    }
    for (int i = 0; i < kMostWrappers; ++i) {
        const std::string name = nameOf(program);
        const bool isWrapper = std::find(kWrappers.begin(), kWrappers.end(), name) != kWrappers.end();
        const std::int32_t child = isWrapper ? firstChildOf(program) : 0;
        if (child == 0) {
            break;
        }
        program = child;
    }
    return program;
}

std::int32_t Sandboxes::firstChildOf(std::int32_t pid) const {
    std::int32_t first = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(places_.processes, error), end; !error && entry != end;
         entry.increment(error)) {
        const auto candidate = ProcessId(entry->path().filename().native());
        if (candidate && (first == 0 || *candidate < first) &&
            ParentIn(ReadSmallFile(fileOf(*candidate, "stat"))) == pid) {
            first = *candidate;
        }
    }
    return first;
}

std::string Sandboxes::nameOf(std::int32_t pid) const {
    const std::string name = ReadSmallFile(fileOf(pid, "comm"));
    return name.substr(0, name.find('\n'));
}

std::filesystem::path Sandboxes::fileOf(std::int32_t pid, const char* file) const {
    return places_.processes / std::to_string(pid) / file;
}

}  // namespace useragent
