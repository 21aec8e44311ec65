#pragma once

#include <filesystem>
#include <string>

namespace useragent {

// What the user was told already, in this session or an earlier one: an empty file for each. Removing the
// file makes it be told again. Any thread.
class ToldOnce {
 public:
    // Keeps nothing: nothing was told.
    ToldOnce() = default;
    // Keeps it in a folder of the user's, which is made when it is needed. Relative and empty: nowhere.
    explicit ToldOnce(std::filesystem::path folder);
    static ToldOnce OfThisUser();

    // `what` is a part of a file's name.
    bool wasTold(const std::string& what) const;
    // With a line in the log when it cannot be kept.
    void setToldNoThrow(const std::string& what) const noexcept;

 private:
    std::filesystem::path fileFor(const std::string& what) const;

    std::filesystem::path folder_;
};

}  // namespace useragent
