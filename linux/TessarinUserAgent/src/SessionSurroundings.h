#pragma once

#include <functional>
#include <string>

namespace useragent {

// Asked every few milliseconds while somebody waits; no ends the wait.
using GoOn = std::function<bool()>;

// Whether the session's message bus answers. The toolkit connects to it with blocking calls: when it does not
// answer, it must not be let near it. Leaves no thread behind: the environment may be changed afterwards.
bool SessionBusAnswers(const std::string& address, const GoOn& goOn);

// Whether there is a display that the toolkit can open. It ends a program that asks for one in vain.
bool DisplayAnswers(const GoOn& goOn);

// Throws std::system_error when the threads that the toolkit makes cannot be had: it would wait for them for
// ever.
void RequireToolkitThreads();

}  // namespace useragent
