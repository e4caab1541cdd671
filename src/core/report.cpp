// Prints a report to standard output and takes the fatal-error path.
#include "core/report.h"

#include <quorix/engine.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace qx {

namespace {

// A text may end its last line itself, also through a value: the line is ended once.
void print_report(const char* heading, const char* format, std::va_list values) {
  std::va_list again;
  va_copy(again, values);
  char tail[2] = "";
  const int size = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::printf("\n%s\n", heading);
  char* text =
      size > 0 ? static_cast<char*>(std::malloc(static_cast<std::size_t>(size) + 1)) : tail;
  if (text) {
    std::vsnprintf(text, size > 0 ? static_cast<std::size_t>(size) + 1 : sizeof tail, format,
                   values);
    std::fputs(text, stdout);
    if (size < 1 || text[size - 1] != '\n') std::putchar('\n');
  } else {
    std::vprintf(format, values);
    std::putchar('\n');
  }
  if (text != tail) std::free(text);
}

}  // namespace

#ifndef __clang_analyzer__
Status fail(const char* heading, const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  print_report(heading, format, values);
  va_end(values);
  die();
  return failed;
}
#endif

void note(const char* heading, const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  print_report(heading, format, values);
  va_end(values);
}

}  // namespace qx
