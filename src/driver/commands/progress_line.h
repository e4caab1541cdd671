// Telling that a long step still runs.
#pragma once

#include <string>

namespace qx {

// One line on standard error, renewed every second from the first on, while a long step runs; only
// when standard error is a terminal and this program's own.
class Progress {
 public:
  explicit Progress(const std::string& program);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();
  void step(const std::string& what);

 private:
  bool timed_ = false;
};

}  // namespace qx
