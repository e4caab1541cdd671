#include "driver/commands/readable_file.h"

#include "driver/commands/sections.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <zlib.h>

namespace qx {

TemporaryFile::TemporaryFile() {
  std::string name = (std::filesystem::temp_directory_path() / "quorix-XXXXXX").string();
  descriptor_ = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor_ < 0) throw CommandError(2, "no temporary file can be made as " + name);
  unlink(name.c_str());
}

TemporaryFile::~TemporaryFile() { close(descriptor_); }

std::string TemporaryFile::path() const { return format("/proc/self/fd/%d", descriptor_); }

namespace {

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
  if (!std::filesystem::is_regular_file(status)) throw CommandError(2, path + " is no file");
}

[[noreturn]] void refuse(const std::string& path) {
  throw CommandError(2, "cannot read " + path + ": " + std::strerror(errno));
}

void write_all(int descriptor, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t n = write(descriptor, bytes, count);
    if (n < 0) throw CommandError(2, std::string("cannot unpack: ") + std::strerror(errno));
    bytes += n;
    count -= static_cast<std::size_t>(n);
  }
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

std::string first_bytes(const std::string& path, std::size_t count) {
  check_regular(path);
  const GzFile file(path);
  if (!file.stream) refuse(path);
  std::string bytes(count, '\0');
  const int n = gzread(file.stream, bytes.data(), static_cast<unsigned>(count));
  bytes.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return bytes;
}

void unpack(const std::string& path, const TemporaryFile& to) {
  const GzFile file(path);
  if (!file.stream) refuse(path);
  char piece[1 << 16];
  int n = 0;
  while ((n = gzread(file.stream, piece, sizeof piece)) > 0) {
    write_all(to.descriptor(), piece, static_cast<std::size_t>(n));
  }
  // A file that ends too early is no error of the last read.
  int error = Z_OK;
  gzerror(file.stream, &error);
  if (n < 0 || error != Z_OK) throw CommandError(2, path + " is a damaged gzip file");
}

}  // namespace qx
