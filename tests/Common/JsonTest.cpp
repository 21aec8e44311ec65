#include <gmock/gmock.h>

#include <fstream>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Failures.h"
#include "common/fs.h"
#include "common/json.h"
#include "support/LogCapture.h"

namespace json_test {

struct Item {
    std::string Name;
};

struct Record {
    std::string text;
    std::optional<std::string> optionalText;
    std::int32_t number = 0;
    std::optional<std::int32_t> optionalNumber;
    bool flag = false;
    std::optional<bool> optionalFlag;
    std::uint64_t big = 0;
    std::vector<std::string> list;
    std::optional<std::vector<std::string>> optionalList;
    std::vector<Item> items;
};

void fromJson(const rapidjson::Value& value, Item& item) {
    cmn::proto::fromJson(value["Name"], item.Name);
}

void toJson(cmn::proto::PrettyWriter& writer, const Item& item) {
    writer.StartObject();
    writer.Key("Name");
    cmn::proto::toJson(writer, item.Name);
    writer.EndObject();
}

// Reads whichever member the object has.
void fromJson(const rapidjson::Value& value, Record& record) {
    using cmn::proto::fromJson;
    for (const auto& member : value.GetObject()) {
        const std::string name = member.name.GetString();
        if (name == "text")
            fromJson(member.value, record.text);
        else if (name == "optionalText")
            fromJson(member.value, record.optionalText);
        else if (name == "number")
            fromJson(member.value, record.number);
        else if (name == "optionalNumber")
            fromJson(member.value, record.optionalNumber);
        else if (name == "flag")
            fromJson(member.value, record.flag);
        else if (name == "optionalFlag")
            fromJson(member.value, record.optionalFlag);
        else if (name == "big")
            fromJson(member.value, record.big);
        else if (name == "list")
            fromJson(member.value, record.list);
        else if (name == "optionalList")
            fromJson(member.value, record.optionalList);
        else if (name == "items")
            cmn::proto::arrayFromJson(member.value, record.items);
    }
}

void toJson(cmn::proto::PrettyWriter& writer, const Record& record) {
    using cmn::proto::toJson;
    writer.StartObject();
    writer.Key("text");
    toJson(writer, record.text);
    writer.Key("optionalText");
    toJson(writer, record.optionalText);
    writer.Key("number");
    toJson(writer, record.number);
    writer.Key("flag");
    toJson(writer, record.flag);
    writer.Key("optionalFlag");
    toJson(writer, record.optionalFlag);
    writer.Key("big");
    toJson(writer, record.big);
    writer.Key("list");
    toJson(writer, record.list);
    writer.Key("items");
    toJson(writer, record.items);
    writer.EndObject();
}

}  // namespace json_test

namespace {

using cmn::proto::JsonToObjectImpl;
using fake::FailureHasCallStack;
using fake::FailureOf;
using json_test::Record;
using testing::ElementsAre;
using testing::IsEmpty;

Record Read(const std::string& json) {
    return JsonToObjectImpl<Record>(json);
}

Record ReadOne(const std::string& key, const std::string& value) {
    return Read("{\"" + key + "\": " + value + "}");
}

std::string FailureWith(const std::string& key, const std::string& value) {
    return FailureOf([&] { ReadOne(key, value); });
}

constexpr auto kWrongShape = "JsonToObjectImpl";
constexpr auto kWrongBool = "Unexpected type for bool value";

TEST(JsonReaderTest, NullIsEmptyZeroAndFalse) {
    EXPECT_EQ(ReadOne("text", "null").text, "");
    EXPECT_EQ(ReadOne("number", "null").number, 0);
    EXPECT_EQ(ReadOne("flag", "null").flag, false);
    EXPECT_EQ(ReadOne("big", "null").big, 0U);
}

TEST(JsonReaderTest, NullEmptiesOptionals) {
    Record record;
    record.optionalText = "x";
    record.optionalNumber = 1;
    record.optionalFlag = true;
    record.optionalList = {"x"};
    const rapidjson::Value null;
    cmn::proto::fromJson(null, record.optionalText);
    cmn::proto::fromJson(null, record.optionalNumber);
    cmn::proto::fromJson(null, record.optionalFlag);
    cmn::proto::fromJson(null, record.optionalList);
    EXPECT_EQ(record.optionalText, std::nullopt);
    EXPECT_EQ(record.optionalNumber, std::nullopt);
    EXPECT_EQ(record.optionalFlag, std::nullopt);
    EXPECT_EQ(record.optionalList, std::nullopt);
}

TEST(JsonReaderTest, AbsentMembersLeaveTheRecordAsItIs) {
    const auto record = Read("{}");
    EXPECT_EQ(record.text, "");
    EXPECT_EQ(record.optionalText, std::nullopt);
    EXPECT_EQ(record.number, 0);
    EXPECT_FALSE(record.flag);
    EXPECT_THAT(record.list, IsEmpty());
}

TEST(JsonReaderTest, CopiesStringsWithEscapesAndNulCharacters) {
    EXPECT_EQ(ReadOne("text", R"("a\n\u00e4\ud83d\ude00\"")").text, "a\n\u00e4\U0001F600\"");
    EXPECT_EQ(ReadOne("text", R"("a\u0000b")").text, std::string("a\0b", 3));
}

TEST(JsonReaderTest, TakesOnlyStringsForStrings) {
    for (const auto* value : {"1", "1.5", "true", "[]", "{}"}) {
        EXPECT_EQ(FailureWith("text", value), kWrongShape) << value;
        EXPECT_EQ(FailureWith("optionalText", value), kWrongShape) << value;
    }
    EXPECT_EQ(ReadOne("optionalText", "\"\"").optionalText, "");
}

TEST(JsonReaderTest, TakesNumbersOf32Bits) {
    EXPECT_EQ(ReadOne("number", "12").number, 12);
    EXPECT_EQ(ReadOne("number", "-2147483648").number, std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(ReadOne("number", "2147483647").number, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(ReadOne("optionalNumber", "-3").optionalNumber, -3);
}

TEST(JsonReaderTest, OtherValuesInAnIntegerFieldAreZero) {
    for (const auto* value : {"3.5", "3.0", "4294967296", "2147483648", "-2147483649", "1e3", "true", "false",
                              "[]", "[1]", "{}"}) {
        EXPECT_EQ(ReadOne("number", value).number, 0) << value;
        EXPECT_EQ(ReadOne("optionalNumber", value).optionalNumber, 0) << value;
    }
}

TEST(JsonReaderTest, ConvertsStringsInIntegerFields) {
    EXPECT_EQ(ReadOne("number", R"("12")").number, 12);
    EXPECT_EQ(ReadOne("number", R"("12abc")").number, 12);
    EXPECT_EQ(ReadOne("number", R"(" -7")").number, -7);
    EXPECT_EQ(ReadOne("number", R"("3.9")").number, 3);
    EXPECT_EQ(ReadOne("number", R"("0x10")").number, 0);
    EXPECT_EQ(ReadOne("optionalNumber", R"("5")").optionalNumber, 5);
}

TEST(JsonReaderTest, PassesOnTheErrorsOfTheIntegerConversion) {
    EXPECT_THROW(ReadOne("number", R"("abc")"), std::invalid_argument);
    EXPECT_THROW(ReadOne("number", R"("")"), std::invalid_argument);
    EXPECT_THROW(ReadOne("optionalNumber", R"("x1")"), std::invalid_argument);
    EXPECT_THROW(ReadOne("number", R"("2147483648")"), std::out_of_range);
}

TEST(JsonReaderTest, TakesBoolsAndNumbersForBools) {
    EXPECT_TRUE(ReadOne("flag", "true").flag);
    EXPECT_FALSE(ReadOne("flag", "false").flag);
    EXPECT_TRUE(ReadOne("flag", "2").flag);
    EXPECT_TRUE(ReadOne("flag", "-1").flag);
    EXPECT_FALSE(ReadOne("flag", "0").flag);
    EXPECT_EQ(ReadOne("optionalFlag", "1").optionalFlag, true);
    EXPECT_EQ(ReadOne("optionalFlag", "false").optionalFlag, false);
}

TEST(JsonReaderTest, TakesExactlyTwoTextsForBools) {
    EXPECT_TRUE(ReadOne("flag", R"("true")").flag);
    EXPECT_FALSE(ReadOne("flag", R"("false")").flag);
    EXPECT_EQ(ReadOne("optionalFlag", R"("true")").optionalFlag, true);
    EXPECT_EQ(FailureWith("flag", R"("True")"), "Unexpected string value (True) for bool type");
    EXPECT_EQ(FailureWith("flag", R"("")"), "Unexpected string value () for bool type");
    EXPECT_EQ(FailureWith("optionalFlag", R"("1")"), "Unexpected string value (1) for bool type");
    EXPECT_EQ(FailureWith("flag", R"("true ")"), "Unexpected string value (true ) for bool type");
}

TEST(JsonReaderTest, ReportsOtherTypesInABoolField) {
    for (const auto* value : {"0.5", "1.0", "4294967296", "[]", "{}"}) {
        EXPECT_EQ(FailureWith("flag", value), kWrongBool) << value;
        EXPECT_EQ(FailureWith("optionalFlag", value), kWrongBool) << value;
    }
}

TEST(JsonReaderTest, BoolErrorsAreNoJsonExceptionsAndCarryATrace) {
    for (const auto* value : {"0.5", "\"True\""}) {
        const auto read = [&] { ReadOne("flag", value); };
        EXPECT_TRUE(FailureHasCallStack(read)) << value;
        try {
            read();
            FAIL();
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(dynamic_cast<const JsonException*>(&e), nullptr);
        }
    }
}

TEST(JsonReaderTest, TakesUnsignedNumbersOf64Bits) {
    EXPECT_EQ(ReadOne("big", "0").big, 0U);
    EXPECT_EQ(ReadOne("big", "18446744073709551615").big, std::numeric_limits<std::uint64_t>::max());
}

TEST(JsonReaderTest, OtherValuesInAnUnsignedFieldAreZero) {
    for (const auto* value : {"-1", "1.5", "18446744073709551616", "true", "[]", "{}"})
        EXPECT_EQ(ReadOne("big", value).big, 0U) << value;
}

TEST(JsonReaderTest, ConvertsStringsInUnsignedFields) {
    EXPECT_EQ(ReadOne("big", R"("-5")").big, 0U);
    EXPECT_EQ(ReadOne("big", R"("5")").big, 5U);
    EXPECT_EQ(ReadOne("big", R"("9223372036854775808")").big, 9'223'372'036'854'775'808U);
    EXPECT_EQ(ReadOne("big", R"("18446744073709551615")").big, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(ReadOne("big", R"("12abc")").big, 12U);
    for (const char* const none : {R"("abc")", R"("-a")"})
        EXPECT_THROW(ReadOne("big", none), std::invalid_argument) << none;
    EXPECT_THROW(ReadOne("big", R"("")"), std::invalid_argument);
    EXPECT_THROW(ReadOne("big", R"("18446744073709551616")"), std::out_of_range);
}

TEST(JsonReaderTest, ReadsListsFromArrays) {
    EXPECT_THAT(ReadOne("list", R"(["a", null, "b;c"])").list, ElementsAre("a", "", "b;c"));
    EXPECT_THAT(ReadOne("list", "[]").list, IsEmpty());
    EXPECT_EQ(FailureWith("list", "[1]"), kWrongShape);
}

TEST(JsonReaderTest, SplitsAStringIntoAListAtEverySemicolon) {
    EXPECT_THAT(ReadOne("list", R"("a;b")").list, ElementsAre("a", "b"));
    EXPECT_THAT(ReadOne("list", R"("a;;b")").list, ElementsAre("a", "", "b"));
    EXPECT_THAT(ReadOne("list", R"("")").list, ElementsAre(""));
    EXPECT_THAT(ReadOne("list", R"(";")").list, ElementsAre("", ""));
    EXPECT_THAT(ReadOne("list", R"("a; b ")").list, ElementsAre("a", " b "));
}

void ReadInto(std::vector<std::string>& list, const std::string& json) {
    rapidjson::Document document;
    cmn::proto::fromJson(document.Parse(json.c_str()), list);
}

TEST(JsonReaderTest, OtherTypesLeaveAListUnchanged) {
    for (const auto* json : {"null", "1", "true", "{}", "1.5"}) {
        std::vector<std::string> list{"kept"};
        ReadInto(list, json);
        EXPECT_THAT(list, ElementsAre("kept")) << json;
    }
}

TEST(JsonReaderTest, ReadsOptionalListsFromArraysOnly) {
    EXPECT_THAT(ReadOne("optionalList", R"(["a", "b"])").optionalList.value(), ElementsAre("a", "b"));
    EXPECT_THAT(ReadOne("optionalList", "[]").optionalList.value(), IsEmpty());
    for (const auto* value : {R"("a;b")", "1", "{}"})
        EXPECT_EQ(FailureWith("optionalList", value), kWrongShape) << value;
}

TEST(JsonReaderTest, ReadsListsOfRecords) {
    const auto items = ReadOne("items", R"([{"Name": "a"}, {"Name": "b"}])").items;
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[0].Name, "a");
    EXPECT_EQ(items[1].Name, "b");
    for (const auto* value : {"null", "1", "\"a;b\"", "{}", "[1]", "[{}]"})
        EXPECT_EQ(FailureWith("items", value), kWrongShape) << value;
}

TEST(JsonReaderTest, ReadingAListReplacesWhatItHeld) {
    std::vector<std::string> list{"old"};
    ReadInto(list, R"(["new"])");
    EXPECT_THAT(list, ElementsAre("new"));
    ReadInto(list, R"("x;y")");
    EXPECT_THAT(list, ElementsAre("x", "y"));
}

TEST(JsonToObjectTest, EmptyTextIsInvalidWithTheCodeOfAnEmptyDocument) {
    EXPECT_EQ(FailureOf([] { Read(""); }), "Invalid json -- err: 1 offs: 0");
    EXPECT_EQ(rapidjson::kParseErrorDocumentEmpty, 1);
}

TEST(JsonToObjectTest, MalformedTextIsReportedWithCodeOffsetAndText) {
    const std::string json = R"({"text": "a" "number": 1})";
    try {
        Read(json);
        FAIL();
    } catch (const JsonException& e) {
        EXPECT_STREQ(e.what(), "Invalid json -- err: 6 offs: 13");
        EXPECT_EQ(*boost::get_error_info<tag_json_data>(e), json);
        EXPECT_NE(boost::get_error_info<tag_stacktrace>(e), nullptr);
    }
    for (const auto* text : {"{", "{\"a\"", "[1,]", "{} {}", "nul", "\"", "{\"text\": \"\\x\"}"}) {
        EXPECT_THROW(Read(text), JsonException) << text;
        EXPECT_THAT(FailureOf([&] { Read(text); }), testing::StartsWith("Invalid json -- err: ")) << text;
    }
}

TEST(JsonToObjectTest, AnotherShapeIsReportedWithTheTextUntouched) {
    const std::string json = R"({"text": 1, "list": "a\n;b"})";
    try {
        Read(json);
        FAIL();
    } catch (const JsonException& e) {
        EXPECT_STREQ(e.what(), "JsonToObjectImpl");
        EXPECT_EQ(*boost::get_error_info<tag_json_data>(e), json);
        EXPECT_NE(boost::get_error_info<tag_stacktrace>(e), nullptr);
        EXPECT_EQ(dynamic_cast<const std::nested_exception*>(&e), nullptr);
    }
    for (const auto* text : {"[]", "1", "null", "true", "\"text\""})
        EXPECT_EQ(FailureOf([&] { Read(text); }), kWrongShape) << text;
}

TEST(JsonToObjectTest, EveryReportHasTheTextAsItCame) {
    const std::string nul(1, '\0');
    const std::string open(1'000, '[');
    const std::string close(1'000, ']');
    const std::string texts[] = {R"({"list": ["a", "", "b;c"], "text": 1})",
                                 R"({"list": ["a", "", "b;c"], "text": "d" )",
                                 R"({"list": ["a", "b"], "text": "d)",
                                 R"({"list": ["\"", "b"], "text": 1})",
                                 R"({"list": ["\u0041", "b"], "text)",
                                 R"({"list": ["a"], "text": 1})" + nul + "\"rest\"",
                                 R"({"list": ["a"], )" + nul + R"("text": "b"})",
                                 R"({"list": ["a"], "text": )" + open + close + "}",
                                 R"({"list": ["a"], "unknown": )" + open + R"("b")" + close + "\"",
                                 R"({"list": ["\n"], "unknown": )" + open + R"("b")" + close + "\""};
    for (const auto& text : texts) {
        try {
            Read(text);
            ADD_FAILURE() << text;
        } catch (const JsonException& e) {
            EXPECT_EQ(*boost::get_error_info<tag_json_data>(e), text);
        }
    }
}

TEST(JsonToObjectTest, DeepNestingEndsInAnErrorOrARecordButNeverInACrash) {
    const std::string open(1'000'000, '[');
    const std::string close(1'000'000, ']');
    EXPECT_THROW(Read(open), JsonException);
    EXPECT_EQ(FailureOf([&] { Read(open + close); }), kWrongShape);
    EXPECT_EQ(Read(R"({"unknown": )" + open + close + R"(, "number": 3})").number, 3);
}

TEST(JsonToObjectTest, BracketsThatAreNotReadDoNotCountAsNesting) {
    // Above its limit of nesting another parser takes over, which has another code for this error.
    const std::string brackets(1'000, '[');
    EXPECT_EQ(FailureOf([&] { Read("]\"\\\"" + brackets + "\""); }), "Invalid json -- err: 3 offs: 0");
    EXPECT_EQ(FailureOf([&] { Read("]" + brackets); }), "Invalid json -- err: 3 offs: 0");
}

TEST(JsonToObjectTest, KeepsTextsThatLieBeforeDeepNesting) {
    // The parser that takes over starts from an unchanged text.
    const std::string open(1'000, '[');
    const std::string close(1'000, ']');
    EXPECT_EQ(Read(R"({"text": "a\n\"b", "unknown": )" + open + close + "}").text, "a\n\"b");
    EXPECT_EQ(Read(R"({"text": "ab", "unknown": )" + open + close + "}").text, "ab");
}

TEST(JsonToObjectTest, ReadsBytes) {
    const std::string json = R"({"text": "a"})";
    const std::vector<unsigned char> bytes(json.begin(), json.end());
    EXPECT_EQ(cmn::proto::JsonToObject<Record>(bytes).text, "a");
    EXPECT_THROW(cmn::proto::JsonToObject<Record>({}), JsonException);
}

TEST(FileToObjectTest, ReadsAnOpenStreamToItsEnd) {
    const fake::TemporaryFolder folder;
    cmn::StrToFile(R"({"text": ")" + std::string(100'000, 'a') + "\"}", folder / "file");
    std::ifstream in(folder / "file", std::ios::binary);
    EXPECT_EQ(cmn::proto::FileToObject<Record>(in).text, std::string(100'000, 'a'));
}

TEST(FileToObjectTest, ReportsAStreamWithoutFile) {
    std::ifstream in("/no such folder/file", std::ios::binary);
    const auto read = [&] { cmn::proto::FileToObject<Record>(in); };
    EXPECT_EQ(FailureOf(read), "failed to open stream");
    EXPECT_THROW(read(), std::runtime_error);
    EXPECT_TRUE(FailureHasCallStack(read));
}

TEST(FileToObjectTest, ReportsAFolder) {
    const fake::TemporaryFolder folder;
    std::ifstream in(folder.path(), std::ios::binary);
    EXPECT_TRUE(FailureHasCallStack([&] { cmn::proto::FileToObject<Record>(in); }));
}

TEST(FileToObjectTest, ReadsUpTo64MebibytesAndNothingLarger) {
    const fake::TemporaryFolder folder;
    std::string text(64 * 1024 * 1024, ']');
    const auto read = [&] {
        cmn::StrToFile(text, folder / "file");
        std::ifstream in(folder / "file", std::ios::binary);
        cmn::proto::FileToObject<Record>(in);
    };
    EXPECT_EQ(FailureOf(read), "Invalid json -- err: 3 offs: 0") << "read to its end";
    text += ']';
    EXPECT_EQ(FailureOf(read), "larger than 67108864 bytes");
    EXPECT_TRUE(FailureHasCallStack(read));
}

TEST(JsonEscapedTest, IsTheTextBetweenTheQuotes) {
    EXPECT_EQ(cmn::proto::JsonEscaped(""), "");
    EXPECT_EQ(cmn::proto::JsonEscaped("plain/\u00e4"), "plain/\u00e4");
    EXPECT_EQ(cmn::proto::JsonEscaped("\"a\" \\ \n\t\x01"), R"(\"a\" \\ \n\t\u0001)");
    EXPECT_EQ(cmn::proto::JsonEscaped(std::string("a\0b", 3)), R"(a\u0000b)");
}

TEST(ObjectToJsonTest, PrintsPrettyWithFourBlanks) {
    Record record;
    record.text = "a\"b\\\n\u00e4/";
    record.number = -1;
    record.flag = true;
    record.optionalFlag = false;
    record.big = std::numeric_limits<std::uint64_t>::max();
    record.list = {"x", ""};
    record.items = {{"one"}};
    EXPECT_EQ(cmn::proto::ObjectToJson(record), R"({
    "text": "a\"b\\\nä/",
    "optionalText": null,
    "number": -1,
    "flag": true,
    "optionalFlag": false,
    "big": 18446744073709551615,
    "list": [
        "x",
        ""
    ],
    "items": [
        {
            "Name": "one"
        }
    ]
})");
}

TEST(ObjectToJsonTest, PrintsEmptyListsInBrackets) {
    const auto json = cmn::proto::ObjectToJson<Record, cmn::proto::PrettyWriter>(Record());
    EXPECT_THAT(json, testing::HasSubstr("\"list\": [],\n"));
    EXPECT_THAT(json, testing::HasSubstr("\"optionalFlag\": null,\n"));
}

TEST(ObjectToJsonTest, WritesStringsUpToTheirFirstNul) {
    Record record;
    record.text = std::string("a\0b", 3);
    record.optionalText = std::string("\0b", 2);
    const auto json = cmn::proto::ObjectToJson(record);
    EXPECT_THAT(json, testing::HasSubstr("\"text\": \"a\",\n"));
    EXPECT_THAT(json, testing::HasSubstr("\"optionalText\": \"\",\n"));
}

}  // namespace
