// quorix run: a text of sections, one after the other.
#include "driver/commands/commands.h"
#include "driver/commands/option_facts.h"

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
The sections are run one after the other; the first that fails ends the run. Without an xter section
the engine is released at the end all the same; text behind xter is not run.

Examples:
  quorix map 1ubq.mtz --print-sections >job.qx
      A text to begin with.
  quorix run job.qx
      Runs it.
)";

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

int bad_input(const std::string& message) {
  std::cerr << "quorix run: " << message << '\n';
  return 2;
}

// The loader reads its stream twice, so what cannot be rewound is copied first.
Stream spooled(std::FILE* source) {
  Stream spool(std::tmpfile(), std::fclose);
  char piece[65536];
  for (std::size_t n = 0; spool && (n = std::fread(piece, 1, sizeof piece, source)) > 0;) {
    if (std::fwrite(piece, 1, n, spool.get()) != n) spool.reset();
  }
  if (std::ferror(source)) spool.reset();
  return spool;
}

Stream open_text(const std::string& path) {
  if (path == "-") return spooled(stdin);
  Stream file(std::fopen(path.c_str(), "rb"), std::fclose);
  // Opening a directory succeeds; reading it does not.
  if (file && std::fgetc(file.get()) == EOF && std::ferror(file.get()))
    return {nullptr, std::fclose};
  if (file && std::fseek(file.get(), 0, SEEK_SET) != 0) return spooled(file.get());
  return file;
}

// True if commands stand behind the section that ends the engine: the text went with it.
bool text_behind_termination(std::FILE* text) {
  std::rewind(text);
  enum { before, inside, behind } where = before;
  char line[4096];
  while (std::fgets(line, sizeof line, text)) {
    line[std::strcspn(line, "#!\n")] = '\0';
    const char* word = qx_first_word_char_position(line);
    if (!*word) continue;
    if (where == behind) return true;
    if (where == inside && qx_strncmp_nocase(word, "xend", 4) == 0) where = behind;
    if (where == before && qx_strncmp_nocase(word, "xter", 4) == 0) where = inside;
  }
  return false;
}

int run_sections(std::FILE* text) {
  const auto deaths = qx_get_die_count();
  while (qx_exist_quorix() && qx_is_quorix_text_left()) {
    (void)qx_quorix_ctrl();
    if (qx_get_die_count() != deaths) return 1;
  }
  if (!qx_exist_quorix() && text_behind_termination(text)) {
    std::cerr << "quorix run: warning: the text behind the xter section is not run\n";
  }
  return 0;
}

int run(const std::string& path) {
  const Stream text = open_text(path);
  if (!text) return bad_input("cannot read " + path + ": " + std::strerror(errno));
  if (qx_create_quorix() != ok) return 1;
  const auto deaths = qx_get_die_count();
  int status = 0;
  if (qx_set_parser_from_stream(text.get()) == ok) {
    status = run_sections(text.get());
  } else {
    status = qx_get_die_count() == deaths ? bad_input(path + " holds no section") : 1;
  }
  qx_terminate_quorix();
  std::fflush(stdout);
  return status;
}

}  // namespace

void add_run(CLI::App& app, int& status) {
  auto path = std::make_shared<std::string>("-");
  CLI::App* command = app.add_subcommand("run", "Run a text of sections");
  command->add_option("FILE", *path, "The text; - or nothing reads standard input")
      ->capture_default_str()
      ->check(names_files());
  command->footer(closing);
  command->callback([path, &status] { status = run(*path); });
}

}  // namespace qx
