#include <gtest/gtest.h>

#include "support/ChildProcess.h"

namespace {

// Of a process that works out the types of the records in its threads, one in 25 ends.
TEST(DBusMarshallingTest, ThreadsThatWriteTheirFirstRecordsAtTheSameMomentDoNotEndTheProcess) {
    for (int i = 0; i < 150; ++i) {
        fake::ChildProcess program({TESSARIN_FIRST_RECORDS});
        ASSERT_EQ(program.wait(), 0) << "run " << i << ": " << program.errors();
    }
}

}  // namespace
