// Prints a report and takes the fatal-error path.
#include "core/report.h"

#include "core/say.h"

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
  const int size = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  say("\n%s\n", heading);
  const auto room = static_cast<std::size_t>(size > 0 ? size : 0) + 1;
  char* text = static_cast<char*>(std::malloc(room));
  if (text) {
    std::vsnprintf(text, room, format, values);
    say(room > 1 && text[room - 2] == '\n' ? "%s" : "%s\n", text);
  } else {
    say_values(format, values);
    say("\n");
  }
  std::free(text);
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
