#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "Unpacked.h"
#include "bundle/Archive.h"
#include "common/fs.h"
#include "support/Environment.h"
#include "support/FileSizeLimit.h"
#include "support/LogCapture.h"

namespace ctl {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class ArchiveTest : public testing::Test {
 protected:
    void write(std::chrono::milliseconds deadline = std::chrono::seconds(20)) const {
        WriteArchive(archive, {{"a.json", "{}"}, {"logs-1/x_0.log", "line\n"}},
                     cmn::bus::Clock::now() + deadline);
    }
    std::string failure() const {
        try {
            write();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return {};
    }
    // Nothing of an attempt is left.
    void expectNothingLeft() const {
        EXPECT_FALSE(fs::exists(fs::symlink_status(archive)));
        EXPECT_TRUE(fs::is_empty(temporary.path()));
    }

    const fake::TemporaryFolder folder;
    const fake::TemporaryFolder temporary;
    const fake::Environment temporaryFolder{"TMPDIR", temporary.path().string()};
    const fs::path archive = folder / "support.tar.gz";
};

TEST_F(ArchiveTest, HoldsTheFilesForTheirOwnerAlone) {
    write();
    EXPECT_THAT(FilesOf(archive),
                testing::ElementsAre(testing::Pair("tessarin-support/a.json", "{}"),
                                     testing::Pair("tessarin-support/logs-1/x_0.log", "line\n")));
    EXPECT_EQ(fs::status(archive).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(fs::is_empty(temporary.path()));
}

TEST_F(ArchiveTest, ItsHeadersNameNobody) {
    write();
    const std::string bytes = BytesOf(archive);
    for (const std::string& name : {std::string("root"), temporary.path().string(), folder.path().string()}) {
        EXPECT_EQ(bytes.find(name), std::string::npos) << name;
    }
    EXPECT_EQ(cmn::FileToStr(archive).find("archive"), std::string::npos);
}

TEST_F(ArchiveTest, OverwritesNothing) {
    cmn::StrToFile("before", archive);
    EXPECT_THAT(failure(), HasSubstr("support.tar.gz cannot be written: File exists"));
    EXPECT_EQ(cmn::FileToStr(archive), "before");
    fs::remove(archive);
    fs::create_symlink(folder / "elsewhere", archive);
    EXPECT_THAT(failure(), HasSubstr("File exists"));
    EXPECT_FALSE(fs::exists(folder / "elsewhere"));
}

TEST_F(ArchiveTest, WithoutTarNothingIsLeft) {
    const fake::Environment noPrograms("PATH", temporary.path().string());
    EXPECT_THAT(failure(), HasSubstr("tar failed or took too long"));
    expectNothingLeft();
}

TEST_F(ArchiveTest, WhenTarTakesTooLongNothingIsLeft) {
    cmn::StrToFile("#!/bin/sh\nexec sleep 1000\n", folder / "tar");
    fs::permissions(folder / "tar", fs::perms::owner_all);
    const fake::Environment slow("PATH", folder.path().string() + ":/usr/bin:/bin");
    EXPECT_THROW(write(std::chrono::milliseconds(50)), std::runtime_error);
    expectNothingLeft();
}

TEST_F(ArchiveTest, OnAFullDiskNothingIsLeft) {
    {
        const fake::FileSizeLimit full(1);
        EXPECT_NE(failure(), "");
    }
    expectNothingLeft();
    fs::remove_all(folder.path());
    EXPECT_THAT(failure(), HasSubstr("No such file or directory"));
    fs::create_directory(folder.path());
    expectNothingLeft();
}

}  // namespace
}  // namespace ctl
