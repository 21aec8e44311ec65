#include <gmock/gmock.h>

#include <string>

#include "Common/Failures.h"
#include "RecordsFile.h"
#include "common/fs.h"
#include "support/LogCapture.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class RecordsFileTest : public testing::Test {
 protected:
    FixedRecords load(const std::string& json) const {
        cmn::StrToFile(json, file_);
        return LoadRecords(file_);
    }

    std::string failure(const std::string& json) const {
        return fake::FailureOf([&] { load(json); });
    }

    std::string cannotUse(const std::string& why) const {
        return "Cannot use " + file_.string() + " -- " + why;
    }

    const fake::TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "records.json";
};

TEST_F(RecordsFileTest, ReadsTheRecordsOfEachPath) {
    EXPECT_THAT(load(R"({"/a b": [{"Name": "x"}, {"Name": "y", "More": ""}], "": [], "/c": [{}]})"),
                ElementsAre(Pair("", IsEmpty()),
                            Pair("/a b", ElementsAre(ElementsAre(Pair("Name", "x")),
                                                     ElementsAre(Pair("More", ""), Pair("Name", "y")))),
                            Pair("/c", ElementsAre(IsEmpty()))));
}

TEST_F(RecordsFileTest, NumbersAndFlagsBecomeTexts) {
    const auto records = load(R"({"/a": [{"a": true, "b": false, "c": 0, "d": -12, "e": 18446744073709551615,
                                          "f": 0.1, "g": 2.50, "h": 1e3, "i": -9223372036854775808}]})");
    EXPECT_THAT(records.at("/a").at(0),
                ElementsAre(Pair("a", "1"), Pair("b", "0"), Pair("c", "0"), Pair("d", "-12"),
                            Pair("e", "18446744073709551615"), Pair("f", "0.1"), Pair("g", "2.5"),
                            Pair("h", "1000.0"), Pair("i", "-9223372036854775808")));
}

TEST_F(RecordsFileTest, RefusesOtherValues) {
    for (const auto* value : {"null", "[]", "{}"}) {
        EXPECT_EQ(failure(R"({"/a": [{}, {"Name": )" + std::string(value) + "}]}"),
                  cannotUse(R"("/a": record 2: "Name": must be a text, a number, true or false)"))
            << value;
    }
}

TEST_F(RecordsFileTest, RefusesAnotherShape) {
    EXPECT_EQ(failure("[]"), cannotUse("must be an object"));
    EXPECT_EQ(failure(R"({"/a": {}})"), cannotUse(R"("/a": must be a list)"));
    EXPECT_EQ(failure(R"({"/a": ["x"]})"), cannotUse(R"("/a": record 1: must be an object)"));
}

TEST_F(RecordsFileTest, RefusesWhatStandsTwice) {
    EXPECT_EQ(failure(R"({"/a": [], "/a": []})"), cannotUse(R"("/a": stands twice)"));
    EXPECT_EQ(failure(R"({"/a": [{"Name": "x", "Name": "y"}]})"),
              cannotUse(R"("/a": record 1: "Name": stands twice)"));
}

TEST_F(RecordsFileTest, RefusesWhatIsNoJson) {
    EXPECT_EQ(failure("{"), cannotUse("Invalid json -- err: 4 offs: 1"));
    EXPECT_THROW(load("{"), std::runtime_error);
}

TEST_F(RecordsFileTest, NamesAFileThatIsMissing) {
    EXPECT_EQ(fake::FailureOf([&] { LoadRecords(file_); }),
              cannotUse("[FileToStr] Can't read (" + file_.string() + ") Error: No such file or directory"));
}

}  // namespace
}  // namespace host
