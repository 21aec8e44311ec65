#include "HostProcess.h"

#include <utility>

HostProcess::HostProcess(const std::string& busAddress, std::vector<std::string> arguments,
                         const std::string& folder)
    : process_(
          [&] {
              arguments.insert(arguments.begin(), TESSARIN_SERVICE_HOST);
              return arguments;
          }(),
          {{"DBUS_SYSTEM_BUS_ADDRESS", busAddress},
           {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus"}},
          folder) {}

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
