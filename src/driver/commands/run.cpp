// quorix run: a text of sections, one after the other.
#include "core/files_read.h"
#include "core/load_lines.h"
#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/commands/job_text.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/output_guard.h"
#include "driver/commands/output_place.h"
#include "driver/commands/reflection_file.h"

#include <quorix/engine.h>
#include <quorix/parser.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

namespace qx {

namespace {

constexpr const char* closing = R"(
The sections are run one after the other; the first that fails ends the run, and FILE:LINE and the
command at which it stopped stand on standard error. An xter section ends the engine, and the text
behind it has a new one. Where the text reads reflections, gzipped MTZ and structure-factor mmCIF
will do as well; an output whose name ends in .gz is written compressed.

Before anything is run, what the text writes is looked at: no file that it reads, nor the text
itself, is written over, nor a file that holds something other than is to be written.

Examples:
  quorix map 1ubq.mtz --print-sections >job.qx
      A text to begin with.
  quorix run job.qx
      Runs it.
)";

struct Options {
  std::string path = "-";
  bool force = false;
};

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

int keep_open(std::FILE*) { return 0; }

Stream open_text(const std::string& path) {
  if (path == "-") return {stdin, keep_open};
  return {std::fopen(path.c_str(), "rb"), std::fclose};
}

JobText read_text(const Stream& stream, const std::string& path) {
  JobText text;
  if (!stream || !text.read(stream.get())) {
    throw CommandError(2, "cannot read " + path + ": " + std::strerror(errno));
  }
  if (text.commands().empty()) throw CommandError(2, path + " holds no section");
  return text;
}

// What a text writes and reads later is its own.
void check_files(const JobText& text, const Options& options) {
  std::vector<std::string> inputs = {options.path == "-" ? "/dev/stdin" : options.path};
  std::vector<Output> outputs;
  for (const JobFile& file : text.files()) {
    if (file.use == JobFile::Use::reads_reflections) {
      inputs.push_back(file.path);
      continue;
    }
    const bool map = file.use == JobFile::Use::writes_map;
    outputs.push_back({file.path, map ? FileKind::map : FileKind::mtz});
    check_outputs(inputs, outputs, options.force);
  }
}

// What the engine neither reads nor writes itself: other formats, compressed files.
class OtherFiles {
 public:
  void stand_in(JobText& text) {
    for (const JobFile& file : text.files()) {
      if (file.use == JobFile::Use::reads_reflections) {
        const FileKind kind = kind_of(file.path);
        if (kind == FileKind::mtz && !is_gzipped(file.path)) continue;
        if (!holds_reflections(kind)) continue;  // the engine tells what is wrong with it
        inputs_.push_back(readable_mtz(file.path));
        text.set_path(file, inputs_.back().path);
      } else if (asks_for_gzip(file.path)) {
        outputs_.push_back(std::make_unique<OutputPlace>(file.path));
        text.set_path(file, outputs_.back()->path());
      }
    }
  }
  void deliver() const {
    for (const auto& output : outputs_) output->deliver();
  }

 private:
  std::vector<ReadableMtz> inputs_;
  std::vector<std::unique_ptr<OutputPlace>> outputs_;
};

// What is run, before it is run.
void echo(const std::vector<std::string>& lines) {
  std::printf("\n");
  bool started = false;
  for (const std::string& line : lines) {
    started = started || qx_does_it_has_word_char(line.c_str());
    if (started) std::printf("%s\n", line.c_str());
  }
  std::printf("\n\n");
}

Status load(const std::vector<std::string>& lines, const JobPart& part) {
  std::vector<const char*> pointers;
  pointers.reserve(part.last - part.first);
  for (std::size_t i = part.first; i < part.last; ++i) pointers.push_back(lines[i].c_str());
  return load_lines(static_cast<std::int32_t>(pointers.size()), pointers.data());
}

// As compilers do, so that editors find the line.
void tell_where(const JobText& text, const JobPart& part, const std::string& path) {
  constexpr std::size_t enough = 200;
  const std::string name = path == "-" ? "<stdin>" : path;
  const std::int32_t line = last_command_line();
  std::fflush(stdout);
  if (line < 0) {
    std::cerr << name << ':' << part.last << ": the text ends inside a section: xend?\n";
    return;
  }
  const std::size_t number = part.first + static_cast<std::size_t>(line);
  const JobCommand* command = text.command_at(number);
  if (!command) return;
  const bool cut = command->text.size() > enough;
  std::cerr << name << ':' << number + 1 << ": " << command->text.substr(0, enough)
            << (cut ? " ..." : "") << '\n';
}

// False after a report.
bool run_part(const JobText& text, const JobPart& part, const Stream& stream,
              const std::string& path) {
  if (qx_create_quorix() != ok || !note_file_read(stream.get())) return false;
  const auto deaths = qx_get_die_count();
  if (load(text.engine_lines(), part) != ok) return false;
  while (qx_exist_quorix() && qx_is_quorix_text_left()) {
    (void)qx_quorix_ctrl();
    if (qx_get_die_count() == deaths) continue;
    tell_where(text, part, path);
    return false;
  }
  qx_terminate_quorix();
  return qx_get_die_count() == deaths;
}

int run(const Options& options) {
  const Stream stream = open_text(options.path);
  JobText text = read_text(stream, options.path);
  check_files(text, options);
  OtherFiles others;
  others.stand_in(text);
  echo(text.lines());
  for (const JobPart& part : text.parts()) {
    if (run_part(text, part, stream, options.path)) continue;
    qx_terminate_quorix();
    return 1;
  }
  others.deliver();
  return 0;
}

}  // namespace

void add_run(CLI::App& app, int& status) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("run", "Run a text of sections");
  command->add_option("FILE", options->path, "The text; - or nothing reads standard input")
      ->capture_default_str()
      ->check(names_files());
  command->add_flag("--force", options->force,
                    "Write over files that hold something else; never over what the text reads");
  command->footer(closing);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
