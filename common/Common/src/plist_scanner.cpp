#include "plist_scanner.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <system_error>
#include <utility>

namespace cmn {

namespace {

constexpr std::string_view kCdataBegin = "<![CDATA[";
constexpr std::string_view kCdataEnd = "]]>";
constexpr std::string_view kBlanks = " \t\r\n";

void AppendUtf8(std::string& out, std::uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
        return;
    }
    const int more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    constexpr std::array<std::uint32_t, 4> kLead{0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kLead[static_cast<std::size_t>(more)] | (code >> (6 * more)));
    for (int i = more - 1; i >= 0; --i)
        out += static_cast<char>(0x80 | ((code >> (6 * i)) & 0x3F));
}

// Appends what "&name;" stands for; an unknown name stays as it is.
void AppendEntity(std::string& out, std::string_view name) {
    constexpr std::array<std::pair<std::string_view, char>, 5> kNamed{
        {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}}};
    for (const auto& [entity, character] : kNamed) {
        if (name == entity) {
            out += character;
            return;
        }
    }
    if (name.starts_with('#')) {
        const bool hex = name.size() > 1 && name[1] == 'x';
        const auto digits = name.substr(hex ? 2 : 1);
        std::uint32_t code = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), code, hex ? 16 : 10);
        const bool character = code != 0 && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
        if (error == std::errc() && end == digits.data() + digits.size() && character) {
            AppendUtf8(out, code);
            return;
        }
    }
    out.append("&").append(name).append(";");
}

std::string ResolveEntities(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto begin = text.find('&');
        out += text.substr(0, begin);
        if (begin == std::string_view::npos)
            break;
        text.remove_prefix(begin + 1);
        const auto end = text.find(';');
        if (end == std::string_view::npos) {
            out.append("&").append(text);
            break;
        }
        AppendEntity(out, text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return out;
}

}  // namespace

PlistScanner::Token PlistScanner::stop() {
    rest_ = {};
    return {Kind::end, {}};
}

// Skips a construct of that form. An unclosed one ends the text.
bool PlistScanner::passOver(std::string_view begin, std::string_view end) {
    if (!rest_.starts_with(begin))
        return false;
    const auto close = rest_.find(end, begin.size());
    rest_.remove_prefix(close == std::string_view::npos ? rest_.size() : close + end.size());
    return true;
}

PlistScanner::Token PlistScanner::next() {
    if (!pendingClose_.empty())
        return {Kind::close, std::exchange(pendingClose_, {})};
    while (!rest_.empty()) {
        if (rest_.front() != '<') {
            const auto text = rest_.substr(0, rest_.find('<'));
            rest_.remove_prefix(text.size());
            return {Kind::text, ResolveEntities(text)};
        }
        if (rest_.starts_with(kCdataBegin)) {
            const auto close = rest_.find(kCdataEnd);
            if (close == std::string_view::npos)
                return stop();
            const auto text = rest_.substr(kCdataBegin.size(), close - kCdataBegin.size());
            rest_.remove_prefix(close + kCdataEnd.size());
            return {Kind::text, std::string(text)};
        }
        if (!passOver("<!--", "-->") && !passOver("<?", "?>") && !passOver("<!", ">"))
            return tag();
    }
    return stop();
}

PlistScanner::Token PlistScanner::tag() {
    const auto end = rest_.find('>');
    if (end == std::string_view::npos)
        return stop();
    auto inside = rest_.substr(1, end - 1);
    rest_.remove_prefix(end + 1);
    const bool close = inside.starts_with('/');
    if (close)
        inside.remove_prefix(1);
    const bool empty = !close && inside.ends_with('/');
    if (empty)
        inside.remove_suffix(1);
    std::string name(inside.substr(0, inside.find_first_of(kBlanks)));
    if (name.empty())
        return stop();
    if (empty)
        pendingClose_ = name;
    return {close ? Kind::close : Kind::open, std::move(name)};
}

std::optional<std::string> PlistScanner::textOfElement() {
    std::string text;
    for (auto token = next(); token.kind == Kind::text || token.kind == Kind::close; token = next()) {
        if (token.kind == Kind::close)
            return text;
        text += token.text;
    }
    return std::nullopt;
}

}  // namespace cmn
