// What the subcommands share: composing sections line by line and running them, quietly if wanted.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace qx {

// A failure that the user is told on standard error, with the process status to end with: 1 the
// engine reported, 2 bad usage or an unreadable file.
class CommandError : public std::runtime_error {
 public:
  CommandError(int status, const std::string& text) : std::runtime_error(text), status_(status) {}
  [[nodiscard]] int status() const { return status_; }

 private:
  int status_;
};

std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

// Throws CommandError for a text that no section's line can carry, and names what stands in the
// way.
void check_text(const std::string& what, const std::string& text);

// A name as a section's line carries it, whatever bytes it holds: between quotes, or a word.
std::string quoted_name(const std::string& name);
std::string name_as_word(const std::string& name);
std::string coded_name(const std::string& name);  // leaves nothing in the line when it is read

// The lines of one section.
class SectionText {
 public:
  explicit SectionText(std::string word) { lines_.push_back(std::move(word)); }
  SectionText& line(std::string text) {
    lines_.push_back(std::move(text));
    return *this;
  }
  // With "xend" at the end.
  [[nodiscard]] std::vector<std::string> lines() const;

 private:
  std::vector<std::string> lines_;
};

// Sections as quorix run takes them.
std::string printed(const SectionText& section);

// For commands whose standard output is read by programs: what the engine prints goes to standard
// error from here on, and of a failure no more than a line that tells it with its remedy.
void keep_standard_output_clean();

// Runs sections through the engine. Unless verbose, what the engine prints is kept back and shown
// only if a section fails.
class Engine {
 public:
  explicit Engine(bool verbose);
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
  ~Engine();

  // Runs the section and gives what it printed; throws CommandError after a report.
  std::string run(const SectionText& section);
  // The same around a direct call of the library that gives a status.
  template <class Work>
  std::string call(Work work) {
    Spool spool(verbose_);
    return end(work() == 0, spool);
  }

 private:
  // Takes what the engine prints meanwhile; the engine prints to standard output again when it
  // goes.
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

    std::string text_;
    bool lost_ = false;
    std::int64_t deaths_;
  };
  std::string end(bool succeeded, Spool& spool) const;

  bool verbose_;
};

// One line on standard error, renewed every second from the first on, while a long step runs; only
// when standard error is a terminal.
class Progress {
 public:
  explicit Progress(const std::string& program);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();
  void step(const std::string& what);
};

}  // namespace qx
