// quorix: picks a subcommand.
#include "driver/commands/commands.h"
#include "driver/commands/sections.h"
#include "driver/data_directory.h"

#include <quorix/version.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>

namespace {

int run(int argc, char** argv) {
  int status = 0;
  CLI::App app("Crystallographic computation engine for macromolecular X-ray data", "quorix");
  app.set_version_flag("--version", "quorix " QUORIX_VERSION);
  app.require_subcommand(1);
  app.failure_message(CLI::FailureMessage::help);
  qx::add_map(app, status);
  qx::add_info(app, status);
  qx::add_run(app, status);
  qx::add_fcalc(app, status);
  qx::add_report(app, status);
  qx::point_to_installed_data();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that goes away is a failed write, reported as such
  try {
    return run(argc, argv);
  } catch (const qx::CommandError& error) {
    std::fprintf(stderr, "quorix: %s\n", error.what());
    return error.status();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorix: %s\n", error.what());
    return 2;
  }
}
