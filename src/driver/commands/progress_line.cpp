#include "driver/commands/progress_line.h"

#include "driver/commands/engine_run.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/time.h>
#include <unistd.h>

namespace qx {

namespace {

// The line that the timer writes: only async-signal-safe calls happen in the handler.
char progress_line[200];
volatile std::sig_atomic_t progress_shown = 0;

void show_progress(int) {
  progress_shown = 1;
  const auto written = write(STDERR_FILENO, progress_line, std::strlen(progress_line));
  (void)written;
}

void set_timer(int seconds) {
  itimerval timer = {};
  timer.it_value.tv_sec = timer.it_interval.tv_sec = seconds;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

Progress::Progress(const std::string& program) {
  step(program);
  if (has_engine_host() || !isatty(STDERR_FILENO)) return;
  timed_ = true;
  struct sigaction action = {};
  action.sa_handler = show_progress;
  action.sa_flags = SA_RESTART;
  sigaction(SIGALRM, &action, nullptr);
  set_timer(1);
}

Progress::~Progress() {
  if (!timed_) return;
  set_timer(0);
  if (progress_shown) std::fputs("\r\033[K", stderr);
}

void Progress::step(const std::string& what) {
  const std::string line = "\r\033[K" + what + " ...";
  std::strncpy(progress_line, line.c_str(), sizeof progress_line - 1);
}

}  // namespace qx
