#pragma once

#include "Command.h"

namespace ctl {

// How the agent of this session is.
int Status(const Arguments& arguments, const Surroundings& surroundings, Console& console);
// Its log, as far as the ring of files goes back.
int Logs(const Arguments& arguments, const Surroundings& surroundings, Console& console);
// The properties window of a file.
int Open(const Arguments& arguments, const Surroundings& surroundings, Console& console);
// What the service finds in a file.
int Scan(const Arguments& arguments, const Surroundings& surroundings, Console& console);
// What is wrong here, and what mends it.
int Diagnose(const Arguments& arguments, const Surroundings& surroundings, Console& console);
// An archive for support: what the other commands say, settings and logs.
int Bundle(const Arguments& arguments, const Surroundings& surroundings, Console& console);

}  // namespace ctl
