#include "driver/commands/app.h"

#include "driver/commands/commands.h"
#include "driver/commands/common_options.h"
#include "driver/commands/option_facts.h"

#include <quorix/version.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace qx {

namespace {

constexpr const char* closing = R"(
The subcommands compose texts of sections and run them through the engine; "quorix map
--print-sections" shows such a text, and "quorix run" runs any. Help on a subcommand:
"quorix map --help", or "man quorix map".

Exit status:
  0  done
  1  the engine reported a failure; its report is on standard output
  2  bad usage, or a file that cannot be read or written

Environment:
  ZENVI_DATA  data directory, which holds xray/spgbase.dat and the form factors. An installed
              program finds it beside itself when the variable is not set.
  QUORIX_THREADS
              how many threads heavy work may use, unless --threads says; next OMP_NUM_THREADS is
              asked, then how many processors the process may use. Results do not depend on it.
)";

// What is wrong, how the command is used, and where all the rest is told; everything to a user who
// typed nothing.
std::string tell_misuse(const CLI::App* app, const CLI::Error& error) {
  const auto chosen = app->get_subcommands();
  if (chosen.empty() && app->remaining_size() == 0) return app->help();
  const bool unknown = chosen.empty() && error.get_name() == "RequiredError";
  const std::string problem =
      unknown ? "there is no '" + app->remaining().front() + "'" : error.what();
  const CLI::App* command = chosen.empty() ? app : chosen.front();
  const std::string name = chosen.empty() ? "quorix" : "quorix " + command->get_name();
  return name + ": " + problem + '\n' + HelpFormatter().make_usage(command, name) + '"' + name +
         " --help\" tells more.\n";
}

struct Subcommand {
  const char* name;
  void (*add)(CLI::App& app, int& status);
};
constexpr Subcommand subcommands[] = {
    {"map", add_map},     {"info", add_info},         {"run", add_run},   {"fcalc", add_fcalc},
    {"maps", add_maps},   {"validate", add_validate}, {"omit", add_omit}, {"stats", add_stats},
    {"fofo", add_fofo},   {"convert", add_convert},   {"free", add_free}, {"report", add_report},
    {"peaks", add_peaks}, {"batch", add_batch}};

}  // namespace

void build_app(CLI::App& app, int& status, const char* word) {
  const auto* const only = std::find_if(
      std::begin(subcommands), std::end(subcommands),
      [&](const Subcommand& command) { return word && std::strcmp(command.name, word) == 0; });
  app.name("quorix");
  app.description("Crystallographic computation engine for macromolecular X-ray data");
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_version_flag("--version", "quorix " QUORIX_VERSION, "Print the version and exit");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.require_subcommand(1);
  app.failure_message(tell_misuse);
  const bool none = word && std::strcmp(word, "--version") == 0;
  for (const Subcommand& command : subcommands) {
    const bool wanted = only == std::end(subcommands) || only->name == command.name;
    if (wanted && !none) command.add(app, status);
  }
  for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    add_threads(*command);
    command->set_version_flag("--version", "quorix " QUORIX_VERSION, "Print the version and exit");
  }
  app.footer(closing);  // last: subcommands inherit what stands when they are added
}

}  // namespace qx
