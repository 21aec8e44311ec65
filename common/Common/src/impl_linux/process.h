#pragma once

#include <string>

namespace cmn {

// What /proc/{pid}/exe points to, without the mark of a program file that was replaced while it runs.
std::string StripDeletedMark(std::string path);

}  // namespace cmn
