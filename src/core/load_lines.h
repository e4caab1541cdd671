// Loading section text whose lines may be of any length.
#pragma once

#include <quorix/api.h>

namespace qx {

// As qx_set_parser_from_text, from NUL-terminated lines; the caller's numbering starts at 0.
Status load_lines(std::int32_t nlines, const char* const* lines);

}  // namespace qx
