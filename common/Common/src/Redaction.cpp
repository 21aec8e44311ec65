#include "common/Redaction.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <locale>
#include <utility>

#include "LogLines.h"
#include "SecretSearch.h"

namespace cmn {

namespace {

// What is longer is not looked through but goes as a whole.
constexpr std::size_t kLongestRecord = std::size_t{4} * 1024 * 1024;

const char* NameOf(SecretKind kind) {
    switch (kind) {
        case SecretKind::address:
            return "address";
        case SecretKind::host:
            return "host";
        case SecretKind::key:
            return "key";
        case SecretKind::password:
            return "password";
        case SecretKind::path:
            return "path";
        case SecretKind::user:
            return "user";
        case SecretKind::uuid:
            return "uuid";
        default:
            return "text";
    }
}

}  // namespace

Redaction::Redaction() : known_(std::make_unique<KnownTexts>()) {}

Redaction::~Redaction() = default;

void Redaction::addSecret(SecretKind kind, std::string_view text) {
    if (text.empty())
        return;
    KnownTexts::Secret secret{kind,
                              boost::algorithm::to_lower_copy(std::string(text), std::locale::classic())};
    auto& secrets = known_->secrets;
    const auto isSame = [&](const KnownTexts::Secret& other) { return other.text == secret.text; };
    if (std::none_of(secrets.begin(), secrets.end(), isSame)) {
        const auto isShorter = [&](const KnownTexts::Secret& other) {
            return other.text.size() < secret.text.size();
        };
        secrets.insert(std::find_if(secrets.begin(), secrets.end(), isShorter), std::move(secret));
    }
}

void Redaction::keep(std::string_view text) {
    if (!text.empty())
        known_->kept.emplace(text);
}

// Equal but for case, and for what UUIDs are written with, is the same. A text that was known beforehand is
// of the kind that it was said to be.
std::string Redaction::placeholder(SecretKind kind, std::string_view text) {
    std::string same = boost::algorithm::to_lower_copy(std::string(text), std::locale::classic());
    const auto& secrets = known_->secrets;
    const auto known = std::find_if(secrets.begin(), secrets.end(),
                                    [&](const KnownTexts::Secret& secret) { return secret.text == same; });
    kind = known != secrets.end() ? known->kind : kind;
    if (kind == SecretKind::uuid)
        std::erase_if(same, [](char c) { return c == '-' || c == '{' || c == '}'; });
    auto& number = numbers_[{kind, std::move(same)}];
    if (number == 0)
        number = ++counts_[kind];
    return fmt::format("<{}-{}>", NameOf(kind), number);
}

std::string Redaction::replaced(std::string_view text, std::optional<SecretKind> opening) {
    if (text.size() > kLongestRecord)
        return placeholder(SecretKind::text, text);
    std::string result;
    std::size_t done = 0;
    for (const FoundSecret& secret : SecretSearch(text, *known_).find(opening)) {
        if (secret.begin > done)
            result += text.substr(done, secret.begin - done);
        result += placeholder(secret.kind, secret.text);
        done = std::max(done, secret.end);
    }
    return result.append(text.substr(done));
}

std::string Redaction::text(std::string_view text) {
    return replaced(text, std::nullopt);
}

void Redaction::addRecord(std::string_view record, std::string& redacted) {
    const LogLine line = LookAtLogLine(record);
    std::size_t end = record.size() - (record.ends_with('\n') ? 1 : 0);
    // Not where the line goes on.
    end -= record.find('\n') >= end ? line.tail : 0;
    redacted += record.substr(0, line.body);
    const std::string_view body = record.substr(line.body, end - line.body);
    if (line.isHead)
        redacted += replaced(body, line.kind);
    else if (!body.empty())  // of a line that was not seen
        redacted += placeholder(SecretKind::text, body);
    redacted += record.substr(end);
}

std::string Redaction::log(std::string_view text) {
    std::string redacted;
    while (!text.empty()) {
        std::size_t end = 0;
        // Up to the next line that begins one of the log's.
        do
            end = std::min(text.find('\n', end), text.size() - 1) + 1;
        while (end < text.size() && !LookAtLogLine(text.substr(end)).isHead);
        addRecord(text.substr(0, end), redacted);
        text.remove_prefix(end);
    }
    return redacted;
}

}  // namespace cmn
