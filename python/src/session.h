// Every call of the module that needs an engine goes through here: Python goes on beside it, with
// engines of its other threads, and what is said is kept for the logger.
#pragma once

#include "driver/commands/engine_run.h"

#include <chrono>
#include <exception>
#include <optional>
#include <pybind11/pybind11.h>
#include <string>
#include <utility>
#include <vector>

namespace qx::python {

// What is said during a call.
class Session final : public EngineHost {
 public:
  Session() = default;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void said(const std::string& text) override { lines_.emplace_back(false, text); }
  void warn(const std::string& line) { lines_.emplace_back(true, line); }
  void warn(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) warn(line);
  }
  // Ctrl-C ends the work here. The interpreter is asked now and then only: threads would wait for
  // it.
  void pause() override;
  // Hands everything to the logger; needs the interpreter.
  void tell() const;

 private:
  std::vector<std::pair<bool, std::string>> lines_;  // true: a warning
  std::chrono::steady_clock::time_point asked_ = std::chrono::steady_clock::now();
};

template <class Work>
auto with_engine(Work work) {
  Session session;
  std::optional<decltype(work(session))> result;
  std::exception_ptr failure;
  {
    const pybind11::gil_scoped_release others_go_on;
    set_engine_host(&session);
    try {
      result.emplace(work(session));
    } catch (...) {
      failure = std::current_exception();
    }
    set_engine_host(nullptr);
  }
  session.tell();
  if (failure) std::rethrow_exception(failure);
  return std::move(*result);
}

// A section that failed within a text of many.
class JobFailure : public EngineFailure {
 public:
  JobFailure(const std::string& line, const std::string& printed, std::optional<std::size_t> at)
      : EngineFailure(line, printed), at_(at) {}
  [[nodiscard]] std::optional<std::size_t> at() const { return at_; }  // line, from 1

 private:
  std::optional<std::size_t> at_;
};

// Failures of the commands become quorix.Error.
void translate_errors();

}  // namespace qx::python
