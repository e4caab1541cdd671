// The parser's record.
#pragma once

#include <quorix/parser.h>

struct qxparser {
  std::int32_t ntextlines = 0;
  char** text = nullptr;
  std::int32_t startlineindex = 0;
  std::int32_t current_line = 0;        // 1-based, last line taken into a command
  std::int32_t command_start_line = 0;  // 1-based, where the current command began
  std::int32_t command_capacity = 0;
  char* command = nullptr;
  char* rest = nullptr;  // what of the command has not been taken yet: words go from its front
  char* work = nullptr;  // the word or value taken last; never smaller than `command`
  std::int32_t work_capacity = 0;
};

namespace qx {

// The parser with a command line loaded; null after a report under `heading`.
qxparser* ready_parser(const char* heading);
// Keeps the line on which the command began, for last_command_line().
void note_command_line(const qxparser& parser) noexcept;
// Puts the next command line together; the buffers may move.
Status assemble_command(qxparser* parser);

}  // namespace qx
