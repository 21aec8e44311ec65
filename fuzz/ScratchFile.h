#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "Check.h"

// A file in a folder of its own in memory, for what reads files only. Goes with the process.
class ScratchFile {
 public:
    explicit ScratchFile(const std::string& name) {
        std::string folder = "/dev/shm/tessarin-fuzz-XXXXXX";
        Check(mkdtemp(folder.data()) != nullptr);
        path_ = std::filesystem::path(folder) / name;
    }
    ~ScratchFile() { std::filesystem::remove_all(path_.parent_path()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    std::string path() const { return path_.string(); }
    std::string folder() const { return path_.parent_path().string(); }
    void write(std::string_view content) const { std::ofstream(path_, std::ios::binary) << content; }
    std::string read() const {
        std::ostringstream content;
        content << std::ifstream(path_, std::ios::binary).rdbuf();
        return content.str();
    }

 private:
    std::filesystem::path path_;
};
