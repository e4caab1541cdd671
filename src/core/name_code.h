// K. Names with characters that mean something else in a line of a section.
//
// Comment marks are cut off before quotes are looked at, and a quoted value has no escape: such a
// name is written between doubled quotes, ""a%231.mtz"", where %23 is the byte 0x23. A value that
// opens with two quotes has been an empty one, which no command takes for a name: texts that worked
// keep their meaning.
#pragma once

#include <cstddef>

namespace qx {

// True if the text opens a coded name.
bool opens_name_code(const char* text) noexcept;
// Decodes what stands between the doubled quotes that `text` opens with into `name`, which may be
// the same place; gives where the code ends.
const char* decode_name(const char* text, char* name) noexcept;

// True if a name that stands between quotes, or a word if it stands alone, must be coded.
bool needs_code_in_quotes(const char* name) noexcept;
bool needs_code_as_word(const char* name) noexcept;
// Bytes that code_name() writes, its end included.
std::size_t coded_size(const char* name) noexcept;
void code_name(const char* name, char* code) noexcept;

}  // namespace qx
