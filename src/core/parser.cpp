// The parser object: loading text, and putting command lines together from it (comments off,
// continuation lines joined).
#include "core/command_line.h"
#include "core/load_lines.h"
#include "core/object.h"
#include "core/parser_record.h"
#include "core/report.h"
#include "core/say.h"
#include "core/text.h"

#include <quorix/engine.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cstring>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::release;
using qx::Status;

namespace {

constexpr std::int32_t slot_size = 1024;
constexpr std::int32_t buffer_size = 1025;

// Makes both buffers hold `size` bytes; they grow together, so that whatever is taken out of the
// command line fits the work buffer. Long commands grow in proportion, for their copying to stay
// linear.
Status reserve(qxparser* parser, std::size_t size) {
  if (size <= static_cast<std::size_t>(parser->command_capacity)) return ok;
  const auto now = static_cast<std::size_t>(parser->command_capacity);
  const std::size_t steps =
      std::max((size - now) / buffer_size + 1, now / (std::size_t{4} * buffer_size));
  const std::size_t grown = now + steps * buffer_size;
  if (grown > INT32_MAX) return fail("qx_get_quorix_cmd_word():", "The command line is too long. ");
  const auto taken = parser->rest - parser->command;
  auto* command = static_cast<char*>(xrealloc(parser->command, now, grown, "sppc_tcl"));
  if (!command) return failed;
  parser->command = command;
  parser->rest = command + taken;
  auto* work = static_cast<char*>(
      xrealloc(parser->work, static_cast<std::size_t>(parser->work_capacity), grown, "sppc_tcl"));
  if (!work) return failed;
  parser->work = work;
  parser->command_capacity = parser->work_capacity = static_cast<std::int32_t>(grown);
  return ok;
}

Status open_buffers(qxparser* parser, const char* command_tag, const char* work_tag) {
  QX_TRY(qx::open_block(parser->command, buffer_size, command_tag));
  QX_TRY(qx::open_block(parser->work, buffer_size, work_tag));
  parser->command[0] = parser->work[0] = '\0';
  parser->rest = parser->command;
  parser->command_capacity = parser->work_capacity = buffer_size;
  return ok;
}

}  // namespace

namespace qx {

Status assemble_command(qxparser* parser) {
  if (!parser->command) return ok;
  parser->command[0] = '\0';
  parser->rest = parser->command;
  parser->command_start_line = 0;
  std::size_t length = 0;
  for (;;) {
    if (parser->current_line >= parser->ntextlines) {
      parser->current_line = parser->ntextlines + 1;
      return ok;
    }
    const char* stored = parser->text[parser->current_line++];
    QX_TRY(reserve(parser, std::strlen(stored) + 2));
    std::strcpy(parser->work, stored);
    tidy_line(parser->work);
    if (!parser->work[0]) continue;
    const bool continued = chop_continuation(parser->work);
    if (parser->work[0]) {
      if (parser->command_start_line == 0) parser->command_start_line = parser->current_line;
      const std::size_t added = std::strlen(parser->work);
      QX_TRY(reserve(parser, length + added + 3));
      if (length > 0) parser->command[length++] = ' ';
      std::memcpy(parser->command + length, parser->work, added + 1);
      length += added;
    }
    if (!continued) return ok;
  }
}

namespace {

QX_PER_THREAD std::int32_t command_line = -1;

}  // namespace

void note_command_line(const qxparser& parser) noexcept {
  const bool used_up = parser.command_start_line == 0;
  command_line = used_up ? -1 : parser.startlineindex + parser.command_start_line - 1;
}

std::int32_t last_command_line() noexcept { return command_line; }

qxparser* ready_parser(const char* heading) {
  qxparser* parser = qx_get_qxparser();
  if (!parser && qx_exist_quorix()) {
    (void)fail(heading, "qxparser object has not been created yet. ");
  }
  return parser;
}

}  // namespace qx

Status qx_new_qxparser() {
  return qx::create_in(qx_delete_qxparser, qx_set_qxparser, "npp_parser");
}

Status qx_clean_qxparser() {
  qxparser* parser = qx::ready_parser("qx_clean_qxparser():");
  if (!parser) return failed;
  parser->ntextlines = parser->current_line = parser->command_start_line = 0;
  parser->command_capacity = parser->work_capacity = 0;
  if (parser->text) {
    char* block = parser->text[0];
    QX_TRY(release(block));
  }
  QX_TRY(release(parser->text));
  parser->rest = nullptr;
  QX_TRY(release(parser->command));
  return release(parser->work);
}

Status qx_delete_qxparser() {
  qxparser* parser = qx_get_qxparser();
  if (!parser) return ok;
  QX_TRY(qx_clean_qxparser());
  return qx::remove_from(parser, qx_set_qxparser);
}

namespace {

// Lines to be loaded: pointers, or slots of 1024 bytes with the bytes of each that count.
struct LineSource {
  const char* const* lines;
  const char* slots;
  const std::int32_t* lengths;

  [[nodiscard]] const char* start(std::int32_t i) const {
    return lines ? lines[i] : slots + static_cast<std::ptrdiff_t>(i) * slot_size;
  }
  [[nodiscard]] std::size_t length(std::int32_t i) const {
    return lengths ? static_cast<std::size_t>(std::max(lengths[i], 0)) : std::strlen(lines[i]);
  }
};

Status store_lines(qxparser* parser, std::int32_t nlines, const LineSource& source) {
  std::size_t size = 0;
  for (std::int32_t i = 0; i < nlines; ++i) size += source.length(i) + 1;
  QX_TRY(qx::open_block(parser->text, static_cast<std::size_t>(nlines), "sppsft_txt"));
  parser->text[0] = nullptr;
  char* to = qx::allocate<char>(size, "sppsft_tet");
  if (!to) return failed;
  for (std::int32_t i = 0; i < nlines; ++i) {
    const std::size_t length = source.length(i);
    parser->text[i] = to;
    std::memcpy(to, source.start(i), length);
    to[length] = '\0';
    qx_chop_newline_char(to);
    qx_chop_left_right_whitespaces(to);
    to += length + 1;
  }
  return ok;
}

Status load(std::int32_t nlines, const LineSource& source, std::int32_t startlineindex) {
  qxparser* parser = qx::ready_parser("qx_set_parser_from_text():");
  if (!parser) return failed;
  if (nlines > 0) QX_TRY(store_lines(parser, nlines, source));
  parser->ntextlines = std::max(nlines, 0);
  parser->startlineindex = startlineindex;
  parser->current_line = parser->command_start_line = 0;
  return open_buffers(parser, "sppsft_cmd", "sppft_wk");
}

}  // namespace

Status qx_set_parser_from_text(std::int32_t nlines, const char* text, const std::int32_t* lengths,
                               std::int32_t startlineindex) {
  return load(nlines, {nullptr, text, lengths}, startlineindex);
}

namespace qx {

Status load_lines(std::int32_t nlines, const char* const* lines) {
  return load(nlines, {lines, nullptr, nullptr}, 0);
}

}  // namespace qx

std::int32_t qx_is_quorix_text_left() {
  qxparser* parser = qx::ready_parser("qx_is_quorix_text_left():");
  if (!parser || !parser->command) return 0;
  for (std::int32_t i = std::max(parser->current_line, 0); i < parser->ntextlines; ++i) {
    if (reserve(parser, std::strlen(parser->text[i]) + 1) != ok) return 0;
    std::strcpy(parser->work, parser->text[i]);
    qx::tidy_line(parser->work);
    if (parser->work[0]) return 1;
  }
  return 0;
}

void qx_print_qxparser() {
  const qxparser* parser = qx::ready_parser("qx_print_qxparser():");
  if (!parser) return;
  qx::say("\n");
  qx::say("ntextlines=%d\n", parser->ntextlines);
  qx::say("startlineindex=%d\n", parser->startlineindex);
  qx::say("\n");
  for (std::int32_t i = 0; i < parser->ntextlines; ++i) qx::say("%s\n", parser->text[i]);
}

std::size_t qx_get_quorix_cmdline_size() {
  const qxparser* parser = qx::ready_parser("qx_get_quorix_cmdline_size():");
  return parser && parser->command ? std::strlen(parser->rest) + 1 : 1;
}

namespace {

// What a first pass over a stream learns: sizes of its lines, cut at 1024 characters like the
// slots of a text load.
struct StreamLines {
  qx::Tagged<std::int32_t> sizes;    // bytes of each line with its terminator
  qx::Tagged<std::int32_t> trimmed;  // length without blanks at the ends
  std::int32_t count = 0;
  std::int32_t capacity = 0;
};

constexpr std::int32_t line_step = 5000;

Status grow(qx::Tagged<std::int32_t>& sizes, std::int32_t count, const char* tag) {
  qx::Tagged<std::int32_t> grown(static_cast<std::size_t>(count + line_step), tag);
  if (!grown) return failed;
  if (count > 0)
    std::memcpy(grown.get(), sizes.get(), static_cast<std::size_t>(count) * sizeof(std::int32_t));
  sizes = std::move(grown);
  return ok;
}

Status measure(std::FILE* stream, char* work, StreamLines& lines) {
  std::rewind(stream);
  while (std::fgets(work, buffer_size, stream)) {
    if (lines.count == lines.capacity) {
      if (lines.count > INT32_MAX - line_step) {
        return fail("qx_set_parser_from_stream():", "The input file has too many lines ");
      }
      const bool first = lines.count == 0;
      QX_TRY(grow(lines.sizes, lines.count, first ? "sppsfs_nl" : "sppsfs_nlt"));
      QX_TRY(grow(lines.trimmed, lines.count, first ? "sppsfs_lr" : "sppsfs_ltr"));
      lines.capacity = lines.count + line_step;
    }
    qx_chop_newline_char(work);
    lines.sizes[static_cast<std::size_t>(lines.count)] =
        static_cast<std::int32_t>(std::strlen(work)) + 1;
    qx_replace_nonprint_with_blank(work);
    qx_chop_left_right_whitespaces(work);
    lines.trimmed[static_cast<std::size_t>(lines.count)] =
        static_cast<std::int32_t>(std::strlen(work));
    ++lines.count;
  }
  while (lines.count > 0 && lines.trimmed[static_cast<std::size_t>(lines.count) - 1] == 0)
    --lines.count;
  return ok;
}

Status store(qxparser* parser, std::FILE* stream, const StreamLines& lines, char* work) {
  const auto count = static_cast<std::size_t>(lines.count);
  std::size_t size = 0;
  for (std::size_t i = 0; i < count; ++i) size += static_cast<std::size_t>(lines.sizes[i]);
  QX_TRY(qx::open_block(parser->text, count, "sppsfs_txt"));
  parser->text[0] = nullptr;
  char* to = qx::allocate<char>(size, "sppsfs_tet");
  if (!to) return failed;
  std::rewind(stream);
  for (std::size_t i = 0; i < count; ++i) {
    parser->text[i] = to;
    const auto room = static_cast<std::size_t>(lines.sizes[i]);
    // A stream that changed between the passes must not overrun what the first one measured.
    if (!std::fgets(work, buffer_size, stream)) work[0] = '\0';
    qx_chop_newline_char(work);
    work[std::min(std::strlen(work), room - 1)] = '\0';
    std::strcpy(to, work);
    to += room;
  }
  parser->ntextlines = lines.count;
  return ok;
}

void echo(const qxparser* parser) {
  qx::say("\n");
  bool started = false;
  for (std::int32_t i = 0; i < parser->ntextlines; ++i) {
    started = started || qx_does_it_has_word_char(parser->text[i]);
    if (started) qx::say("%s\n", parser->text[i]);
  }
  qx::say("\n\n");
}

}  // namespace

Status qx_set_parser_from_stream(std::FILE* stream) {
  qxparser* parser = qx::ready_parser("qx_set_parser_from_stream():");
  if (!parser) return failed;
  qx::Tagged<char> work(buffer_size, "sppfs_wk");
  if (!work) return failed;
  StreamLines lines;
  QX_TRY(measure(stream, work.get(), lines));
  if (lines.count == 0) {
    qx::note("qx_set_parser_from_stream():", "The input file is empty ");
    return failed;
  }
  QX_TRY(store(parser, stream, lines, work.get()));
  echo(parser);
  parser->startlineindex = parser->current_line = parser->command_start_line = 0;
  return open_buffers(parser, "sppsfs_cmd", "sppfs_wk");
}
