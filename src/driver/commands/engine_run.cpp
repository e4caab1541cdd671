#include "driver/commands/engine_run.h"

#include "driver/commands/command_error.h"
#include "driver/commands/engine_report.h"
#include "driver/process.h"
#include "driver/section_job.h"

#include <cstdio>
#include <iostream>
#include <new>
#include <utility>

namespace qx {

namespace {

bool output_is_data = false;
thread_local EngineHost* engine_host = nullptr;

void show_as_error(void* /*context*/, const char* text, std::size_t size) {
  std::fwrite(text, 1, size, shown_errors());
}

}  // namespace

void keep_standard_output_clean() { output_is_data = true; }

void set_engine_host(EngineHost* host) { engine_host = host; }
bool has_engine_host() { return engine_host != nullptr; }

thread_local Engine::Spool* Engine::Spool::innermost = nullptr;

Engine::Engine(bool verbose) : verbose_(verbose) {
  if (qx_create_quorix() != ok) throw CommandError(1, "the engine could not be started");
}

Engine::~Engine() { qx_terminate_quorix(); }

void Engine::renew() { call(qx_renew_quorix); }

Engine::Spool::Spool(bool verbose)
    : verbose_(verbose), outer_(innermost), deaths_(qx_get_die_count()) {
  innermost = this;
  turn_output();
}

Engine::Spool::~Spool() {
  innermost = outer_;
  if (outer_) {
    outer_->turn_output();
  } else {
    qx_set_output(nullptr, nullptr);
  }
}

void Engine::Spool::turn_output() {
  if (!verbose_) {
    qx_set_output(keep, this);
  } else if (output_is_data) {
    qx_set_output(show_as_error, nullptr);
  } else {
    qx_set_output(nullptr, nullptr);
  }
}

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
  const bool well = succeeded && !spool.died();
  if (engine_host) {
    if (!well) throw EngineFailure(first_report(text).text, text);
    engine_host->said(text);
  }
  if (well) return text;
  if (output_is_data && !verbose_) throw CommandError(1, report_line(text));
  (output_is_data ? std::cerr : std::cout) << text << std::flush;
  throw CommandError(1, "the engine reported a failure" + report_advice(text));
}

std::string Engine::run(const SectionText& section) {
  if (engine_host) engine_host->pause();
  const std::vector<std::string> lines = section.lines();
  std::vector<const char*> pointers;
  pointers.reserve(lines.size());
  for (const std::string& line : lines) pointers.push_back(line.c_str());
  return call([&] {
    return run_section_lines(static_cast<std::int32_t>(pointers.size()), pointers.data());
  });
}

}  // namespace qx
