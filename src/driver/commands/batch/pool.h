// Processes of this very program, a bounded number at a time.
#pragma once

#include "driver/commands/readable_file.h"

#include <chrono>
#include <csignal>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qx {

struct ChildResult {
  std::size_t item = 0;
  bool done = false;   // ended with status 0
  std::string reason;  // why not, in one line
  bool timed_out = false;
  bool refused = false;        // it said that its input cannot be used
  std::string output, errors;  // what it said, no more than the end of it
  std::string found;           // what a search in the maps said
  std::string no_search;       // why there was none in maps that are made
  double seconds = 0.0;
};

// While a pool lives, the signals that ask a program to end are held back and told by stopped();
// whatever still runs when it is destroyed is ended. Children end with this process, however it
// ends.
class Pool {
 public:
  // A timeout of 0 is none.
  Pool(std::size_t places, double timeout);
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;
  ~Pool();

  [[nodiscard]] bool full() const { return children_.size() >= places_; }
  [[nodiscard]] bool empty() const { return children_.empty(); }
  // The signal that asked for an end, or 0.
  [[nodiscard]] int stopped() const { return stopped_; }

  // Starts this program with `arguments`; throws CommandError if the system refuses.
  void start(std::size_t item, const std::vector<std::string>& arguments);
  // The next one that ended, waiting for at most `patience` seconds, or until asked to end.
  std::optional<ChildResult> wait(double patience);
  // Ends what still runs. Nothing of theirs is worth waiting for: it is not in place yet.
  void end_all();

 private:
  using Clock = std::chrono::steady_clock;
  struct Said {
    std::unique_ptr<TemporaryFile> output, errors;
  };
  struct Child {
    std::size_t item;
    pid_t process;
    Clock::time_point begin;
    Said said;
    bool timed_out = false;
  };

  Said spare_files();
  std::optional<ChildResult> reap();
  void end_late_ones();
  [[nodiscard]] ChildResult result_of(const Child& child, int status) const;

  std::size_t places_;
  double timeout_;
  int stopped_ = 0;
  sigset_t wanted_ = {}, before_ = {};
  std::vector<Child> children_;
  std::vector<Said> spare_;  // files to be used again
};

}  // namespace qx
