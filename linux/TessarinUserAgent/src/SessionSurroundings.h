#pragma once

namespace useragent {

// Whether the session's message bus answers. The toolkit connects to it with blocking calls: when it does not
// answer, it must not be let near it.
bool SessionBusAnswers();

// Whether there is a display that the toolkit can open. It ends a program that asks for one in vain.
bool DisplayAnswers();

}  // namespace useragent
