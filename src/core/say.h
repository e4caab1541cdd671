// The one mouth of the engine: everything that is printed goes through here.
#pragma once

#include "core/report.h"

#include <cstdarg>

namespace qx {

// Prints to standard output, or to where a caller has turned it: qx_set_output.
void say(const char* format, ...) QX_PRINTF(1, 2);
void say_values(const char* format, std::va_list values);

}  // namespace qx
