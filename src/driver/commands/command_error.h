// How a subcommand fails, and texts made as printf makes them.
#pragma once

#include <stdexcept>
#include <string>

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

}  // namespace qx
