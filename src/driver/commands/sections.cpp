#include "driver/commands/sections.h"

#include "core/name_code.h"
#include "driver/commands/engine_report.h"
#include "driver/process.h"
#include "driver/section_job.h"

#include <quorix/engine.h>

#include <csignal>
#include <cstdarg>
#include <cstring>
#include <iostream>
#include <new>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace qx {

std::string format(const char* pattern, ...) {
  std::va_list values;
  va_start(values, pattern);
  std::va_list again;
  va_copy(again, values);
  std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, pattern, values)), '\0');
  std::vsnprintf(text.data(), text.size() + 1, pattern, again);
  va_end(again);
  va_end(values);
  return text;
}

void check_text(const std::string& what, const std::string& text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      throw CommandError(2, what + format(" must not hold a control character (byte %u)", byte));
    }
    if (std::strchr("\"#!", c)) {
      throw CommandError(2, format("%s must not hold %c: %s", what.c_str(), c, text.c_str()));
    }
  }
  if (text.ends_with('-') || text.ends_with('&')) {
    throw CommandError(2, what + " must not end in " + text.back() + ": " + text);
  }
}

std::string coded_name(const std::string& name) {
  std::string code(coded_size(name.c_str()), '\0');
  code_name(name.c_str(), code.data());
  code.resize(std::strlen(code.c_str()));
  return code;
}

std::string quoted_name(const std::string& name) {
  return needs_code_in_quotes(name.c_str()) ? coded_name(name) : '"' + name + '"';
}

std::string name_as_word(const std::string& name) {
  return needs_code_as_word(name.c_str()) ? coded_name(name) : name;
}

std::vector<std::string> SectionText::lines() const {
  std::vector<std::string> all = lines_;
  all.emplace_back("xend");
  return all;
}

std::string printed(const SectionText& section) {
  const std::vector<std::string> lines = section.lines();
  std::string text;
  for (const std::string& line : lines) {
    const bool inside = &line != &lines.front() && &line != &lines.back();
    text += (inside ? "  " : "") + line + '\n';
  }
  return text;
}

namespace {

bool output_is_data = false;

void show_as_error(void* /*context*/, const char* text, std::size_t size) {
  std::fwrite(text, 1, size, shown_errors());
}

}  // namespace

void keep_standard_output_clean() { output_is_data = true; }

Engine::Engine(bool verbose) : verbose_(verbose) {
  if (qx_create_quorix() != ok) throw CommandError(1, "the engine could not be started");
}

Engine::~Engine() { qx_terminate_quorix(); }

Engine::Spool::Spool(bool verbose) : deaths_(qx_get_die_count()) {
  if (!verbose) {
    qx_set_output(keep, this);
  } else if (output_is_data) {
    qx_set_output(show_as_error, nullptr);
  }
}

Engine::Spool::~Spool() { qx_set_output(nullptr, nullptr); }

// Called by the engine, which nothing may be thrown through.
void Engine::Spool::keep(void* spool, const char* text, std::size_t size) noexcept {
  auto& self = *static_cast<Spool*>(spool);
  try {
    self.text_.append(text, size);
  } catch (const std::bad_alloc&) {
    self.lost_ = true;
  }
}

bool Engine::Spool::died() const { return qx_get_die_count() != deaths_; }

std::string Engine::Spool::text() {
  if (lost_) throw CommandError(2, "there is no room for what the engine says");
  return std::move(text_);
}

std::string Engine::end(bool succeeded, Spool& spool) const {
  std::string text = spool.text();
  if (succeeded && !spool.died()) return text;
  if (output_is_data && !verbose_) throw CommandError(1, report_line(text));
  (output_is_data ? std::cerr : std::cout) << text << std::flush;
  throw CommandError(1, "the engine reported a failure" + report_advice(text));
}

std::string Engine::run(const SectionText& section) {
  const std::vector<std::string> lines = section.lines();
  std::vector<const char*> pointers;
  pointers.reserve(lines.size());
  for (const std::string& line : lines) pointers.push_back(line.c_str());
  return call([&] {
    return run_section_lines(static_cast<std::int32_t>(pointers.size()), pointers.data());
  });
}

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
  if (!isatty(STDERR_FILENO)) return;
  struct sigaction action = {};
  action.sa_handler = show_progress;
  action.sa_flags = SA_RESTART;
  sigaction(SIGALRM, &action, nullptr);
  set_timer(1);
}

Progress::~Progress() {
  set_timer(0);
  if (progress_shown) std::fputs("\r\033[K", stderr);
}

void Progress::step(const std::string& what) {
  const std::string line = "\r\033[K" + what + " ...";
  std::strncpy(progress_line, line.c_str(), sizeof progress_line - 1);
}

}  // namespace qx
