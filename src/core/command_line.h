// Word and key search on one command line; whatever is taken leaves the line.
#pragma once

#include "core/text.h"

namespace qx {

// Printable characters only, no comment, no blanks at the ends.
void tidy_line(char* line) noexcept;
// Takes off a trailing "-" or "&"; true if there was one.
bool chop_continuation(char* line) noexcept;

// The key of a setting in a section's line, with the "=" that may stand between it and its value:
// KEY VALUE, KEY=VALUE and KEY = VALUE are one. It is followed by the value as take_value_after and
// take_end_after want it.
Word find_setting(const char* line, const char* key) noexcept;

enum class KeyState { missing, without_value, taken };

// Takes the value of a word of the line: the next word, or what stands between double quotes, of
// which the closing one stays where the key was. Key word and value leave the line.
KeyState take_value_after(char* line, Word key, char* value) noexcept;
// The same of a name, which may be coded; then nothing of it stays in the line.
KeyState take_name_after(char* line, Word key, char* name) noexcept;
// Takes everything after a word; the line is cut at the word.
KeyState take_end_after(char* line, Word key, char* value) noexcept;
void warn_without_value(const char* routine, const char* key);

}  // namespace qx
