#pragma once

#include <filesystem>
#include <string>
#include <system_error>

#include "common/stamps.h"

namespace bench {

// A new empty folder that is removed with its content.
class TemporaryFolder {
 public:
    TemporaryFolder()
        : path_(std::filesystem::temp_directory_path() / ("tessarin-bench-" + cmn::MakeUUID())) {
        std::filesystem::create_directory(path_);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
    std::filesystem::path path_;
};

}  // namespace bench
