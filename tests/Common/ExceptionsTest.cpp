#include <gmock/gmock.h>

#include <string>

#include "common/causes.h"
#include "common/exceptions.h"
#include "common/json.h"
#include "common/make_error.h"

namespace common_test {

// With a name that the dynamic symbol table has.
[[gnu::noinline]] void ThrowsFromANamedFunction() {
    throw_with_trace(std::runtime_error("the text"));
}

}  // namespace common_test

namespace {

using testing::HasSubstr;

TEST(ThrowWithTraceTest, ThrowsACopyThatIsABoostExceptionToo) {
    try {
        throw_with_trace(std::runtime_error("the text"));
        FAIL();
    } catch (const boost::exception& e) {
        const auto* error = dynamic_cast<const std::runtime_error*>(&e);
        ASSERT_NE(error, nullptr);
        EXPECT_STREQ(error->what(), "the text");
    }
    EXPECT_THROW(throw_with_trace(std::runtime_error("")), std::runtime_error);
    EXPECT_THROW(throw_with_trace(JsonException("", "")), JsonException);
}

TEST(ThrowWithTraceTest, CarriesTheCallStack) {
    try {
        common_test::ThrowsFromANamedFunction();
        FAIL();
    } catch (const boost::exception& e) {
        const auto* trace = boost::get_error_info<tag_stacktrace>(e);
        ASSERT_NE(trace, nullptr);
        EXPECT_GE(trace->size(), 2U);
        EXPECT_THAT(boost::stacktrace::to_string(*trace), HasSubstr("ThrowsFromANamedFunction"));
    }
}

TEST(ThrowWithTraceTest, DiagnosticInformationPrintsTheFunctionNamesOfTheStack) {
    try {
        common_test::ThrowsFromANamedFunction();
        FAIL();
    } catch (const std::exception& e) {
        const auto text = boost::diagnostic_information(e);
        EXPECT_THAT(text, HasSubstr("the text"));
        EXPECT_THAT(text, HasSubstr("tag_stacktrace"));
        EXPECT_THAT(text, HasSubstr("common_test::ThrowsFromANamedFunction"));
    }
}

TEST(ThrowWithTraceTest, NamesItselfAsTheThrowLocation) {
    try {
        common_test::ThrowsFromANamedFunction();
        FAIL();
    } catch (const boost::exception& e) {
        const auto* file = boost::get_error_info<boost::throw_file>(e);
        const auto* line = boost::get_error_info<boost::throw_line>(e);
        const auto* function = boost::get_error_info<boost::throw_function>(e);
        ASSERT_TRUE(file != nullptr && line != nullptr && function != nullptr);
        EXPECT_STREQ(*file, "common/Common/include/common/exceptions.h");
        EXPECT_EQ(*line, 21);
        EXPECT_THAT(*function, HasSubstr("throw_with_trace"));
        EXPECT_THAT(*function, HasSubstr("std::runtime_error"));
    }
}

TEST(ThrowWithTraceTest, KeepsWhatAJsonExceptionCarries) {
    try {
        throw_with_trace(JsonException("message", "the json"));
        FAIL();
    } catch (const JsonException& e) {
        EXPECT_STREQ(e.what(), "message");
        ASSERT_NE(boost::get_error_info<tag_json_data>(e), nullptr);
        EXPECT_EQ(*boost::get_error_info<tag_json_data>(e), "the json");
        EXPECT_NE(boost::get_error_info<tag_stacktrace>(e), nullptr);
        EXPECT_NE(boost::get_error_info<boost::throw_line>(e), nullptr);
    }
}

TEST(JsonExceptionTest, IsARuntimeErrorThatCarriesItsJson) {
    const JsonException e("message", "{}");
    EXPECT_STREQ(static_cast<const std::runtime_error&>(e).what(), "message");
    ASSERT_NE(boost::get_error_info<tag_json_data>(e), nullptr);
    EXPECT_EQ(*boost::get_error_info<tag_json_data>(e), "{}");
}

TEST(JsonAssertionTest, ThrowsWithTheAssertedConditionInsteadOfAborting) {
    const rapidjson::Value number(1);
    try {
        (void)number.GetString();
        FAIL();
    } catch (const JsonException& e) {
        EXPECT_STREQ(e.what(), "json parse error IsString()");
        EXPECT_NE(boost::get_error_info<tag_stacktrace>(e), nullptr);
    }
    try {
        (void)number.FindMember("a");
        FAIL();
    } catch (const JsonException& e) {
        EXPECT_STREQ(e.what(), "json parse error IsObject()");
    }
}

TEST(MakeErrorTest, StreamsEveryArgumentInOrder) {
    const auto error = cmn::make_error("a ", 12, std::string(" b "), 18'446'744'073'709'551'615ULL, 'c');
    EXPECT_STREQ(error.what(), "a 12 b 18446744073709551615c");
    EXPECT_STREQ(cmn::make_error().what(), "");
}

TEST(CausesTest, AreTheNestedExceptionsFromTheOutsideIn) {
    const auto causesOf = [](const std::function<void()>& body) {
        try {
            body();
        } catch (const std::exception& error) {
            return cmn::CausesOf(error);
        }
        return std::vector<std::string>{"nothing was thrown"};
    };
    const auto inner = [] { throw std::runtime_error("inner"); };
    const auto middle = [&] {
        try {
            inner();
        } catch (const std::exception&) {
            std::throw_with_nested(std::runtime_error("middle"));
        }
    };
    EXPECT_THAT(causesOf(inner), testing::IsEmpty());
    EXPECT_THAT(causesOf(middle), testing::ElementsAre("inner"));
    EXPECT_THAT(causesOf([&] {
                    try {
                        middle();
                    } catch (const std::exception&) {
                        std::throw_with_nested(std::logic_error("outer"));
                    }
                }),
                testing::ElementsAre("middle", "inner"));
}

}  // namespace
