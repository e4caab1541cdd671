#include "core/files_read.h"

#include <cstdlib>
#include <sys/stat.h>
#include <utility>

namespace qx {

namespace {

// Outside tagged memory: what a job is told of its memory stays what it is.
struct NotedFiles {
  struct stat* noted = nullptr;
  std::size_t count = 0;
  std::size_t capacity = 0;
  ~NotedFiles() { std::free(noted); }
};
thread_local NotedFiles files;

bool is_noted(const struct stat& state) {
  for (std::size_t i = 0; i < files.count; ++i) {
    if (is_same_file(files.noted[i], state)) return true;
  }
  return false;
}

}  // namespace

bool is_same_file(const struct stat& a, const struct stat& b) noexcept {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool note_file_read(std::FILE* stream) noexcept {
  struct stat state = {};
  if (!stream || fstat(fileno(stream), &state) != 0 || !S_ISREG(state.st_mode)) return true;
  if (is_noted(state)) return true;
  if (files.count == files.capacity) {
    const std::size_t larger = files.capacity * 2 + 8;
    auto* grown = static_cast<struct stat*>(std::realloc(files.noted, larger * sizeof state));
    if (!grown) return false;
    files.noted = grown;
    files.capacity = larger;
  }
  files.noted[files.count++] = state;
  return true;
}

bool is_file_read(const char* path) noexcept {
  struct stat state = {};
  return files.count > 0 && stat(path, &state) == 0 && is_noted(state);
}

void forget_files_read() noexcept {
  std::free(std::exchange(files.noted, nullptr));
  files.count = files.capacity = 0;
}

}  // namespace qx
