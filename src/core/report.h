// The one mouth for faults.
#pragma once

#include <quorix/api.h>

#if defined(__GNUC__) || defined(__clang__)
#define QX_PRINTF(format_index, first) __attribute__((format(printf, format_index, first)))
#else
#define QX_PRINTF(format_index, first)
#endif

namespace qx {

// Prints an empty line, `heading` ("routine():" as it is to appear) and the message, each on a line
// of its own, then calls die. Always gives `failed`: `return fail("f():", "no %s", name);`
#ifdef __clang_analyzer__
// What the static analyzer must know of it.
template <class... Values>
Status fail(const char* /*heading*/, const char* /*format*/, const Values&... /*values*/) {
  return failed;
}
#else
Status fail(const char* heading, const char* format, ...) QX_PRINTF(2, 3);
#endif

// The same report without a die, for the few faults that stop nothing.
void note(const char* heading, const char* format, ...) QX_PRINTF(2, 3);

}  // namespace qx
