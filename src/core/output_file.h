// A file that replaces its target only when it is whole.
#pragma once

#include <cstdio>

namespace qx {

// Writes beside the target and renames on commit(); a target that exists and is no regular file
// (a device, a pipe) is written directly. Without a commit nothing is left behind and the target
// stays as it was.
class OutputFile {
 public:
  OutputFile() = default;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  // True when a stream is open for binary writing (seekable if the target is regular).
  bool open(const char* path) noexcept;
  [[nodiscard]] std::FILE* stream() const { return stream_; }
  // Flushes, closes and puts the file in place; false if anything was not written.
  bool commit() noexcept;

 private:
  bool open_beside(const char* path, unsigned mode) noexcept;

  std::FILE* stream_ = nullptr;
  char* target_ = nullptr;     // a symbolic link is followed: what it names is replaced
  char* temporary_ = nullptr;  // null when the target is written directly
};

}  // namespace qx
