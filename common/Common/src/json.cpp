#include "common/json.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "common/make_error.h"
#include "read_all.h"

namespace cmn::detail {

void ThrowJsonAssertion(const char* condition) {
    throw_with_trace(JsonException(std::string("json parse error ") + condition, {}));
}

}  // namespace cmn::detail

namespace cmn::proto {

namespace detail {

namespace {

constexpr std::size_t kPoolChunk = 65'536;
constexpr std::size_t kParseStack = 1'024;
constexpr std::size_t kMaxRecursion = 500;  // levels; a secondary thread's stack may be small

// A document whose parsing ends as terminated below the deepest level allowed.
class ShallowDocument : public rapidjson::Document {
 public:
    explicit ShallowDocument(rapidjson::MemoryPoolAllocator<>& allocator)
        : rapidjson::Document(&allocator, kParseStack) {}

    rapidjson::ParseResult parseInsitu(char* text) {
        rapidjson::InsituStringStream stream(text);
        rapidjson::Reader reader;
        const auto generate = [&](auto&) -> bool {
            return !reader.Parse<rapidjson::kParseInsituFlag>(stream, *this).IsError();
        };
        Populate(generate);
        return {reader.GetParseErrorCode(), reader.GetErrorOffset()};
    }

    // What the reader calls.
    bool StartArray() { return enter() && rapidjson::Document::StartArray(); }
    bool EndArray(rapidjson::SizeType count) { return leave() && rapidjson::Document::EndArray(count); }
    bool StartObject() { return enter() && rapidjson::Document::StartObject(); }
    bool EndObject(rapidjson::SizeType count) { return leave() && rapidjson::Document::EndObject(count); }

 private:
    bool enter() { return ++depth_ <= kMaxRecursion; }
    bool leave() {
        --depth_;
        return true;
    }

    std::size_t depth_ = 0;
};

}  // namespace

ParsedText::ParsedText(std::string json)
    : parsed_(std::move(json)), allocator_(kPoolChunk), document_(&allocator_, kParseStack) {
    if (parsed_.find('\\') != std::string::npos || parsed_.find('\0') != std::string::npos)
        original_ = parsed_;
    // The recursive parser is the one whose error codes are known outside, but deep nesting overflows its
    // stack.
    ShallowDocument shallow(allocator_);
    auto result = shallow.parseInsitu(parsed_.data());
    if (result.Code() == rapidjson::kParseErrorTermination) {
        parsed_ = text();
        constexpr unsigned kFlags = rapidjson::kParseInsituFlag | rapidjson::kParseIterativeFlag;
        document_.ParseInsitu<kFlags>(parsed_.data());
        result = {document_.GetParseError(), document_.GetErrorOffset()};
    } else {
        document_.Swap(shallow);
    }
    if (result.IsError()) {
        throw_with_trace(JsonException(
            fmt::format("Invalid json -- err: {} offs: {}", static_cast<int>(result.Code()), result.Offset()),
            text()));
    }
}

std::string ParsedText::text() const {
    if (original_)
        return *original_;
    // Without escapes the parser writes nothing but a NUL in place of the quote behind each string.
    auto text = parsed_;
    std::replace(text.begin(), text.end(), '\0', '"');
    return text;
}

void ParsedText::throwMalformed() const {
    throw_with_trace(JsonException("JsonToObjectImpl", text()));
}

std::vector<unsigned char> ReadAll(std::ifstream& in) {
    std::vector<unsigned char> bytes;
    if (!cmn::ReadAll(in, bytes, 0, kMaxJsonFile))
        throw_with_trace(std::runtime_error("failed to read stream"));
    if (bytes.size() > kMaxJsonFile)
        throw_with_trace(make_error("larger than ", kMaxJsonFile, " bytes"));
    return bytes;
}

}  // namespace detail

std::string JsonEscaped(const std::string& text) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    return {buffer.GetString() + 1, buffer.GetSize() - 2};
}

void fromJson(const rapidjson::Value& value, std::string& out) {
    if (value.IsNull())
        out.clear();
    else
        out.assign(value.GetString(), value.GetStringLength());
}

void fromJson(const rapidjson::Value& value, std::int32_t& out) {
    if (value.IsInt())
        out = value.GetInt();
    else
        out = value.IsString() ? std::stoi(value.GetString()) : 0;
}

void fromJson(const rapidjson::Value& value, std::uint64_t& out) {
    if (value.IsUint64()) {
        out = value.GetUint64();
    } else if (value.IsString()) {
        // Signed first, because the unsigned conversion wraps a negative number around. What is too large for
        // it stays at the signed maximum, which is not negative.
        const bool negative = std::strtoll(value.GetString(), nullptr, 10) < 0;
        out = negative ? 0 : std::stoull(value.GetString());
    } else {
        out = 0;
    }
}

void fromJson(const rapidjson::Value& value, bool& out) {
    if (value.IsNull()) {
        out = false;
    } else if (value.IsInt()) {
        out = value.GetInt() != 0;
    } else if (value.IsBool()) {
        out = value.GetBool();
    } else if (value.IsString()) {
        const std::string text(value.GetString(), value.GetStringLength());
        if (text != "true" && text != "false")
            throw_with_trace(make_error("Unexpected string value (", text, ") for bool type"));
        out = text == "true";
    } else {
        throw_with_trace(make_error("Unexpected type for bool value"));
    }
}

void fromJson(const rapidjson::Value& value, std::vector<std::string>& out) {
    if (value.IsArray()) {
        arrayFromJson(value, out);
    } else if (value.IsString()) {
        out.clear();
        std::string_view text(value.GetString(), value.GetStringLength());
        for (auto end = text.find(';'); end != std::string_view::npos; end = text.find(';')) {
            out.emplace_back(text.substr(0, end));
            text.remove_prefix(end + 1);
        }
        out.emplace_back(text);
    }
}

void fromJson(const rapidjson::Value& value, std::optional<std::vector<std::string>>& out) {
    if (value.IsNull())
        out.reset();
    else
        arrayFromJson(value, out.emplace());
}

void toJson(PrettyWriter& writer, const std::string& value) {
    writer.String(value.c_str());
}
void toJson(PrettyWriter& writer, std::int32_t value) {
    writer.Int(value);
}
void toJson(PrettyWriter& writer, std::uint64_t value) {
    writer.Uint64(value);
}
void toJson(PrettyWriter& writer, bool value) {
    writer.Bool(value);
}

}  // namespace cmn::proto
