#include "core/output_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace qx {

namespace {

unsigned new_file_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666U & ~mask;
}

}  // namespace

OutputFile::~OutputFile() {
  if (stream_) std::fclose(stream_);
  if (temporary_) (void)unlink(temporary_);
  std::free(temporary_);
  std::free(target_);
}

bool OutputFile::open(const char* path) noexcept {
  if (*path == '\0') return false;
  struct stat state = {};
  const bool exists = stat(path, &state) == 0;
  if (exists && !S_ISREG(state.st_mode)) {
    stream_ = S_ISDIR(state.st_mode) ? nullptr : std::fopen(path, "wb");
    return stream_ != nullptr;
  }
  if (!exists && errno != ENOENT) return false;
  // Renaming over a file asks no permission of the file itself: ask here.
  if (exists && access(path, W_OK) != 0) return false;
  target_ = exists ? realpath(path, nullptr) : strdup(path);
  return target_ && open_beside(target_, exists ? state.st_mode & 07777U : new_file_mode());
}

bool OutputFile::open_beside(const char* path, unsigned mode) noexcept {
  // A name of its own, short whatever the target is called: names have a length limit.
  const char* slash = std::strrchr(path, '/');
  const auto folder = slash ? static_cast<std::size_t>(slash - path) + 1 : 0;
  constexpr char pattern[] = ".quorix-XXXXXX";
  temporary_ = static_cast<char*>(std::malloc(folder + sizeof pattern));
  if (!temporary_) return false;
  std::memcpy(temporary_, path, folder);
  std::memcpy(temporary_ + folder, pattern, sizeof pattern);
  const int descriptor = mkstemp(temporary_);
  if (descriptor < 0) {
    std::free(std::exchange(temporary_, nullptr));
    return false;
  }
  (void)fchmod(descriptor, static_cast<mode_t>(mode));
  stream_ = fdopen(descriptor, "w+b");
  if (!stream_) (void)close(descriptor);
  return stream_ != nullptr;
}

bool OutputFile::commit() noexcept {
  if (!stream_) return false;
  const bool written = std::fflush(stream_) == 0 && !std::ferror(stream_);
  const bool closed = std::fclose(std::exchange(stream_, nullptr)) == 0;
  if (!written || !closed) return false;
  if (!temporary_) return true;
  if (std::rename(temporary_, target_) != 0) return false;
  std::free(std::exchange(temporary_, nullptr));
  return true;
}

}  // namespace qx
