#include "driver/commands/output_place.h"

#include "core/output_file.h"
#include "driver/commands/command_error.h"
#include "driver/commands/whole_file.h"
#include "driver/process.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <unistd.h>
#include <zlib.h>

namespace qx {

namespace {

// Hands the file to `take` piece by piece; false if either fails.
template <class Take>
bool copy_pieces(int descriptor, Take take) {
  char piece[1 << 16];
  ssize_t n = 0;
  for (off_t at = 0; (n = pread(descriptor, piece, sizeof piece, at)) > 0; at += n) {
    if (!take(piece, static_cast<std::size_t>(n))) return false;
  }
  return n == 0;
}

bool write_out(const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t n = write(STDOUT_FILENO, bytes, count);
    if (n < 0 && errno != EINTR) return false;
    bytes += std::max<ssize_t>(n, 0);
    count -= static_cast<std::size_t>(std::max<ssize_t>(n, 0));
  }
  return true;
}

// Density packs little better with more effort.
bool pack_file(int descriptor, const std::string& target) {
  OutputFile output;
  if (!output.open(target.c_str())) return false;
  const int copy = dup(fileno(output.stream()));
  const gzFile packed = copy < 0 ? nullptr : gzdopen(copy, "wb1");
  if (!packed) {
    if (copy >= 0) close(copy);
    return false;
  }
  const bool copied = copy_pieces(descriptor, [packed](const char* bytes, std::size_t n) {
    return gzwrite(packed, bytes, static_cast<unsigned>(n)) == static_cast<int>(n);
  });
  const bool closed = gzclose(packed) == Z_OK;
  return copied && closed && output.commit();
}

}  // namespace

bool asks_for_gzip(const std::string& path) { return path.ends_with(".gz"); }

OutputPlace::OutputPlace(const std::string& wanted, bool dash)
    : wanted_(wanted), to_standard_output_(dash && wanted == "-") {
  if (to_standard_output_ && is_output_closed()) {
    throw CommandError(2, "standard output is closed: name a file");
  }
  if (to_standard_output_ || asks_for_gzip(wanted)) file_ = std::make_unique<TemporaryFile>();
}

std::string OutputPlace::path() const { return file_ ? file_->path() : wanted_; }

void OutputPlace::deliver() const {
  if (!file_) return;
  if (to_standard_output_) {
    if (std::fflush(stdout) == 0 && copy_pieces(file_->descriptor(), write_out)) return;
    refuse_writing("to standard output");
  }
  if (!pack_file(file_->descriptor(), wanted_)) refuse_writing(wanted_);
}

}  // namespace qx
