// quorix: picks a subcommand.
#include "driver/commands/app.h"
#include "driver/commands/commands.h"
#include "driver/commands/sections.h"
#include "driver/data_directory.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <sys/prctl.h>

namespace {

int run(int argc, char** argv) {
  int status = 0;
  CLI::App app;
  qx::build_app(app, status);
  qx::take_map_options(argc, argv);
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
  qx::end_with_the_batch();
  prctl(PR_SET_NAME, "quorix");   // a batch starts it under a name that says nothing
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
