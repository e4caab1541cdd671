// quorix: picks a subcommand.
#include "driver/commands/app.h"
#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/data_directory.h"
#include "driver/process.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <ext/stdio_sync_filebuf.h>
#include <iostream>
#include <sys/prctl.h>

namespace {

int run(int argc, char** argv) {
  int status = 0;
  CLI::App app;
  qx::build_app(app, status, argc > 1 ? argv[1] : nullptr);
  qx::take_map_options(argc, argv);
  qx::point_to_installed_data();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  return status;
}

int run_and_tell(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const qx::CommandError& error) {
    std::cerr << "quorix: " << error.what() << '\n';
    return error.status();
  } catch (const std::exception& error) {
    std::cerr << "quorix: " << error.what() << '\n';
    return 2;
  }
}

// The streams of this language end in those of the other, and live as long.
void join_streams() {
  using Buffer = __gnu_cxx::stdio_sync_filebuf<char>;
  static Buffer* const output = new Buffer(stdout);
  static Buffer* const errors = new Buffer(qx::shown_errors());
  std::cout.rdbuf(output);
  std::cerr.rdbuf(errors);
}

}  // namespace

int main(int argc, char** argv) {
  qx::set_up_process();
  join_streams();
  qx::end_with_the_batch();
  qx::check_environment("quorix");
  prctl(PR_SET_NAME, "quorix");  // a batch starts it under a name that says nothing
  const int status = run_and_tell(argc, argv);
  if (qx::finish_output() || status != 0) return status;
  // Whoever closes a pipe early has read enough.
  if (errno != EPIPE) {
    std::cerr << "quorix: cannot write to standard output: " << std::strerror(errno) << '\n';
  }
  return 2;
}
