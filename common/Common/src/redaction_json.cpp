#include <algorithm>
#include <array>
#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <locale>
#include <utility>
#include <vector>

#include "DecodedText.h"
#include "common/Redaction.h"
#include "common/json.h"

namespace cmn {

namespace {

// Of the settings, by where they stand. A value of another key may be anything.
constexpr std::array<std::string_view, 6> kHarmlessTexts{"Platform",
                                                         "LogLevel",
                                                         "Products[].Name",
                                                         "Products[].Version",
                                                         "Products[].NativeName",
                                                         "Products[].LastFailedVersion"};
constexpr std::array<std::string_view, 11> kHarmlessNumbers{
    "UpdaterTimeout",     "RateLimitTimeout",   "ScanRootFolderType",   "ScanThreadCount",
    "ScanFileMaxSize",    "DelayScanTimeout",   "DelaySendReceive",     "RepeatIterationTimeout",
    "PollFiltersTimeout", "StatisticsFileSize", "StatisticsSendTimeout"};

constexpr std::size_t kLeastLearned = 4;

template <class List>
bool Has(const List& list, std::string_view text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

// By what the key is called.
SecretKind KindOf(std::string_view place) {
    constexpr std::array<std::pair<std::string_view, SecretKind>, 11> kWords{{
        {"uuid", SecretKind::uuid},
        {"password", SecretKind::password},
        {"url", SecretKind::address},
        {"user", SecretKind::user},
        {"key", SecretKind::key},
        {"path", SecretKind::path},
        {"root", SecretKind::path},
        {"folder", SecretKind::path},
        {"file", SecretKind::path},
        {"devicename", SecretKind::host},
        {"id", SecretKind::uuid},
    }};
    const std::string key = boost::algorithm::to_lower_copy(std::string(place.substr(place.rfind('.') + 1)),
                                                            std::locale::classic());
    const auto* const found = std::find_if(kWords.begin(), kWords.end(), [&](const auto& one) {
        return boost::algorithm::contains(key, one.first);
    });
    return found != kWords.end() ? found->second : SecretKind::text;
}

// The name of the machine in an address.
std::string_view HostOf(std::string_view address) {
    const auto begin = address.find("://");
    if (begin == std::string_view::npos)
        return {};
    std::string_view host = address.substr(begin + 3);
    host = host.substr(0, host.find_first_of("/?#"));
    host.remove_prefix(host.rfind('@') + 1);
    return host.substr(0, host.find(':'));
}

// Of a file that was not instanced yet: it tells nothing.
bool IsTemplate(std::string_view text) {
    return text.starts_with("${") && text.find('}') == text.size() - 1;
}

// What seem to be values in a text that is no JSON.
std::vector<std::string> TextsOfBroken(std::string_view json) {
    constexpr std::size_t kLeast = 6;
    std::vector<std::string> texts;
    for (auto begin = json.find('"'); begin != std::string_view::npos; begin = json.find('"', begin + 1)) {
        const auto before = json.substr(0, begin).find_last_not_of(" \t\r\n");
        auto end = begin + 1;
        while (end < json.size() && json[end] != '"' && json[end] != '\n')
            end += json[end] == '\\' ? 2 : 1;
        end = std::min(end, json.size());
        const bool isValue = before != std::string_view::npos && json[before] == ':';
        if (isValue && end - begin > kLeast)
            texts.emplace_back(DecodedText(json.substr(begin + 1, end - begin - 1)).bytes);
        begin = std::min(end, json.size() - 1);
    }
    return texts;
}

}  // namespace

// Writes a document again without what is to be taken out.
class Redaction::Json {
 public:
    Json(Redaction& redaction, bool isSettings) : redaction_(redaction), isSettings_(isSettings) {}

    std::string rewritten(const std::string& json) {
        const proto::detail::ParsedText parsed(json);
        // First all of them, so that a value does not stand under a key that comes before it.
        if (isSettings_)
            learn(parsed.root(), {});
        write(parsed.root(), {});
        return {buffer_.GetString(), buffer_.GetSize()};
    }

 private:
    static std::string_view TextOf(const rapidjson::Value& value) {
        return {value.GetString(), value.GetStringLength()};
    }
    static std::string DigitsOf(const rapidjson::Value& value) {
        return value.IsUint64() ? std::to_string(value.GetUint64()) : std::to_string(value.GetDouble());
    }
    static std::string Below(const std::string& place, std::string_view key) {
        return place.empty() ? std::string(key) : place + "." + std::string(key);
    }
    static bool Stays(std::string_view text, const std::string& place) {
        return text.empty() || IsTemplate(text) || Has(kHarmlessTexts, place);
    }

    void learn(const rapidjson::Value& value, const std::string& place) {
        if (value.IsObject()) {
            for (const auto& member : value.GetObject())
                learn(member.value, Below(place, TextOf(member.name)));
        } else if (value.IsArray()) {
            for (const auto& element : value.GetArray())
                learn(element, place + "[]");
        } else if (value.IsString() && !Stays(TextOf(value), place)) {
            learn(KindOf(place), TextOf(value));
            redaction_.addSecret(SecretKind::host, HostOf(TextOf(value)));
        } else if (value.IsNumber() && !Has(kHarmlessNumbers, place)) {
            learn(KindOf(place), DigitsOf(value));
        }
    }
    // A short one would be taken out of half the log, so it has to be worth that.
    void learn(SecretKind kind, std::string_view text) {
        const bool isNameOrKey = kind == SecretKind::password || kind == SecretKind::key ||
                                 kind == SecretKind::user || kind == SecretKind::host;
        if (text.size() >= kLeastLearned || (isNameOrKey && text != "0"))
            redaction_.addSecret(kind, text);
    }

    void write(const rapidjson::Value& value, const std::string& place) {
        if (value.IsObject()) {
            writer_.StartObject();
            for (const auto& member : value.GetObject()) {
                const std::string key = redaction_.text(TextOf(member.name));
                writer_.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
                write(member.value, Below(place, TextOf(member.name)));
            }
            writer_.EndObject();
        } else if (value.IsArray()) {
            writer_.StartArray();
            for (const auto& element : value.GetArray())
                write(element, place + "[]");
            writer_.EndArray();
        } else if (value.IsString()) {
            writeText(TextOf(value), place);
        } else if (value.IsNumber() && isSettings_ && !Has(kHarmlessNumbers, place)) {
            put(redaction_.placeholder(KindOf(place), DigitsOf(value)));
        } else {
            value.Accept(writer_);
        }
    }

    void writeText(std::string_view text, const std::string& place) {
        const bool goes = isSettings_ && !Stays(text, place);
        put(goes               ? redaction_.placeholder(KindOf(place), text)
            : IsTemplate(text) ? std::string(text)
                               : redaction_.text(text));
    }
    void put(const std::string& text) {
        writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    }

    Redaction& redaction_;
    const bool isSettings_;
    rapidjson::StringBuffer buffer_;
    proto::PrettyWriter writer_{buffer_};
};

std::string Redaction::settings(const std::string& json) {
    try {
        return Json(*this, true).rewritten(json);
    } catch (const JsonException&) {
        // The logs may repeat what is in it all the same.
        for (const std::string& text : TextsOfBroken(json))
            addSecret(SecretKind::text, text);
        throw;
    }
}

std::string Redaction::report(const std::string& json) {
    return Json(*this, false).rewritten(json);
}

}  // namespace cmn
