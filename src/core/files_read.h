// The files that a job reads. What the job writes must not take their place.
#pragma once

#include "core/tagged.h"

#include <cstdio>

struct stat;

namespace qx {

// True if both are one file, under whatever names.
bool is_same_file(const struct stat& a, const struct stat& b) noexcept;

// Remembers an open input until the next root is created; false without memory.
[[nodiscard]] bool note_file_read(std::FILE* stream) noexcept;
// True if `path` leads, also through links, to a regular file that has been noted.
bool is_file_read(const char* path) noexcept;
void forget_files_read() noexcept;

// An input, open for reading and remembered.
class InputFile : public File {
 public:
  InputFile() = default;
  explicit InputFile(const char* path) : File(path, "rb"), noted_(note_file_read(get())) {}
  explicit operator bool() const { return get() && noted_; }

 private:
  bool noted_ = false;
};

}  // namespace qx
