/* Preloaded: the n-th call of one kind fails, as on a machine that is short of something.
   QUORIX_FAIL=KIND:N, KIND one of malloc, open, write, rename, close; QUORIX_FAIL_COUNT names a file
   that takes the number of calls of that kind. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

static long counted = 0;
static long failing = -1;
static char kind[16] = "";

__attribute__((constructor)) static void read_wish(void) {
  const char* wish = getenv("QUORIX_FAIL");
  const char* colon = wish ? strchr(wish, ':') : NULL;
  if (!colon || (size_t)(colon - wish) >= sizeof kind) return;
  memcpy(kind, wish, (size_t)(colon - wish));
  failing = atol(colon + 1);
  counted = 0;
}

__attribute__((destructor)) static void tell_count(void) {
  const char* path = getenv("QUORIX_FAIL_COUNT");
  char text[32];
  kind[0] = '\0';
  if (!path) return;
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (file < 0) return;
  const int length = snprintf(text, sizeof text, "%ld\n", counted);
  if (write(file, text, (size_t)length) != length) abort();
  close(file);
}

/* As the real ones leave a stream behind. */
static void mark_failed(FILE* stream) {
  stream->_flags |= 0x20; /* _IO_ERR_SEEN of glibc */
  errno = ENOSPC;
}

static int fails(const char* what) { return strcmp(what, kind) == 0 && counted++ == failing; }

#define REAL(type, name, ...)                     \
  static type (*real)(__VA_ARGS__) = NULL;        \
  if (!real) *(void**)(&real) = dlsym(RTLD_NEXT, #name)

extern void* __libc_malloc(size_t);
extern void* __libc_calloc(size_t, size_t);
extern void* __libc_realloc(void*, size_t);

void* malloc(size_t size) {
  if (!fails("malloc")) return __libc_malloc(size);
  errno = ENOMEM;
  return NULL;
}
void* calloc(size_t count, size_t size) {
  if (!fails("malloc")) return __libc_calloc(count, size);
  errno = ENOMEM;
  return NULL;
}
void* realloc(void* block, size_t size) {
  if (!fails("malloc")) return __libc_realloc(block, size);
  errno = ENOMEM;
  return NULL;
}

FILE* fopen(const char* path, const char* mode) {
  REAL(FILE*, fopen, const char*, const char*);
  if (!fails("open")) return real(path, mode);
  errno = EMFILE;
  return NULL;
}
int open(const char* path, int flags, ...) {
  REAL(int, open, const char*, int, ...);
  va_list list;
  va_start(list, flags);
  const unsigned mode = va_arg(list, unsigned);
  va_end(list);
  if (!fails("open")) return real(path, flags, mode);
  errno = EMFILE;
  return -1;
}
ssize_t write(int file, const void* bytes, size_t size) {
  REAL(ssize_t, write, int, const void*, size_t);
  if (!fails("write")) return real(file, bytes, size);
  errno = ENOSPC;
  return -1;
}
size_t fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
  REAL(size_t, fwrite, const void*, size_t, size_t, FILE*);
  /* A stream without a descriptor writes through write() in the end, which fails by itself. */
  if (fileno(stream) < 0 || !fails("write")) return real(bytes, size, count, stream);
  const size_t written = real(bytes, size, count / 2, stream);
  mark_failed(stream);
  return written;
}
int fflush(FILE* stream) {
  REAL(int, fflush, FILE*);
  if (!stream || fileno(stream) < 0 || !fails("write")) return real(stream);
  mark_failed(stream);
  return EOF;
}
int fclose(FILE* stream) {
  REAL(int, fclose, FILE*);
  if (!fails("close")) return real(stream);
  real(stream);
  errno = EIO;
  return EOF;
}
int close(int file) {
  REAL(int, close, int);
  if (!fails("close")) return real(file);
  real(file);
  errno = EIO;
  return -1;
}
int rename(const char* from, const char* to) {
  REAL(int, rename, const char*, const char*);
  if (!fails("rename")) return real(from, to);
  errno = EACCES;
  return -1;
}
