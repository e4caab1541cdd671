// quorix: picks a subcommand.
#include "driver/commands/commands.h"
#include "driver/commands/sections.h"
#include "driver/data_directory.h"

#include <quorix/version.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

int main(int argc, char** argv) {
  int status = 0;
  CLI::App app("Crystallographic computation engine for macromolecular X-ray data", "quorix");
  app.set_version_flag("--version", "quorix " QUORIX_VERSION);
  app.require_subcommand(1);
  app.failure_message(CLI::FailureMessage::help);
  try {
    qx::add_map(app, status);
    qx::add_info(app, status);
    qx::add_run(app, status);
    qx::add_fcalc(app, status);
    qx::point_to_installed_data();
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  } catch (const qx::CommandError& error) {
    std::cerr << "quorix: " << error.what() << '\n';
    return error.status();
  } catch (const std::exception& error) {
    std::cerr << "quorix: " << error.what() << '\n';
    return 2;
  }
  return status;
}
