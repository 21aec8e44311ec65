#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "SealedFile.h"
#include "common/fs.h"
#include "support/LogCapture.h"

namespace fake {

// A folder with one sealed file.
class SealedFileFixture : public testing::Test {
 protected:
    SealedFileFixture() { seal(content_); }

    void seal(const std::string& content) const {
        cmn::StrToFile(std::string(host::kSealLine) + content, file_);
    }
    std::string content() const { return cmn::FileToStr(file_); }

    // The names in the folder.
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            found.push_back(entry.path().filename());
        }
        return found;
    }

    const fake::TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "file.txt";
    const std::string content_{"first line\nsecond \0 line\xFF\n", 26};
    const std::string sealed_ = std::string(host::kSealLine) + content_;
};

}  // namespace fake
