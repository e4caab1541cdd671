#include "core/output_file.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace qx {

namespace {

// Read by a handler of signals: names are put here before they exist and taken out after.
constexpr int most_names = 64;
std::atomic<const char*> names[most_names] = {};
static_assert(std::atomic<const char*>::is_always_lock_free);

// False if there are too many: such a name outlives a signal.
void note_name(const char* name) {
  for (auto& place : names) {
    const char* empty = nullptr;
    if (place.compare_exchange_strong(empty, name)) return;
  }
}

void drop_name(const char* name) {
  for (auto& place : names) {
    if (place == name) place = nullptr;
  }
}

// True if the open file has a name, and nobody who clears up has begun with it.
bool take_lock(int descriptor) {
  struct stat state = {};
  if (flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return false;
  return fstat(descriptor, &state) == 0 && state.st_nlink > 0;
}

constexpr std::size_t path_size = 40;
constexpr std::size_t name_size = 60;

// Where a file that has no name can be found to be given one.
void path_of(int descriptor, char (&path)[path_size]) {
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
}

bool copy_bytes(int from, int to) {
  char piece[1 << 16];
  off_t at = 0;
  for (;;) {
    const ssize_t n = pread(from, piece, sizeof piece, at);
    if (n <= 0) return n == 0;
    for (ssize_t done = 0; done < n;) {
      const ssize_t written = write(to, piece + done, static_cast<std::size_t>(n - done));
      if (written < 0) return false;
      done += written;
    }
    at += n;
  }
}

}  // namespace

HeldSignals::HeldSignals() noexcept {
  sigset_t ends;
  sigemptyset(&ends);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGXCPU}) sigaddset(&ends, number);
  pthread_sigmask(SIG_BLOCK, &ends, &before_);
}

HeldSignals::~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

OutputFile::~OutputFile() {
  if (stream_) std::fclose(stream_);
  if (temporary_) (void)unlink(temporary_);
  forget_name();
  if (lock_ >= 0) (void)close(lock_);
  std::free(target_);
}

void OutputFile::forget_name() noexcept {
  if (!temporary_) return;
  drop_name(temporary_);
  std::free(std::exchange(temporary_, nullptr));
}

bool OutputFile::open(const char* path) noexcept {
  if (*path == '\0') return false;
  struct stat state = {};
  const bool exists = stat(path, &state) == 0;
  if (exists && (!S_ISREG(state.st_mode) || state.st_nlink == 0)) {
    stream_ = S_ISDIR(state.st_mode) ? nullptr : std::fopen(path, "wb");
    return stream_ != nullptr;
  }
  if (!exists && errno != ENOENT) return false;
  // Renaming over a file asks no permission of the file itself: ask here.
  if (exists && access(path, W_OK) != 0) return false;
  target_ = exists ? realpath(path, nullptr) : strdup(path);
  if (!target_) return false;
  beside_ = true;
  private_ = exists;
  int descriptor = open_unnamed();
  if (descriptor < 0) descriptor = open_named();
  if (descriptor < 0) return false;
  if (exists) (void)fchmod(descriptor, state.st_mode & 07777U);
  stream_ = fdopen(descriptor, "w+b");
  if (!stream_) (void)close(descriptor);
  return stream_ != nullptr;
}

// Where the folder of a path ends.
std::size_t OutputFile::folder_size() const noexcept {
  const char* slash = std::strrchr(target_, '/');
  return slash ? static_cast<std::size_t>(slash - target_) + 1 : 0;
}

int OutputFile::open_unnamed() noexcept {
  const std::size_t size = folder_size();
  char* folder = size > 0 ? strndup(target_, size) : strdup(".");
  if (!folder) return -1;
  const int descriptor = ::open(folder, O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
  std::free(folder);
  if (descriptor < 0) return -1;
  char path[path_size];
  path_of(descriptor, path);
  if (access(path, F_OK) == 0) return descriptor;
  (void)close(descriptor);  // without /proc it could not be given a name later
  return -1;
}

// Takes a free name beside the target, short whatever that is called, for an open file or, without
// one, for a new file. Gives its descriptor, or -1.
int OutputFile::take_name(int source) noexcept {
  static std::atomic<unsigned> counter = 0;
  const std::size_t folder = folder_size();
  char existing[path_size];
  path_of(source, existing);
  for (int attempt = 0; attempt < 1000; ++attempt) {
    const HeldSignals held;
    temporary_ = static_cast<char*>(std::malloc(folder + name_size));
    if (!temporary_) return -1;
    std::memcpy(temporary_, target_, folder);
    std::snprintf(temporary_ + folder, name_size, "%s%ld-%u", temporary_prefix,
                  static_cast<long>(getpid()), counter++);
    const int taken =
        source < 0
            ? ::open(temporary_, O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, private_ ? 0600 : 0666)
        : linkat(AT_FDCWD, existing, AT_FDCWD, temporary_, AT_SYMLINK_FOLLOW) == 0 ? source
                                                                                   : -1;
    if (taken >= 0) {
      note_name(temporary_);
      return taken;
    }
    const int problem = errno;
    std::free(std::exchange(temporary_, nullptr));
    errno = problem;
    if (problem != EEXIST) return -1;
  }
  return -1;
}

int OutputFile::open_named() noexcept {
  for (int attempt = 0; attempt < 100; ++attempt) {
    const int descriptor = take_name(-1);
    if (descriptor < 0) return -1;
    if (take_lock(descriptor)) {
      keep_lock(descriptor);
      return descriptor;
    }
    (void)close(descriptor);
    forget_name();
  }
  return -1;
}

// A lock lasts as long as any copy of the descriptor: until the file is in its place.
void OutputFile::keep_lock(int descriptor) noexcept {
  lock_ = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
}

// A link cannot replace a file, a rename can: the whole file gets a name beside its target first.
bool OutputFile::give_name() noexcept {
  const int descriptor = fileno(stream_);
  (void)flock(descriptor, LOCK_EX | LOCK_NB);
  keep_lock(descriptor);
  if (take_name(descriptor) >= 0) return true;
  // A file system that makes such files and links none.
  const int copy = open_named();
  if (copy < 0) return false;
  struct stat state = {};
  const bool copied = fstat(descriptor, &state) == 0 && copy_bytes(descriptor, copy) &&
                      fchmod(copy, state.st_mode & 07777U) == 0;
  return close(copy) == 0 && copied;
}

bool OutputFile::commit() noexcept {
  if (!stream_) return false;
  bool written = std::fflush(stream_) == 0 && !std::ferror(stream_);
  if (written && beside_ && !temporary_) written = give_name();
  const bool closed = std::fclose(std::exchange(stream_, nullptr)) == 0;
  if (!written || !closed) return false;
  if (!beside_) return true;
  if (std::rename(temporary_, target_) != 0) return false;
  forget_name();
  return true;
}

bool remove_stray(const char* path) noexcept {
  const int descriptor = ::open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) return false;
  struct stat state = {};
  const bool left = fstat(descriptor, &state) == 0 && S_ISREG(state.st_mode) &&
                    flock(descriptor, LOCK_SH | LOCK_NB) == 0;
  const bool removed = left && unlink(path) == 0;
  (void)close(descriptor);
  return removed;
}

void remove_temporaries() noexcept {
  for (const auto& place : names) {
    const char* name = place;
    if (name) (void)unlink(name);
  }
}

}  // namespace qx
