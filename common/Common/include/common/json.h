#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/rapidjson.h"

// JSON text to records and back. A record type binds itself with two functions found beside it:
//     // Reads the members it knows, leaves the others as they are.
//     void fromJson(const rapidjson::Value&, Record&);
//     // Writes one object.
//     void toJson(PrettyWriter&, const Record&);
namespace cmn::proto {

using PrettyWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

// No file beyond this size is read.
constexpr std::size_t kMaxJsonFile = std::size_t{64} * 1024 * 1024;

// The text as it stands between the quotes of a JSON string.
std::string JsonEscaped(const std::string& text);

namespace detail {

// The parsed form of a text, which it can tell for error reports. Throws JsonException "Invalid json -- ...".
class ParsedText {
 public:
    explicit ParsedText(std::string json);
    const rapidjson::Value& root() const { return document_; }
    [[noreturn]] void throwMalformed() const;

 private:
    std::string text() const;

    std::string parsed_;  // in place; strings of the document point into it
    // A copy where the parsed form does not tell the text: with escapes, or a NUL of its own.
    std::optional<std::string> original_;
    rapidjson::MemoryPoolAllocator<> allocator_;
    rapidjson::Document document_;
};

// Throws std::runtime_error when the stream cannot be read or has more than kMaxJsonFile bytes.
std::vector<unsigned char> ReadAll(std::ifstream& in);

}  // namespace detail

// Field readers. A value of a type that a reader does not take throws JsonException; see each for what it
// takes.

// Null is empty.
void fromJson(const rapidjson::Value& value, std::string& out);
// Number or decimal text, else 0.
void fromJson(const rapidjson::Value& value, std::int32_t& out);
// Number or decimal text (negative is 0), else 0.
void fromJson(const rapidjson::Value& value, std::uint64_t& out);
// Bool, number, "true", "false", null.
void fromJson(const rapidjson::Value& value, bool& out);
// Array, or text split at every ";".
void fromJson(const rapidjson::Value& value, std::vector<std::string>& out);

// Reads a JSON array, one element per entry.
template <class X>
void arrayFromJson(const rapidjson::Value& value, std::vector<X>& out) {
    out.clear();
    out.reserve(value.Size());
    for (const auto& element : value.GetArray())
        fromJson(element, out.emplace_back());
}

// A list of records.
template <class X>
void fromJson(const rapidjson::Value& value, std::vector<X>& out) {
    arrayFromJson(value, out);
}

// Null empties the optional.
template <class X>
void fromJson(const rapidjson::Value& value, std::optional<X>& out) {
    if (value.IsNull())
        out.reset();
    else
        fromJson(value, out.emplace());
}

// Null or an array.
void fromJson(const rapidjson::Value& value, std::optional<std::vector<std::string>>& out);

// Field writers.
void toJson(PrettyWriter& writer, const std::string& value);  // up to its first NUL
void toJson(PrettyWriter& writer, std::int32_t value);
void toJson(PrettyWriter& writer, std::uint64_t value);
void toJson(PrettyWriter& writer, bool value);

template <class X>
void toJson(PrettyWriter& writer, const std::vector<X>& values) {
    writer.StartArray();
    for (const auto& value : values)
        toJson(writer, value);
    writer.EndArray();
}

template <class X>
void toJson(PrettyWriter& writer, const std::optional<X>& value) {
    if (value)
        toJson(writer, *value);
    else
        writer.Null();
}

// Throws JsonException for text that is no JSON or of another shape than T; bad numbers and bools in texts
// pass as the exceptions of their conversions.
template <class T>
T JsonToObjectImpl(std::string json) {
    const detail::ParsedText text(std::move(json));
    T object{};
    try {
        fromJson(text.root(), object);
    } catch (const JsonException&) {
        text.throwMalformed();
    }
    return object;
}

template <class T>
T JsonToObject(const std::vector<unsigned char>& bytes) {
    return JsonToObjectImpl<T>(std::string(bytes.begin(), bytes.end()));
}

// Throws std::runtime_error "failed to open stream" when the stream has no open file.
template <class T>
T FileToObject(std::ifstream& in) {
    if (!in.is_open())
        throw_with_trace(std::runtime_error("failed to open stream"));
    return JsonToObject<T>(detail::ReadAll(in));
}

template <class T, class Writer = PrettyWriter>
std::string ObjectToJson(const T& object) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    toJson(writer, object);
    return {buffer.GetString(), buffer.GetSize()};
}

}  // namespace cmn::proto
