// Loading section text whose lines may be of any length.
#pragma once

#include <quorix/api.h>

namespace qx {

// As qx_set_parser_from_text, from NUL-terminated lines; the caller's numbering starts at 0.
Status load_lines(std::int32_t nlines, const char* const* lines);

// The caller's number of the line on which the last command began; -1 when the text was used up. A
// die leaves it, so that a front end can tell where it stopped.
std::int32_t last_command_line() noexcept;

}  // namespace qx
