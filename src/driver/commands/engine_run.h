// An engine whose sections run quietly, if wanted, and whose failures are a command's.
#pragma once

#include "driver/commands/command_error.h"
#include "driver/commands/section_text.h"

#include <quorix/engine.h>

#include <cstdint>
#include <string>

namespace qx {

// For commands whose standard output is read by programs: what the engine prints goes to standard
// error from here on, and of a failure no more than a line that tells it with its remedy.
void keep_standard_output_clean();

// What the engine reported, with all that it had printed since its work began.
class EngineFailure : public CommandError {
 public:
  EngineFailure(const std::string& line, std::string printed)
      : CommandError(1, line), printed_(std::move(printed)) {}
  [[nodiscard]] const std::string& printed() const { return printed_; }

 private:
  std::string printed_;
};

// A program that runs sections within itself and has no terminal to print on.
class EngineHost {
 public:
  // Hears what the engine printed of a section that went well.
  virtual void said(const std::string& text) = 0;
  // Before each section; what it throws ends the work.
  virtual void pause() = 0;

 protected:
  ~EngineHost() = default;
};
// Of engines of this thread from here on; null: none. With a host nothing is printed, and failures
// are EngineFailure.
void set_engine_host(EngineHost* host);
bool has_engine_host();

// Runs sections through the engine. Unless verbose, what the engine prints is kept back and shown
// only if a section fails.
class Engine {
 public:
  explicit Engine(bool verbose);
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
  ~Engine();

  // As a fresh one, but for the files that it holds.
  void renew();
  // Runs the section and gives what it printed; throws CommandError after a report.
  std::string run(const SectionText& section);
  // The same around a direct call of the library that gives a status. What `work` throws goes on to
  // the caller, unless the engine had reported before: then that is the cause.
  template <class Work>
  std::string call(Work work) {
    Spool spool(verbose_);
    bool succeeded = false;
    try {
      succeeded = work() == 0;
    } catch (...) {
      if (!spool.died()) throw;
    }
    return end(succeeded, spool);
  }

 private:
  // Takes what the engine prints meanwhile. When it goes, the engine prints again to where it did
  // before: to the spool of a call around this one, or to standard output.
  class Spool {
   public:
    explicit Spool(bool verbose);
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;
    ~Spool();
    // Throws CommandError if anything was lost.
    std::string text();
    [[nodiscard]] bool died() const;

   private:
    static void keep(void* spool, const char* text, std::size_t size) noexcept;
    void turn_output();

    static thread_local Spool* innermost;

    bool verbose_;
    Spool* outer_;
    std::string text_;
    bool lost_ = false;
    std::int64_t deaths_;
  };
  std::string end(bool succeeded, Spool& spool) const;

  bool verbose_;
};

}  // namespace qx
