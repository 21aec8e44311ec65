#include "Unpacked.h"

#include <gtest/gtest.h>

#include "common/fs.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

namespace ctl {

namespace {

void Run(const std::vector<std::string>& command) {
    fake::ChildProcess program(command);
    EXPECT_EQ(program.wait(), 0) << command.front() << ": " << program.errors();
}

}  // namespace

std::string BytesOf(const std::filesystem::path& archive) {
    const fake::TemporaryFolder folder;
    Run({"sh", "-c", "gzip -dc <\"$1\" >\"$2\"", "sh", archive.string(), (folder / "bytes").string()});
    return cmn::FileToStr(folder / "bytes");
}

std::map<std::string, std::string> FilesOf(const std::filesystem::path& archive) {
    const fake::TemporaryFolder folder;
    Run({"tar", "-xzf", archive.string(), "-C", folder.path().string()});
    std::map<std::string, std::string> files;
    for (const auto& file : std::filesystem::recursive_directory_iterator(folder.path())) {
        if (file.is_regular_file()) {
            files[file.path().lexically_relative(folder.path()).string()] = cmn::FileToStr(file.path());
        }
    }
    return files;
}

}  // namespace ctl
