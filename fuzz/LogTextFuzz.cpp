// A foreign text in a line of the log is one line of UTF-8 that tells a terminal nothing. What support is
// sent of a log, of a report or of settings never holds what was named as a secret.

#include <algorithm>
#include <stdexcept>
#include <string>

#include "Check.h"
#include "PathForLog.h"
#include "common/Redaction.h"
#include "common/exceptions.h"
#include "common/utf8.h"

namespace {

constexpr std::string_view kSecret = "correcthorsebattery";
constexpr std::size_t kLongestForLog = 1024;

bool IsHarmless(std::string_view text) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    return cmn::IsValidUtf8(text) && std::none_of(text.begin(), text.end(), isControl) &&
           text.find("\u2028") == std::string_view::npos && text.find("\u202e") == std::string_view::npos &&
           text.find("\u0085") == std::string_view::npos;
}

template <typename Redact>
void CheckRedaction(const Redact& redact) {
    cmn::Redaction redaction;
    redaction.addSecret(cmn::SecretKind::password, kSecret);
    try {
        Check(redact(redaction).find(kSecret) == std::string::npos);
    } catch (const JsonException&) {
        // It is no JSON.
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string text(AsText(data, size));
    const std::string escaped = cmn::EscapeControls(text);
    Check(IsHarmless(escaped) && cmn::EscapeControls(escaped) == escaped);
    Check(escaped.size() >= text.size() && (escaped == text || escaped.size() > text.size()));
    const std::string path = host::PathForLog(text);
    Check(IsHarmless(path) && path.size() <= kLongestForLog);

    CheckRedaction([&](cmn::Redaction& redaction) { return redaction.log(text); });
    CheckRedaction([&](cmn::Redaction& redaction) { return redaction.text(text); });
    CheckRedaction([&](cmn::Redaction& redaction) { return redaction.report(text); });
    CheckRedaction([&](cmn::Redaction& redaction) { return redaction.settings(text); });
    return 0;
}
