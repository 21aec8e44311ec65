#include "linux_bus/Introspection.h"

#include <fmt/format.h>

namespace cmn::bus {

namespace {

constexpr const char* kDocumentType =
    "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
    "\"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n";

// The library answers it.
constexpr const char* kPeer =
    "<interface name=\"org.freedesktop.DBus.Peer\">\n<method name=\"Ping\"></method>\n"
    "<method name=\"GetMachineId\"><arg type=\"s\" direction=\"out\"/></method>\n</interface>\n";

}  // namespace

std::string DescribeMember(const char* kind, std::string_view name, const std::vector<std::string>& names,
                           const std::vector<std::string>& in, const std::vector<std::string>& out,
                           bool noReply) {
    std::string xml = fmt::format("<{} name=\"{}\">", kind, name);
    auto next = names.begin();
    const auto add = [&](const std::vector<std::string>& types, const char* direction) {
        for (const std::string& type : types) {
            const std::string named = next != names.end() ? fmt::format(" name=\"{}\"", *next++) : "";
            xml += fmt::format("<arg{} type=\"{}\" direction=\"{}\"/>", named, type, direction);
        }
    };
    add(in, std::string_view(kind) == "signal" ? "out" : "in");
    add(out, "out");
    if (noReply) {
        xml += "<annotation name=\"org.freedesktop.DBus.Method.NoReply\" value=\"true\"/>";
    }
    return xml + fmt::format("</{}>\n", kind);
}

std::string DescribeInterface(std::string_view name, std::string_view members) {
    return fmt::format("<interface name=\"{}\">\n{}</interface>\n", name, members);
}

std::string DescribeNode(std::string_view interfaces, const std::set<std::string>& below) {
    std::string xml =
        fmt::format("{}<node>\n{}{}", kDocumentType, interfaces, interfaces.empty() ? "" : kPeer);
    for (const std::string& name : below) {
        xml += fmt::format("<node name=\"{}\"/>\n", name);
    }
    return xml + "</node>\n";
}

}  // namespace cmn::bus
