#include "driver/commands/readable_file.h"

#include "core/output_file.h"
#include "driver/commands/command_error.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <zlib.h>

namespace qx {

TemporaryFile::TemporaryFile() {
  const std::filesystem::path folder = std::filesystem::temp_directory_path();
  descriptor_ = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (descriptor_ >= 0) return;
  const HeldSignals held;  // a file system where it has a name for a moment
  std::string name = (folder / "quorix-XXXXXX").string();
  descriptor_ = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor_ < 0) throw CommandError(2, "no temporary file can be made as " + name);
  unlink(name.c_str());
}

TemporaryFile::~TemporaryFile() { close(descriptor_); }

std::string TemporaryFile::path() const { return format("/proc/self/fd/%d", descriptor_); }

namespace {

// Plain files pass through it as they are.
struct GzFile {
  gzFile stream;
  explicit GzFile(const std::string& path) : stream(gzopen(path.c_str(), "rb")) {}
  GzFile(const GzFile&) = delete;
  GzFile& operator=(const GzFile&) = delete;
  ~GzFile() {
    if (stream) gzclose(stream);
  }
};

void check_regular(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) throw CommandError(2, "there is no file " + path);
  if (!std::filesystem::is_regular_file(status))
    throw CommandError(2, path + " is not a regular file");
}

[[noreturn]] void refuse(const std::string& path) {
  throw CommandError(2, "cannot read " + path + ": " + std::strerror(errno));
}

void write_all(int descriptor, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t n = write(descriptor, bytes, count);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw CommandError(2, std::string("cannot unpack: ") + std::strerror(errno));
    bytes += n;
    count -= static_cast<std::size_t>(n);
  }
}

[[noreturn]] void refuse_damaged(const std::string& path) {
  throw CommandError(
      2,
      path +
          " is a damaged gzip file: it ends too early, or its checksum is not that of its content");
}

// Throws unless everything up to here, checksums of whole files included, was sound.
void check_stream(const std::string& path, const GzFile& file) {
  int error = Z_OK;
  gzerror(file.stream, &error);
  if (error == Z_ERRNO) refuse(path);
  if (error != Z_OK && error != Z_STREAM_END) refuse_damaged(path);
}

// A small file can unpack to more than a machine holds.
constexpr std::uintmax_t always_unpacked = 64 << 20;
constexpr std::uintmax_t most_expansion = 100;

// Hands the unpacked content to `take` piece by piece.
template <class Take>
void read_pieces(const std::string& path, Take take) {
  const GzFile file(path);
  if (!file.stream) refuse(path);
  std::error_code unknown;
  const std::uintmax_t packed = std::filesystem::file_size(path, unknown);
  std::uintmax_t total = 0;
  char piece[1 << 16];
  int n = 0;
  while ((n = gzread(file.stream, piece, sizeof piece)) > 0) {
    total += static_cast<std::uintmax_t>(n);
    if (total > always_unpacked && !unknown && total / most_expansion > packed) {
      throw CommandError(2, path + format(" unpacks to more than %d times its size: if that is "
                                          "meant, unpack it with gunzip first",
                                          static_cast<int>(most_expansion)));
    }
    take(piece, static_cast<std::size_t>(n));
  }
  // A file that ends too early is no error of the last read.
  check_stream(path, file);
}

}  // namespace

bool is_gzipped(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  char magic[2] = {};
  return file.read(magic, 2) && std::memcmp(magic, "\x1f\x8b", 2) == 0;
}

std::string stem_of(const std::string& path) {
  std::filesystem::path name = std::filesystem::path(path).filename();
  if (name.extension() == ".gz") name = name.stem();
  return name.stem().string();
}

std::string first_bytes(const std::string& path, std::size_t count, bool* gzipped) {
  check_regular(path);
  const GzFile file(path);
  if (!file.stream) refuse(path);
  std::string bytes(count, '\0');
  const int n = gzread(file.stream, bytes.data(), static_cast<unsigned>(count));
  if (n < static_cast<int>(count)) check_stream(path, file);
  bytes.resize(static_cast<std::size_t>(std::max(n, 0)));
  if (gzipped) *gzipped = gzdirect(file.stream) == 0;
  return bytes;
}

void unpack(const std::string& path, const TemporaryFile& to) {
  read_pieces(path, [&](const char* bytes, std::size_t count) {
    write_all(to.descriptor(), bytes, count);
  });
}

std::string whole_text(const std::string& path) {
  std::string text;
  read_pieces(path, [&](const char* bytes, std::size_t count) { text.append(bytes, count); });
  return text;
}

}  // namespace qx
