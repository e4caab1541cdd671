// How far a batch is: a bar on a terminal, a line now and then elsewhere.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace qx {

class BatchProgress {
 public:
  BatchProgress(std::string what, std::size_t total, bool quiet);
  BatchProgress(const BatchProgress&) = delete;
  BatchProgress& operator=(const BatchProgress&) = delete;
  ~BatchProgress();

  // One more is behind us; one that was taken over took no time worth counting.
  void step(bool computed, bool failed);
  void refresh();
  // A line above the bar.
  void say(const std::string& line);

  [[nodiscard]] double seconds() const;
  [[nodiscard]] double rate() const;  // computed ones per second

 private:
  [[nodiscard]] std::string line() const;
  void wipe() const;

  using Clock = std::chrono::steady_clock;
  std::string what_;
  std::size_t total_, done_ = 0, computed_ = 0, failed_ = 0;
  bool quiet_, terminal_;
  Clock::time_point begin_ = Clock::now(), shown_ = begin_;
  std::size_t shown_tenth_ = 0;
};

}  // namespace qx
