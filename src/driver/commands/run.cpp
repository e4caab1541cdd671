// quorix run: a text of sections, one after the other.
#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/commands/job_run.h"
#include "driver/commands/option_facts.h"

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

// As compilers do, so that editors find the line.
void tell_where(const JobStop& stop, const std::string& path) {
  constexpr std::size_t enough = 200;
  const std::string name = path == "-" ? "<stdin>" : path;
  const bool cut = stop.command.size() > enough;
  std::fflush(stdout);
  std::cerr << name << ':' << stop.line << ": "
            << (stop.command.empty() ? "the text ends inside a section: xend?"
                                     : stop.command.substr(0, enough) + (cut ? " ..." : ""))
            << '\n';
}

int run(const Options& options) {
  const Stream stream = open_text(options.path);
  JobText text = read_text(stream, options.path);
  check_job_files(text, options.path == "-" ? "/dev/stdin" : options.path, options.force);
  JobStandIns others;
  others.stand_in(text);
  echo(text.lines());
  for (const JobPart& part : text.parts()) {
    const JobResult result = run_job_part(text, part, stream.get());
    if (result.stop) tell_where(*result.stop, options.path);
    if (!result.done) return 1;
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
