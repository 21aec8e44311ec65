#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace cmn {

struct KnownTexts;

// What a text is taken out as.
enum class SecretKind { address, host, key, password, path, text, user, uuid };

// Takes out of settings, reports and logs what is nobody's business who helps with them: addresses, paths,
// names of users and machines, keys, passwords. In the place of each stands a placeholder like "<path-2>",
// the same one for the same text however it is spelled: percent-encoded, with escapes, over two lines. Where
// it cannot be told where such a text ends, more is taken out, not less. One thread.
class Redaction {
 public:
    Redaction();
    ~Redaction();
    Redaction(const Redaction&) = delete;
    Redaction& operator=(const Redaction&) = delete;

    // A text that goes wherever it stands, a short one where it is a word of its own.
    void addSecret(SecretKind kind, std::string_view text);

    // A path, or a name with dots in it, that says nothing about anybody, as those that an installation
    // makes. It stays where it stands alone; what only begins with it does not.
    void keep(std::string_view text);

    // The settings: what stays are switches, and the numbers and words of known keys. What goes is a secret
    // from then on, so settings come before what may repeat them. Throws JsonException for what is no JSON,
    // and has then learned as much as it could.
    std::string settings(const std::string& json);

    // JSON of the product's own programs: shape, numbers and switches stay. Throws JsonException.
    std::string report(const std::string& json);

    // A log of the product. Lines that go on with what the one before said share its fate.
    std::string log(std::string_view text);

    // Anything else; what follows the end of a line may still be part of what came before it.
    std::string text(std::string_view text);

 private:
    class Json;

    std::string placeholder(SecretKind kind, std::string_view text);
    // `opening`: of what kind the text is from its beginning, if that is known.
    std::string replaced(std::string_view text, std::optional<SecretKind> opening);
    void addRecord(std::string_view record, std::string& redacted);

    const std::unique_ptr<KnownTexts> known_;
    std::map<std::pair<SecretKind, std::string>, std::size_t> numbers_;
    std::map<SecretKind, std::size_t> counts_;
};

}  // namespace cmn
