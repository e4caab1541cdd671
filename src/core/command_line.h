// K. Word and key search on one command line; whatever is taken leaves the line.
#pragma once

#include "core/text.h"

namespace qx {

// Printable characters only, no comment, no blanks at the ends.
void tidy_line(char* line) noexcept;
// Takes off a trailing "-" or "&"; true if there was one.
bool chop_continuation(char* line) noexcept;

enum class KeyState { missing, without_value, taken };

// Takes the value of a word of the line: the next word, or what stands between double quotes, of
// which the closing one stays where the key was. Key word and value leave the line.
KeyState take_value_after(char* line, Word key, char* value) noexcept;
// Takes everything after a word; the line is cut at the word.
KeyState take_end_after(char* line, Word key, char* value) noexcept;

}  // namespace qx
