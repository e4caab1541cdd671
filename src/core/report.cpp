// Prints a report to standard output and takes the fatal-error path.
#include "core/report.h"

#include <quorix/engine.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace qx {

namespace {

void print_report(const char* heading, const char* format, std::va_list values) {
  std::printf("\n%s\n", heading);
  std::vprintf(format, values);
  const std::size_t length = std::strlen(format);
  if (length == 0 || format[length - 1] != '\n') std::putchar('\n');
}

}  // namespace

Status fail(const char* heading, const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  print_report(heading, format, values);
  va_end(values);
  die();
  return failed;
}

void note(const char* heading, const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  print_report(heading, format, values);
  va_end(values);
}

}  // namespace qx
