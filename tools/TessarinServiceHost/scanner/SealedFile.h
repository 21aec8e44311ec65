#pragma once

#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <string_view>

#include "FileUser.h"

// The host's stand-in for the product's encryption, so that there is something to detect and to take away. It
// protects nothing: a sealed file is a line and, behind it, the content as it was.
namespace host {

inline constexpr std::string_view kSealLine = "TESSARIN HOST SEALED FILE 1\n";

// 2 is left to the service, which answers it when there is no scanner.
enum class UnsealStatus : int { unsealed = 0, notSealed = 1, unreadable = 3, unwritable = 4 };

// A larger file is not unsealed.
inline constexpr std::int64_t kLargestSealedFile = std::int64_t{1} << 30;

// False for what the user cannot read.
bool IsSealed(const std::string& path, const FileUser& user);

// Takes the line away for a user who may read and write the file and change its folder. A symbolic link
// stays, the file it leads to is replaced by a new one with the same permission bits and, where that is
// allowed, the same owner; its other hard links stay sealed. When it fails the file is as before. Relative
// paths are refused: they would depend on where the host was started. May be called for the same file at the
// same time, by other processes too. `stop` ends it between two pieces of the file. Logs its outcome.
UnsealStatus Unseal(const std::string& path, const FileUser& user, const std::stop_token& stop = {});

// Calls `beforeReplacing` each time the new content is complete and the old still in place.
UnsealStatus UnsealWith(const std::string& path, const FileUser& user,
                        const std::function<void()>& beforeReplacing, const std::stop_token& stop = {});

}  // namespace host
