#include "ClassifierFile.h"

#include <array>
#include <set>
#include <string_view>
#include <utility>

#include "JsonFile.h"

namespace host {

namespace {

constexpr std::array<std::pair<std::string_view, bool Classifier::*>, 5> kFlags{
    {{"SensitiveType", &Classifier::sensitiveType},
     {"CountUniqueEntries", &Classifier::countUniqueEntries},
     {"IsOneRecordFile", &Classifier::isOneRecordFile},
     {"IsEncrypted", &Classifier::isEncrypted},
     {"IsPrimaryForEncryption", &Classifier::isPrimaryForEncryption}}};

[[noreturn]] void Fail(const char* what) {
    throw_with_trace(std::runtime_error(what));
}

std::string NonEmptyText(const rapidjson::Value& value) {
    if (!value.IsString() || value.GetStringLength() == 0) {
        Fail("must be a text that is not empty");
    }
    return {value.GetString(), value.GetStringLength()};
}

double ReadCost(const rapidjson::Value& value) {
    if (!value.IsNumber() || value.GetDouble() < 0) {
        Fail("must be a number that is not negative");
    }
    return value.GetDouble();
}

std::uint64_t ReadDelay(const rapidjson::Value& value) {
    // Whoever reads the records takes a signed number.
    if (!value.IsUint64() || !value.IsInt64()) {
        Fail("must be a whole number from 0 to 9223372036854775807");
    }
    return value.GetUint64();
}

CheckDigit ReadCheckDigit(const rapidjson::Value& value) {
    if (NonEmptyText(value) != "Luhn") {
        Fail("must be \"Luhn\"");
    }
    return CheckDigit::luhn;
}

void ReadFlag(const std::string& name, const rapidjson::Value& value, Classifier& classifier) {
    for (const auto& [flag, member] : kFlags) {
        if (name == flag) {
            if (!value.IsBool()) {
                Fail("must be true or false");
            }
            classifier.*member = value.GetBool();
            return;
        }
    }
    Fail("is unknown");
}

Classifier ReadClassifier(const rapidjson::Value& value) {
    Classifier classifier;
    std::string pattern;
    auto checkDigit = CheckDigit::none;
    ForEachMember(value, [&](const std::string& name, const rapidjson::Value& member) {
        if (name == "Name") {
            classifier.name = NonEmptyText(member);
        } else if (name == "Pattern") {
            pattern = NonEmptyText(member);
        } else if (name == "CheckDigit") {
            checkDigit = ReadCheckDigit(member);
        } else if (name == "costUsd") {
            classifier.costUsd = ReadCost(member);
        } else if (name == "EncryptDelayMilliseconds") {
            classifier.encryptDelayMilliseconds = ReadDelay(member);
        } else {
            ReadFlag(name, member, classifier);
        }
    });
    if (classifier.name.empty()) {
        Fail("\"Name\": is missing");
    }
    if (pattern.empty()) {
        Fail("\"Pattern\": is missing");
    }
    InContext("\"Pattern\"",
              [&] { classifier.matcher = std::make_shared<const TextMatcher>(pattern, checkDigit); });
    return classifier;
}

// For errors: the number, and the name as far as it can be had.
std::string LabelOf(std::size_t number, const rapidjson::Value& value) {
    std::string label = "classifier " + std::to_string(number);
    if (value.IsObject()) {
        const auto name = value.FindMember("Name");
        if (name != value.MemberEnd() && name->value.IsString()) {
            label += " (" + std::string(name->value.GetString(), name->value.GetStringLength()) + ")";
        }
    }
    return label;
}

std::vector<Classifier> ReadClassifiers(const rapidjson::Value& list) {
    std::vector<Classifier> classifiers;
    std::set<std::string> names;
    ForEachElement(list, [&](std::size_t number, const rapidjson::Value& element) {
        InContext(LabelOf(number, element), [&] {
            classifiers.push_back(ReadClassifier(element));
            if (!names.insert(classifiers.back().name).second) {
                Fail("\"Name\": another classifier has the same");
            }
        });
    });
    return classifiers;
}

std::vector<std::string> ReadExtensions(const rapidjson::Value& list) {
    std::vector<std::string> extensions;
    ForEachElement(list, [&](std::size_t number, const rapidjson::Value& element) {
        InContext("extension " + std::to_string(number), [&] {
            extensions.push_back(NonEmptyText(element));
            if (extensions.back().front() == '.') {
                Fail("must be without the dot");
            }
        });
    });
    return extensions;
}

}  // namespace

ClassifierFile LoadClassifiers(const std::filesystem::path& path) {
    ClassifierFile file;
    ReadJsonFile(path, [&](const rapidjson::Value& root) {
        ForEachMember(root, [&](const std::string& name, const rapidjson::Value& member) {
            if (name == "AllowedExtensions") {
                file.allowedExtensions = ReadExtensions(member);
            } else if (name == "Classifiers") {
                file.classifiers = ReadClassifiers(member);
            } else {
                Fail("is unknown");
            }
        });
    });
    return file;
}

}  // namespace host
