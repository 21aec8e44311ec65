#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "filemanagers/FileManagerEntries.h"

namespace useragent {

// The entry in a file manager's context menu, from the command line. Arguments: "install", "remove" or
// "status", then perhaps the name of a file manager; without it the one of this desktop is meant. Returns the
// exit code: 0 done, or installed; 1 failed; 2 wrong arguments; 3 not installed. Needs no Qt application.
int RunFileManagerCommand(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);
int RunFileManagerCommand(const std::vector<std::string>& arguments, const FileManagerEntries& entries,
                          const DesktopSession& session, std::ostream& out, std::ostream& err);

}  // namespace useragent
