// Taking words, keys and values out of the current command line. Texts of any length: each routine
// gives a pointer into the parser's work buffer, valid until the next call of this header.
#pragma once

#include <quorix/api.h>

#include <cstddef>

namespace qx {

// Starts the next command: the first four characters of its first word, upper-cased; empty when the
// text is used up. Whatever the previous command left unread is warned about.
Status next_command(char (&word)[5]);
// The next word of the current command, cut to four characters and upper-cased; empty if none.
Status next_short_word(char (&word)[5]);

// The next whole word as written; `absent` if none is left.
Key take_word(const char*& text);
// The rest of the line without leading blanks; `absent` if it is empty.
Key take_rest(const char*& text);
// The same for what a command sets, where an "=" may stand before it: all of it, its next word, its
// next word as next_short_word gives it.
Key take_argument(const char*& text);
Key take_argument_word(const char*& text);
Status next_choice(char (&word)[5]);
// The word after the first word that begins with `key`, or what stands between double quotes; an
// "=" may stand between the two, with or without blanks. `absent` without such a word; a key
// without a value is warned about and counts as absent.
Key take_value(const char* key, const char*& text);
// As take_value, of a name that may be coded.
Key take_name(const char* key, const char*& text);
// Everything after the first word that begins with `key`.
Key take_end(const char* key, const char*& text);
// Numbers after a key, as take_value; an unreadable one is reported.
Key take_int(const char* key, std::int32_t& value);
Key take_double(const char* key, double& value);
// True and the word removed if some word begins with `key`.
bool take_key(const char* key);

// A command that takes yes or no was given another word, and is ignored.
void warn_no_choice(const char* command, const char* word);

// A word that equals `keyword` (any case) when compared on keyword's own length.
bool begins_with(const char* word, const char* keyword) noexcept;

}  // namespace qx
