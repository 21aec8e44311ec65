#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "TextMatcher.h"

namespace host {

// What is looked for, and what a finding of it means to those who ask.
struct Classifier {
    std::string name;
    std::shared_ptr<const TextMatcher> matcher;  // never null in a loaded classifier
    double costUsd = 0;                          // of one counted match
    std::uint64_t encryptDelayMilliseconds = 0;
    bool sensitiveType = false;
    bool countUniqueEntries = false;  // equal matches count once
    bool isOneRecordFile = false;
    bool isEncrypted = false;  // encryption is enabled
    bool isPrimaryForEncryption = false;
};

struct ClassifierFile {
    std::vector<std::string> allowedExtensions;  // without the dot
    std::vector<Classifier> classifiers;         // names differ
};

// Throws std::runtime_error "Cannot use PATH -- CLASSIFIER: MEMBER: what is wrong", as far as it applies.
ClassifierFile LoadClassifiers(const std::filesystem::path& path);

}  // namespace host
