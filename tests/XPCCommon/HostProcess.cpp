#include "HostProcess.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

namespace {

// The one that was built with the tests, unless the environment names another.
std::string HostProgram() {
    const char* program = ::getenv("TESSARIN_SERVICE_HOST");
    return program != nullptr ? program : TESSARIN_SERVICE_HOST;
}

std::string WriteSettings(const std::filesystem::path& folder) {
    const std::filesystem::path file = folder / "settings.json";
    std::ofstream(file) << R"({"LogLevel": "Trace", "Products": [{"Name": "Host", "InstallPath": ")"
                        << folder.string() << R"(", "NativeName": "TessarinServiceHost"}]})";
    return file.string();
}

}  // namespace

HostProcess::HostProcess(const std::string& busAddress, std::vector<std::string> arguments,
                         const std::string& folder)
    : process_(
          [&] {
              if (std::find(arguments.begin(), arguments.end(), "--settings") == arguments.end()) {
                  arguments.insert(arguments.begin(), {"--settings", WriteSettings(folder_.path())});
              }
              arguments.insert(arguments.begin(), HostProgram());
              return arguments;
          }(),
          {{"DBUS_SYSTEM_BUS_ADDRESS", busAddress},
           {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus"}},
          folder) {}

std::vector<std::string> HostProcess::serviceLog() const {
    return fake::ReadLines(folder_ / "com.tessarin.finderExtension_0.log");
}

rapidjson::Document HostProcess::event(std::chrono::milliseconds timeout) {
    rapidjson::Document document;
    if (const auto line = process_.readLine(timeout)) {
        document.Parse<rapidjson::kParseValidateEncodingFlag>(line->data(), line->size());
    }
    return document;
}

rapidjson::Document HostProcess::event(const std::string& name) {
    for (;;) {
        rapidjson::Document document = event();
        if (!document.IsObject() || document["event"].GetString() == name) {
            return document;
        }
    }
}
