#include "HostOptions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <optional>
#include <system_error>
#include <utility>

namespace host {

namespace {

constexpr std::array<const char*, 6> kLevelNames{"Silent", "Error", "Warn", "Info", "Debug", "Trace"};

// The value of an option, as "--name value" or "--name=value"; moves `index` to the last argument used.
bool TakeValue(const std::vector<std::string>& arguments, std::size_t& index, const std::string& name,
               std::string& value) {
    const std::string& argument = arguments[index];
    if (argument.starts_with(name + "=")) {
        value = argument.substr(name.size() + 1);
        return true;
    }
    if (argument != name || index + 1 == arguments.size()) {
        return false;
    }
    value = arguments[++index];
    return true;
}

// Not more than a scan can hold in memory.
constexpr std::size_t kLargestScanLimit = std::size_t{1} << 30;

constexpr std::size_t kMostScanSeconds = 3'600;

// Nothing unless the text is a whole number from 1 to `most`.
std::optional<std::size_t> ParseNumber(const std::string& text, std::size_t most) {
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool valid =
        error == std::errc() && end == text.data() + text.size() && number > 0 && number <= most;
    return valid ? std::optional(number) : std::nullopt;
}

}  // namespace

std::variant<HostOptions, HelpWanted, BadArguments> ParseOptions(const std::vector<std::string>& arguments) {
    HostOptions options;
    SettingsTemplate from;
    bool makesSettings = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string value;
        if (arguments[i] == "--help" || arguments[i] == "-h") {
            return HelpWanted{};
        }
        if (arguments[i] == "--json") {
            options.json = true;
        } else if (TakeValue(arguments, i, "--bus", value)) {
            if (value != "system" && value != "session") {
                return BadArguments{"--bus takes \"system\" or \"session\", not \"" + value + "\""};
            }
            options.bus = value == "system" ? HostBus::system : HostBus::session;
        } else if (TakeValue(arguments, i, "--log-file", value)) {
            options.logFile = value;
        } else if (TakeValue(arguments, i, "--log-level", value)) {
            if (std::find(kLevelNames.begin(), kLevelNames.end(), value) == kLevelNames.end()) {
                return BadArguments{"--log-level takes Silent, Error, Warn, Info, Debug or Trace, not \"" +
                                    value + "\""};
            }
            options.logLevel = LogLevelFromString(value);
        } else if (TakeValue(arguments, i, "--settings", value)) {
            options.settingsFile = value;
        } else if (TakeValue(arguments, i, "--make-settings", value)) {
            from.file = value;
            makesSettings = true;
        } else if (TakeValue(arguments, i, "--installation-key", value)) {
            from.installationKey = value;
        } else if (TakeValue(arguments, i, "--scan-root", value)) {
            from.scanRoot = value;
        } else if (TakeValue(arguments, i, "--device-uuid", value)) {
            from.deviceUuid = value;
        } else if (TakeValue(arguments, i, "--classifiers", value)) {
            options.scanner.classifiers = value;
        } else if (TakeValue(arguments, i, "--records", value)) {
            options.scanner.records = value;
        } else if (TakeValue(arguments, i, "--full-disk-access-folder", value)) {
            options.fullDiskAccessFolder = value;
        } else if (TakeValue(arguments, i, "--scan-limit", value)) {
            const auto bytes = ParseNumber(value, kLargestScanLimit);
            if (!bytes) {
                return BadArguments{"--scan-limit takes a number of bytes from 1 to 1073741824, not \"" +
                                    value + "\""};
            }
            options.scanner.scanLimit = *bytes;
        } else if (TakeValue(arguments, i, "--scan-seconds", value)) {
            const auto seconds = ParseNumber(value, kMostScanSeconds);
            if (!seconds) {
                return BadArguments{"--scan-seconds takes a number from 1 to 3600, not \"" + value + "\""};
            }
            options.scanner.limits.time = std::chrono::seconds(*seconds);
        } else {
            return BadArguments{"\"" + arguments[i] + "\" is unknown or lacks its value"};
        }
    }
    if (makesSettings) {
        options.makeSettings = std::move(from);
    }
    return options;
}

const char* HelpText() {
    return R"(Usage: TessarinServiceHost [options]

A development tool: hosts the daemon's end of the services com.tessarin.UserAgent and
com.tessarin.FinderExtension, so that the agent can be run and tested without the product's daemon.
Not part of the product.

Options:
  --bus system|session   bus to listen on (default: system); its address comes from
                         DBUS_SYSTEM_BUS_ADDRESS or DBUS_SESSION_BUS_ADDRESS when set. Linux only: on macOS
                         the host is a launch daemon, and launchd has the services' names
  --json                 write events as JSON, one object a line
  --log-file STEM        write the log to STEM_0.log, STEM_1.log instead of the standard error stream
  --log-level NAME       Silent, Error, Warn, Info (default), Debug or Trace
  --settings FILE        the product's settings (default: settings.json beside the program, else none)
  --make-settings TEMPLATE
                         make that settings file from a template, as packaging/settings.json, and end;
                         --installation-key KEY (default: empty), --scan-root FOLDER (the home of the user
                         at the console) and --device-uuid UUID (a random one) are filled in
  --classifiers FILE     what the scanner looks for in files, and the extensions that are allowed;
                         without it nothing is found
  --records FILE         fixed scan results for some paths
  --scan-limit BYTES     how much of a file is looked at (default: 1048576)
  --scan-seconds NUMBER  how long a scan may take until it ends with what it has found (default: 5)
  --full-disk-access-folder FOLDER
                         there is full disk access while this folder can be listed, looked at for each
                         question; without it the folder is the one of the product
  -h, --help             this text

Commands, one a line on the standard input (its end does not end the program):
  getURL BROWSER         ask the agent of the user whose session is active, else the one that registered
                         last, for the browser's URL, waiting at most 3 seconds
  reload                 read the settings again
  stop                   stop listening, keep running
  quit                   end; so do SIGTERM and SIGINT

Events on the standard output: ready (a service listens), lost (it does not any more: the bus or the name
is gone and is claimed again every three seconds), url (a report, with the user who sent it when that is
known), getURL (the answer to the command), reloaded, stopped, error. The Finder extension service keeps a
log of its own in the install path that the settings name for this program, else beside the program. Exit
status: 0 after quit, a signal or made settings, 1 when a name or the bus cannot be had at the start, 2 for
bad arguments, also for a file among them that cannot be used.
)";
}

}  // namespace host
