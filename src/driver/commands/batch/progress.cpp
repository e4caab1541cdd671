#include "driver/commands/batch/progress.h"

#include "driver/commands/command_error.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace qx {

namespace {

constexpr double terminal_pause = 0.1;  // seconds between two lines, at least
constexpr double log_pause = 30.0;      // at most

std::size_t terminal_columns() {
  winsize size = {};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : 80;
}

std::string time_text(double seconds) {
  const long s = std::lround(seconds);
  if (s < 60) return format("%ld s", s);
  if (s < 3600) return format("%ld:%02ld min", s / 60, s % 60);
  return format("%ld:%02ld h", s / 3600, s / 60 % 60);
}

}  // namespace

BatchProgress::BatchProgress(std::string what, std::size_t total, bool quiet)
    : what_(std::move(what)), total_(total), quiet_(quiet), terminal_(isatty(STDERR_FILENO) != 0) {}

BatchProgress::~BatchProgress() { wipe(); }

double BatchProgress::seconds() const {
  return std::chrono::duration<double>(Clock::now() - begin_).count();
}

double BatchProgress::rate() const {
  return static_cast<double>(computed_) / std::max(seconds(), 1e-6);
}

std::string BatchProgress::line() const {
  std::string text = what_ + format(" %zu/%zu", done_, total_);
  if (computed_ > 0) {
    const double left = static_cast<double>(total_ - done_) / rate();
    text += format("  %.3g/s  ", rate()) + time_text(left) + " left";
  }
  if (failed_ > 0) text += format("  %zu failed", failed_);
  return text;
}

void BatchProgress::step(bool computed, bool failed) {
  ++done_;
  computed_ += computed ? 1 : 0;
  failed_ += failed ? 1 : 0;
  refresh();
}

void BatchProgress::refresh() {
  if (quiet_ || total_ == 0) return;
  const double since = std::chrono::duration<double>(Clock::now() - shown_).count();
  if (!terminal_) {
    const std::size_t tenth = 10 * done_ / total_;
    // Short batches need no line but the last.
    if (tenth == shown_tenth_ ? since < log_pause : since < 1.0) return;
    shown_tenth_ = tenth;
    shown_ = Clock::now();
    std::fprintf(stderr, "%s\n", line().c_str());
    return;
  }
  if (since < terminal_pause) return;
  shown_ = Clock::now();
  const std::string text = line();
  const std::size_t columns = terminal_columns();
  std::string bar;
  if (columns > text.size() + 14) {
    const std::size_t width = std::min<std::size_t>(columns - text.size() - 4, 40);
    bar.assign(width * done_ / total_, '#');
    bar.resize(width, '.');
    bar = "[" + bar + "] ";
  }
  std::fprintf(stderr, "\r\033[K%s", (bar + text).substr(0, columns - 1).c_str());
}

void BatchProgress::wipe() const {
  if (terminal_ && !quiet_) std::fputs("\r\033[K", stderr);
}

void BatchProgress::say(const std::string& line) {
  wipe();
  std::cerr << line << '\n';  // a reason may quote a file's bytes
}

}  // namespace qx
