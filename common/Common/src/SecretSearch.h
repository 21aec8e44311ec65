#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "DecodedText.h"
#include "common/Redaction.h"

namespace cmn {

// What a search knows beforehand.
struct KnownTexts {
    struct Secret {
        SecretKind kind;
        std::string text;  // ASCII letters are small ones
    };
    std::vector<Secret> secrets;  // the longest first
    std::set<std::string, std::less<>> kept;
};

struct FoundSecret {
    std::size_t begin;  // in the source
    std::size_t end;
    SecretKind kind;
    std::string text;  // without escapes
};

// Finds what is to be taken out of a text, from its beginning to its end.
class SecretSearch {
 public:
    // Both must outlive the search.
    SecretSearch(std::string_view source, const KnownTexts& known, int mostPasses = DecodedText::kMostPasses);

    // By where they begin. `opening`: of what kind the text is from its beginning, if that is known.
    std::vector<FoundSecret> find(std::optional<SecretKind> opening);

 private:
    struct Match {
        std::size_t end;  // in the decoded text
        SecretKind kind;
        std::string text;
        bool isOpen = false;       // it ends with the line because nothing else does
        std::size_t harmless = 0;  // bytes behind it that stay
    };

    std::optional<Match> matchAt(std::size_t at) const;
    std::optional<Match> knownAt(std::size_t at) const;
    std::optional<Match> uuidAt(std::size_t at) const;
    std::optional<Match> wordAt(std::size_t at) const;
    std::optional<std::size_t> spelled(std::string_view secret, std::size_t at) const;
    std::size_t keptAt(std::size_t at) const;
    bool isPathAt(std::size_t at) const;
    bool isAddressAt(std::size_t at) const;
    bool hasPortAndPathAt(std::size_t at) const;
    Match openFrom(std::size_t at, SecretKind kind) const;
    void take(std::size_t begin, const Match& match);
    FoundSecret foundAt(std::size_t begin, const Match& match) const;
    void addKnownTo(std::vector<FoundSecret>& found) const;

    bool isWordAt(std::size_t at) const;
    bool isLineEnd(std::size_t at) const;
    std::size_t lineEnd(std::size_t at) const;
    std::size_t pastBreak(std::size_t at) const;

    const std::string_view source_;
    const DecodedText text_;
    const KnownTexts& known_;
    std::size_t taken_ = 0;                                // everything before it has been decided about
    std::size_t matchEnd_ = static_cast<std::size_t>(-1);  // of the last one; none yet
    std::vector<FoundSecret> found_;
};

}  // namespace cmn
