#include "driver/commands/command_error.h"

#include <cstdarg>
#include <cstdio>

namespace qx {

std::string format(const char* pattern, ...) {
  std::va_list values;
  va_start(values, pattern);
  std::va_list again;
  va_copy(again, values);
  std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, pattern, values)), '\0');
  std::vsnprintf(text.data(), text.size() + 1, pattern, again);
  va_end(again);
  va_end(values);
  return text;
}

}  // namespace qx
