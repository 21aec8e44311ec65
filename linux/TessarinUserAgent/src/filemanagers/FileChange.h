#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace useragent {

// The text of one of the user's files; nothing when there is none. Throws std::runtime_error when it cannot
// be read or is not a file that a menu entry could be in.
std::optional<std::string> ReadUserFile(const std::filesystem::path& file);

bool IsExecutableFile(const std::filesystem::path& file) noexcept;

// One change to one of the user's files: all of it or nothing. Links to files are followed when writing.
class FileChange {
 public:
    // Without a text the file is removed. Reads what is there; throws std::runtime_error.
    FileChange(std::filesystem::path file, std::optional<std::string> text, bool executable = false);

    // Throws std::runtime_error with a sentence for the user. Leaves a file alone that is already so.
    void apply();
    void undo() noexcept;

 private:
    void write(const std::string& text, bool executable);
    void makeFolders();
    void removeFile() const;

    const std::filesystem::path file_;
    const std::optional<std::string> text_;
    const bool executable_;
    std::optional<std::string> before_;
    bool wasExecutable_ = false;
    bool applied_ = false;
    std::vector<std::filesystem::path> madeFolders_;  // outermost first
};

}  // namespace useragent
