// A file that replaces its target only when it is whole.
#pragma once

#include <csignal>
#include <cstdio>

namespace qx {

// What an unfinished file is called while it has a name, beside its target.
constexpr const char* temporary_prefix = ".quorix-";

// Holds back the signals that ask a program to end.
class HeldSignals {
 public:
  HeldSignals() noexcept;
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
  ~HeldSignals();

 private:
  sigset_t before_ = {};
};

// Writes beside the target and renames on commit(); a target that exists and is no regular file
// (a device, a pipe), or has no name any more, is written directly. Without a commit nothing is
// left behind and the target stays as it was: where the system can, the file has no name until it
// is whole; elsewhere its name is that of remove_temporaries().
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
  [[nodiscard]] std::size_t folder_size() const noexcept;
  int open_unnamed() noexcept;
  int open_named() noexcept;
  int take_name(int source) noexcept;
  bool give_name() noexcept;
  void keep_lock(int descriptor) noexcept;
  void forget_name() noexcept;

  std::FILE* stream_ = nullptr;
  int lock_ = -1;              // keeps its name from those who clear up
  char* target_ = nullptr;     // a symbolic link is followed: what it names is replaced
  char* temporary_ = nullptr;  // its name as long as it has one
  bool beside_ = false;        // false when the target is written directly
  bool private_ = false;       // while it has not the mode of what it replaces
};

// For a handler of signals: removes every temporary that has a name. Async-signal-safe.
void remove_temporaries() noexcept;

// Removes a file of that kind that its writer has left; one that is being written is kept.
bool remove_stray(const char* path) noexcept;

}  // namespace qx
