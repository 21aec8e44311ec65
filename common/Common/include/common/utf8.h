#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cmn {

// Whether the bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool IsValidUtf8(std::string_view text);

// Bytes of the well-formed sequence at the start of the text; 0 when there is none.
std::size_t Utf8SequenceLength(std::string_view text);

// How many UTF-16 units the text takes. A byte that belongs to no well-formed sequence counts as one.
std::size_t Utf16Length(std::string_view text);

// A text of others as it can stand in a line of the log, where it must neither begin a line of its own nor
// tell a terminal anything: the bytes of control characters, of the separators of lines and paragraphs, of
// the marks that turn the direction of writing, and those that belong to no character are spelled as \xNN.
std::string EscapeControls(std::string_view text);

}  // namespace cmn
