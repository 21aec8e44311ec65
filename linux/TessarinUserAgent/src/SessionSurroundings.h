#pragma once

#include <functional>
#include <string>

#include "interface/ToolkitPlatform.h"

namespace useragent {

// Asked every few milliseconds while somebody waits; no ends the wait.
using GoOn = std::function<bool()>;

// Whether the session's message bus answers. The toolkit connects to it with blocking calls: when it does not
// answer, it must not be let near it. Leaves no thread behind: the environment may be changed afterwards.
bool SessionBusAnswers(const std::string& address, const GoOn& goOn);

// The displays that the environment names and that answer: the toolkit ends a program that one of them turns
// away, and waits without end for one that says nothing. Under Wayland an X server is not asked: the first
// who asks makes the session start it.
Displays DisplaysThatAnswer(const GoOn& goOn);

// Throws std::system_error when the threads that the toolkit makes cannot be had: it would wait for them for
// ever.
void RequireToolkitThreads();

}  // namespace useragent
