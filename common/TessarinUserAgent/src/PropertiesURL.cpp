#include "useragent/PropertiesURL.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/utf8.h"

namespace useragent {

namespace {

constexpr std::string_view kPrefix = "tessarin-scheme://";
constexpr std::string_view kHost = "showProperties";
constexpr std::string_view kPathItem = "path";

int HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Nothing for a broken escape and for a NUL, which no path can hold.
std::optional<std::string> PercentDecoded(std::string_view text) {
    std::string decoded;
    while (!text.empty()) {
        if (text.front() == '%') {
            const int high = text.size() > 2 ? HexValue(text[1]) : -1;
            const int low = text.size() > 2 ? HexValue(text[2]) : -1;
            if (high < 0 || low < 0) {
                return std::nullopt;
            }
            decoded += static_cast<char>(high * 16 + low);
            text.remove_prefix(3);
        } else {
            decoded += text.front();
            text.remove_prefix(1);
        }
        if (decoded.back() == '\0') {
            return std::nullopt;
        }
    }
    return decoded;
}

// The text up to the first of the separators, which is removed with it.
std::string_view TakeUntil(std::string_view& text, std::string_view separators) {
    const std::size_t end = std::min(text.find_first_of(separators), text.size());
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(end);
    return taken;
}

bool TakePrefix(std::string_view& text, std::string_view prefix) {
    const bool found = text.starts_with(prefix);
    text.remove_prefix(found ? prefix.size() : 0);
    return found;
}

// The part of the authority that names a machine: without user and port.
std::string_view HostOf(std::string_view authority) {
    const std::size_t user = authority.rfind('@');
    if (user != std::string_view::npos) {
        authority.remove_prefix(user + 1);
    }
    return authority.substr(0, authority.find(':'));
}

}  // namespace

std::optional<PropertiesRequest> ParsePropertiesURL(std::string_view url) {
    if (url.size() > kLongestPropertiesURL || !TakePrefix(url, kPrefix) ||
        HostOf(TakeUntil(url, "/?#")) != kHost) {
        return std::nullopt;
    }
    TakeUntil(url, "?#");
    PropertiesRequest request;
    if (!url.starts_with('?')) {
        return request;
    }
    url.remove_prefix(1);
    std::string_view query = TakeUntil(url, "#");
    bool found = false;
    while (!query.empty()) {
        std::string_view item = TakeUntil(query, "&");
        TakePrefix(query, "&");
        const auto name = PercentDecoded(TakeUntil(item, "="));
        const bool hasValue = TakePrefix(item, "=");
        auto value = PercentDecoded(item);
        if (!name || !value) {
            return std::nullopt;
        }
        if (!found && *name == kPathItem) {
            found = true;
            if (hasValue) {
                request.path = std::move(*value);
            }
        }
    }
    return request;
}

std::string PropertiesURLOf(std::string_view path) {
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._~/-";
    std::string url = fmt::format("{}{}?{}=", kPrefix, kHost, kPathItem);
    for (const char byte : path) {
        url += kPlain.find(byte) != std::string_view::npos
                   ? std::string(1, byte)
                   : fmt::format("%{:02X}", static_cast<unsigned char>(byte));
    }
    return url;
}

std::string TextOfURL(std::string_view url) {
    std::string text;
    while (!url.empty()) {
        const std::size_t length = cmn::Utf8SequenceLength(url);
        if (length == 0) {
            text += fmt::format("%{:02X}", static_cast<unsigned char>(url.front()));
        }
        text += url.substr(0, length);
        url.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return text;
}

}  // namespace useragent
