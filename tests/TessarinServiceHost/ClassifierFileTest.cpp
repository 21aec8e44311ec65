#include <gmock/gmock.h>

#include <string>

#include "ClassifierFile.h"
#include "Common/Failures.h"
#include "common/fs.h"
#include "support/LogCapture.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::size_t CountOf(const Classifier& classifier, const std::string& text) {
    ScanBounds bounds;
    return classifier.matcher->count(text, bounds).all;
}

class ClassifierFileTest : public testing::Test {
 protected:
    ClassifierFile load(const std::string& json) const {
        cmn::StrToFile(json, file_);
        return LoadClassifiers(file_);
    }

    std::string failure(const std::string& json) const {
        return fake::FailureOf([&] { load(json); });
    }

    // Of a file with one classifier.
    std::string classifierFailure(const std::string& members) const {
        return failure(R"({"Classifiers": [{)" + members + "}]}");
    }

    std::string cannotUse(const std::string& why) const {
        return "Cannot use " + file_.string() + " -- " + why;
    }

    const fake::TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "classifiers.json";
};

TEST_F(ClassifierFileTest, ReadsEveryMember) {
    const auto file = load(R"({
        "AllowedExtensions": ["txt", "tar.gz"],
        "Classifiers": [{"Name": "Cards", "Pattern": "\\d{4}", "SensitiveType": true, "costUsd": 1.25,
                         "CountUniqueEntries": true, "IsOneRecordFile": true, "IsEncrypted": true,
                         "IsPrimaryForEncryption": true, "EncryptDelayMilliseconds": 9223372036854775807,
                         "CheckDigit": "Luhn"}]})");
    EXPECT_THAT(file.allowedExtensions, ElementsAre("txt", "tar.gz"));
    ASSERT_EQ(file.classifiers.size(), 1U);
    const auto& classifier = file.classifiers[0];
    EXPECT_EQ(classifier.name, "Cards");
    EXPECT_TRUE(classifier.sensitiveType);
    EXPECT_EQ(classifier.costUsd, 1.25);
    EXPECT_TRUE(classifier.countUniqueEntries);
    EXPECT_TRUE(classifier.isOneRecordFile);
    EXPECT_TRUE(classifier.isEncrypted);
    EXPECT_TRUE(classifier.isPrimaryForEncryption);
    EXPECT_EQ(classifier.encryptDelayMilliseconds, 9'223'372'036'854'775'807U);
    EXPECT_EQ(CountOf(classifier, "1230 1234"), 1U);
}

TEST_F(ClassifierFileTest, AbsentMembersAreFalseAndZero) {
    const auto file = load(R"({"Classifiers": [{"Name": "Digits", "Pattern": "\\d{4}"}]})");
    EXPECT_THAT(file.allowedExtensions, IsEmpty());
    ASSERT_EQ(file.classifiers.size(), 1U);
    const auto& classifier = file.classifiers[0];
    EXPECT_FALSE(classifier.sensitiveType);
    EXPECT_EQ(classifier.costUsd, 0);
    EXPECT_FALSE(classifier.countUniqueEntries);
    EXPECT_FALSE(classifier.isOneRecordFile);
    EXPECT_FALSE(classifier.isEncrypted);
    EXPECT_FALSE(classifier.isPrimaryForEncryption);
    EXPECT_EQ(classifier.encryptDelayMilliseconds, 0U);
    EXPECT_EQ(CountOf(classifier, "1230 1234"), 2U);
}

TEST_F(ClassifierFileTest, EachFlagIsItsOwn) {
    for (const auto* flag : {"SensitiveType", "CountUniqueEntries", "IsOneRecordFile", "IsEncrypted",
                             "IsPrimaryForEncryption"}) {
        const auto file =
            load(R"({"Classifiers": [{"Name": "A", "Pattern": "a", ")" + std::string(flag) + R"(": true}]})");
        const auto& classifier = file.classifiers.at(0);
        EXPECT_EQ(classifier.sensitiveType, flag == std::string("SensitiveType"));
        EXPECT_EQ(classifier.countUniqueEntries, flag == std::string("CountUniqueEntries"));
        EXPECT_EQ(classifier.isOneRecordFile, flag == std::string("IsOneRecordFile"));
        EXPECT_EQ(classifier.isEncrypted, flag == std::string("IsEncrypted"));
        EXPECT_EQ(classifier.isPrimaryForEncryption, flag == std::string("IsPrimaryForEncryption"));
    }
}

TEST_F(ClassifierFileTest, KeepsTheOrderOfTheClassifiers) {
    const auto file =
        load(R"({"Classifiers": [{"Name": "Z", "Pattern": "z"}, {"Name": "A", "Pattern": "a"}]})");
    ASSERT_EQ(file.classifiers.size(), 2U);
    EXPECT_EQ(file.classifiers[0].name, "Z");
    EXPECT_EQ(file.classifiers[1].name, "A");
}

TEST_F(ClassifierFileTest, EmptyObjectIsNoClassifiersAndNoExtensions) {
    const auto file = load("{}");
    EXPECT_THAT(file.classifiers, IsEmpty());
    EXPECT_THAT(file.allowedExtensions, IsEmpty());
}

TEST_F(ClassifierFileTest, NamesAFileThatCannotBeRead) {
    const auto read = [&] { LoadClassifiers(file_); };
    EXPECT_EQ(fake::FailureOf(read),
              cannotUse("[FileToStr] Can't read (" + file_.string() + ") Error: No such file or directory"));
    std::filesystem::create_directory(file_);
    EXPECT_EQ(fake::FailureOf(read),
              cannotUse("[FileToStr] Can't read (" + file_.string() + ") Error: Is a directory"));
    EXPECT_THROW(read(), std::runtime_error);
}

TEST_F(ClassifierFileTest, NamesTheByteWhereItIsNoJson) {
    EXPECT_EQ(failure(""), cannotUse("Invalid json -- err: 1 offs: 0"));
    EXPECT_EQ(failure(R"({"Classifiers": ])"), cannotUse("Invalid json -- err: 3 offs: 16"));
    EXPECT_EQ(failure("{\"\xFF\": 1}"), cannotUse("is no UTF-8 text"));
}

TEST_F(ClassifierFileTest, RefusesAnotherShape) {
    EXPECT_EQ(failure("[]"), cannotUse("must be an object"));
    EXPECT_EQ(failure(R"({"Classifiers": {}})"), cannotUse(R"("Classifiers": must be a list)"));
    EXPECT_EQ(failure(R"({"Classifiers": [1]})"),
              cannotUse(R"("Classifiers": classifier 1: must be an object)"));
    EXPECT_EQ(failure(R"({"AllowedExtensions": "txt"})"),
              cannotUse(R"("AllowedExtensions": must be a list)"));
    EXPECT_EQ(failure(R"({"AllowedExtensions": ["txt", 1]})"),
              cannotUse(R"("AllowedExtensions": extension 2: must be a text that is not empty)"));
    EXPECT_EQ(failure(R"({"AllowedExtensions": [".txt"]})"),
              cannotUse(R"("AllowedExtensions": extension 1: must be without the dot)"));
}

TEST_F(ClassifierFileTest, RefusesUnknownMembers) {
    EXPECT_EQ(failure(R"({"classifiers": []})"), cannotUse(R"("classifiers": is unknown)"));
    EXPECT_EQ(classifierFailure(R"("Name": "A", "Pattern": "a", "CostUsd": 1)"),
              cannotUse(R"("Classifiers": classifier 1 (A): "CostUsd": is unknown)"));
}

TEST_F(ClassifierFileTest, RefusesMissingNamesAndPatterns) {
    EXPECT_EQ(classifierFailure(R"("Pattern": "a")"),
              cannotUse(R"("Classifiers": classifier 1: "Name": is missing)"));
    EXPECT_EQ(classifierFailure(R"("Name": "A")"),
              cannotUse(R"("Classifiers": classifier 1 (A): "Pattern": is missing)"));
    EXPECT_EQ(classifierFailure(R"("Name": "", "Pattern": "a")"),
              cannotUse(R"("Classifiers": classifier 1 (): "Name": must be a text that is not empty)"));
    EXPECT_EQ(classifierFailure(R"("Name": "A", "Pattern": "")"),
              cannotUse(R"("Classifiers": classifier 1 (A): "Pattern": must be a text that is not empty)"));
}

TEST_F(ClassifierFileTest, RefusesPatternsThatAreNone) {
    EXPECT_EQ(classifierFailure(R"("Name": "A", "Pattern": "(a")"),
              cannotUse(R"("Classifiers": classifier 1 (A): "Pattern": is refused: missing ): (a)"));
}

TEST_F(ClassifierFileTest, RefusesTheSameNameTwice) {
    EXPECT_EQ(failure(R"({"Classifiers": [{"Name": "A", "Pattern": "a"}, {"Name": "A", "Pattern": "b"}]})"),
              cannotUse(R"("Classifiers": classifier 2 (A): "Name": another classifier has the same)"));
}

TEST_F(ClassifierFileTest, RefusesTheSameMemberTwice) {
    EXPECT_EQ(classifierFailure(R"("Name": "A", "Pattern": "a", "Pattern": "b")"),
              cannotUse(R"("Classifiers": classifier 1 (A): "Pattern": stands twice)"));
}

struct WrongMember {
    const char* name;
    const char* value;
    const char* complaint;
};

class WrongMemberTest : public ClassifierFileTest, public testing::WithParamInterface<WrongMember> {};

TEST_P(WrongMemberTest, IsRefused) {
    const auto& [name, value, complaint] = GetParam();
    const std::string member = "\"" + std::string(name) + "\": ";
    EXPECT_EQ(classifierFailure(R"("Name": "A", "Pattern": "a", )" + member + value),
              cannotUse(R"("Classifiers": classifier 1 (A): )" + member + complaint));
}

INSTANTIATE_TEST_SUITE_P(
    OfClassifiers, WrongMemberTest,
    testing::Values(WrongMember{"SensitiveType", "1", "must be true or false"},
                    WrongMember{"CountUniqueEntries", "\"true\"", "must be true or false"},
                    WrongMember{"IsOneRecordFile", "null", "must be true or false"},
                    WrongMember{"IsEncrypted", "[]", "must be true or false"},
                    WrongMember{"IsPrimaryForEncryption", "{}", "must be true or false"},
                    WrongMember{"costUsd", "\"1\"", "must be a number that is not negative"},
                    WrongMember{"costUsd", "-0.5", "must be a number that is not negative"},
                    WrongMember{"EncryptDelayMilliseconds", "-1",
                                "must be a whole number from 0 to 9223372036854775807"},
                    WrongMember{"EncryptDelayMilliseconds", "1.5",
                                "must be a whole number from 0 to 9223372036854775807"},
                    WrongMember{"EncryptDelayMilliseconds", "9223372036854775808",
                                "must be a whole number from 0 to 9223372036854775807"},
                    WrongMember{"CheckDigit", "\"luhn\"", "must be \"Luhn\""},
                    WrongMember{"CheckDigit", "null", "must be a text that is not empty"}));

TEST_F(ClassifierFileTest, RefusesNamesAndPatternsThatAreNoTexts) {
    EXPECT_EQ(classifierFailure(R"("Name": 1, "Pattern": "a")"),
              cannotUse(R"("Classifiers": classifier 1: "Name": must be a text that is not empty)"));
    EXPECT_EQ(classifierFailure(R"("Name": "A", "Pattern": ["a"])"),
              cannotUse(R"("Classifiers": classifier 1 (A): "Pattern": must be a text that is not empty)"));
}

}  // namespace
}  // namespace host
