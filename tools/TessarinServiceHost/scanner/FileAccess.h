#pragma once

#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <string>

#include "FileUser.h"

// The platform's ways to files. What is opened is a descriptor, closed in programs that the host starts; -1
// stands for a failure, with errno.
namespace host {

// Opens a file for reading, through symbolic links, and tells what it is. Throws what RegularFile throws.
int OpenRegularFile(const std::string& path, const FileUser& user, struct stat& status);

// Opens the file behind a descriptor once more, for writing.
int OpenForWriting(int descriptor, const FileUser& user);

// Where the opened file is now, without symbolic links. Throws std::runtime_error, the text is the reason.
std::filesystem::path PlaceOf(int descriptor);

// Only as a place for names.
int OpenFolder(const std::filesystem::path& folder, const FileUser& user);

// A new empty file in a folder, whose `name` ends with XXXXXX, which becomes something else.
int MakeTemporaryFile(int folder, std::string& name, const FileUser& user);

timespec ModificationTime(const struct stat& status);
timespec ChangeTime(const struct stat& status);

}  // namespace host
