#pragma once

namespace cmn {

class LogFile;

// The logs that are waited for when the process fails, at most eight at a time.
void WatchLogForCrash(LogFile& log) noexcept;
void UnwatchLogForCrash(LogFile& log) noexcept;

}  // namespace cmn
