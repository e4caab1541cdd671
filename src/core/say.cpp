// Where printed text goes.
#include "core/say.h"

#include <quorix/engine.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

QX_PER_THREAD qx_output_sink sink = nullptr;
QX_PER_THREAD void* sink_context = nullptr;

// Texts that the usual room does not hold get room of their own; where there is none they are cut,
// which is better than not said.
void hand_over(const char* format, std::va_list values) {
  char usual[1024];
  std::va_list again;
  va_copy(again, values);
  const int size = std::vsnprintf(usual, sizeof usual, format, values);
  char* text = usual;
  auto length = static_cast<std::size_t>(size < 0 ? 0 : size);
  if (length >= sizeof usual) {
    text = static_cast<char*>(std::malloc(length + 1));
    if (text) std::vsnprintf(text, length + 1, format, again);
    if (!text) text = usual, length = sizeof usual - 1;
  }
  va_end(again);
  sink(sink_context, text, length);
  if (text != usual) std::free(text);
}

}  // namespace

void qx_set_output(qx_output_sink where, void* context) {
  sink = where;
  sink_context = context;
}

namespace qx {

void say_values(const char* format, std::va_list values) {
  if (sink) {
    hand_over(format, values);
  } else {
    std::vprintf(format, values);
  }
}

void say(const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  say_values(format, values);
  va_end(values);
}

}  // namespace qx
