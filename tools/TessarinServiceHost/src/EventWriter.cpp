#include "EventWriter.h"

#include <algorithm>

#include "common/rapidjson.h"
#include "common/utf8.h"

namespace host {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

constexpr const char* kReplacement = "\xEF\xBF\xBD";

// What is no UTF-8 comes out as replacement characters.
void WriteText(Writer& writer, std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        const std::size_t length = cmn::Utf8SequenceLength(text);
        valid += length > 0 ? text.substr(0, length) : kReplacement;
        text.remove_prefix(std::max(length, std::size_t{1}));
    }
    writer.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
}

void WriteValue(Writer& writer, const EventValue& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        WriteText(writer, *text);
    } else {
        writer.Int64(std::get<std::int64_t>(value));
    }
}

}  // namespace

std::string FormatEvent(bool json, std::string_view event, const EventFields& fields) {
    if (json) {
        rapidjson::StringBuffer buffer;
        Writer writer(buffer);
        writer.StartObject();
        writer.Key("event");
        WriteText(writer, event);
        for (const auto& [name, value] : fields) {
            writer.Key(name);
            WriteValue(writer, value);
        }
        writer.EndObject();
        return {buffer.GetString(), buffer.GetSize()};
    }
    std::string line(event);
    for (const auto& [name, value] : fields) {
        rapidjson::StringBuffer buffer;
        Writer writer(buffer);
        WriteValue(writer, value);
        line += " " + std::string(name) + "=" + std::string(buffer.GetString(), buffer.GetSize());
    }
    return line;
}

EventFields ReportFields(const std::string& url, const std::string& browser, std::int32_t processID,
                         const std::optional<cmn::XPCPeer>& peer) {
    EventFields fields{{"url", url}, {"browser", browser}, {"pid", processID}};
    if (peer) {
        fields.emplace_back("user", peer->userID);
    }
    return fields;
}

void EventWriter::write(std::string_view event, const EventFields& fields) {
    const std::string line = FormatEvent(json_, event, fields) + "\n";
    const std::lock_guard lock(mutex_);
    std::fwrite(line.data(), 1, line.size(), file_);
    std::fflush(file_);
}

}  // namespace host
