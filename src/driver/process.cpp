#include "driver/process.h"

#include "core/output_file.h"
#include "core/parallel.h"
#include "driver/shown_text.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace qx {

namespace {

bool output_closed = false;

void open_missing_streams() {
  output_closed = fcntl(STDOUT_FILENO, F_GETFD) < 0;
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    const int descriptor = open("/dev/null", O_RDWR);  // the lowest that is free: this one
    if (descriptor > STDERR_FILENO) (void)close(descriptor);
  }
}

extern "C" void end_by_signal(int number) {
  remove_temporaries();
  (void)std::signal(number, SIG_DFL);
  (void)raise(number);  // held back until this handler returns
}

void clear_up_on_signals() {
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGXCPU}) {
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    if (action.sa_handler == SIG_IGN) continue;  // nohup stays nohup
    action = {};
    action.sa_handler = end_by_signal;
    sigaction(number, &action, nullptr);
  }
}

struct ShownStream {
  int descriptor;
  ShownText text = {};
  int error = 0;  // of the first write that failed
};

ShownStream output = {STDOUT_FILENO};
ShownStream errors = {STDERR_FILENO};

ssize_t write_shown(void* cookie, const char* bytes, std::size_t count) {
  auto& stream = *static_cast<ShownStream*>(cookie);
  if (stream.text.write(stream.descriptor, bytes, count)) return static_cast<ssize_t>(count);
  if (stream.error == 0) stream.error = errno;
  return 0;
}

// Null without memory.
std::FILE* open_shown(ShownStream& stream, int buffering) {
  cookie_io_functions_t functions = {};
  functions.write = write_shown;
  std::FILE* file = fopencookie(&stream, "w", functions);
  if (file) (void)std::setvbuf(file, nullptr, buffering, BUFSIZ);
  return file;
}

}  // namespace

void set_up_process() {
  open_missing_streams();
  clear_up_on_signals();
  std::FILE* shown = open_shown(output, isatty(STDOUT_FILENO) ? _IOLBF : _IOFBF);
  if (shown) stdout = shown;
}

void check_environment(const char* program) {
  const char* text = unusable_threads_variable();
  if (!text) return;
  std::fprintf(shown_errors(),
               "%s: QUORIX_THREADS is no number of threads and is passed over: %s\n", program,
               text);
}

std::FILE* shown_errors() {
  std::FILE* shown = open_shown(errors, _IONBF);
  return shown ? shown : stderr;
}

bool is_output_closed() { return output_closed; }

bool finish_output() {
  const bool flushed = std::fflush(stdout) == 0 && !std::ferror(stdout);
  const bool rest = output.text.finish(STDOUT_FILENO);
  // Some file systems tell only when a file is closed that it did not fit.
  const int copy = dup(STDOUT_FILENO);
  const bool closed = copy >= 0 && close(copy) == 0;
  if (output.error != 0) errno = output.error;
  return flushed && rest && closed && output.error == 0;
}

}  // namespace qx
