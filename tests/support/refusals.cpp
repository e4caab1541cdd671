// Loaded before the system's library: calls that QX_REFUSE names fail, or bring a signal.
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

bool asked(const char* what) {
  const char* wanted = std::getenv("QX_REFUSE");
  return wanted && std::strstr(wanted, what);
}

template <class Routine>
Routine* system_routine(const char* name) {
  return reinterpret_cast<Routine*>(dlsym(RTLD_NEXT, name));
}

int open_as(const char* routine, const char* path, int flags, unsigned mode) {
  if ((flags & O_TMPFILE) == O_TMPFILE && asked("tmpfile")) {
    errno = EOPNOTSUPP;
    return -1;
  }
  return system_routine<int(const char*, int, ...)>(routine)(path, flags, mode);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  std::va_list more;
  va_start(more, flags);
  const unsigned mode = va_arg(more, unsigned);
  va_end(more);
  return open_as("open", path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  std::va_list more;
  va_start(more, flags);
  const unsigned mode = va_arg(more, unsigned);
  va_end(more);
  return open_as("open64", path, flags, mode);
}

int linkat(int from_folder, const char* from, int to_folder, const char* to, int flags) noexcept {
  if (asked("linkat")) {
    errno = EPERM;
    return -1;
  }
  return system_routine<int(int, const char*, int, const char*, int)>("linkat")(
      from_folder, from, to_folder, to, flags);
}

// The last moment at which an unfinished file has a name.
int rename(const char* from, const char* to) noexcept {
  if (asked("rename") && std::strstr(from, ".quorix-")) raise(SIGTERM);
  return system_routine<int(const char*, const char*)>("rename")(from, to);
}

int vasprintf(char** text, const char* format, std::va_list values) noexcept {
  static int calls = 0;
  const char* number = std::getenv("QX_REFUSE_LINE");
  if (number && ++calls == std::atoi(number)) {
    errno = ENOMEM;
    return -1;
  }
  return system_routine<int(char**, const char*, std::va_list)>("vasprintf")(text, format, values);
}
}
