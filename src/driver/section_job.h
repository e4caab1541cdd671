// One section, its lines of any length, through the engine.
#pragma once

#include <quorix/api.h>

namespace qx {

// Loads the lines and dispatches them; `failed` if a die ran on the way.
Status run_section_lines(std::int32_t nlines, const char* const* lines);

}  // namespace qx
