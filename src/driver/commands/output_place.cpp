#include "driver/commands/output_place.h"

#include "core/output_file.h"
#include "driver/commands/sections.h"
#include "driver/commands/whole_file.h"

#include <cstdio>
#include <memory>
#include <unistd.h>
#include <zlib.h>

namespace qx {

namespace {

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// Hands the file to `take` piece by piece; false if either fails.
template <class Take>
bool copy_pieces(const std::string& path, Take take) {
  const Stream file(std::fopen(path.c_str(), "rb"), std::fclose);
  if (!file) return false;
  char piece[1 << 16];
  for (std::size_t n = 0; (n = std::fread(piece, 1, sizeof piece, file.get())) > 0;) {
    if (!take(piece, n)) return false;
  }
  return !std::ferror(file.get());
}

bool print_file(const std::string& path) {
  return copy_pieces(path, [](const char* bytes,
                              std::size_t n) { return std::fwrite(bytes, 1, n, stdout) == n; }) &&
         std::fflush(stdout) == 0;
}

// Density packs little better with more effort.
bool pack_file(const std::string& path, const std::string& target) {
  OutputFile output;
  if (!output.open(target.c_str())) return false;
  const gzFile packed = gzdopen(dup(fileno(output.stream())), "wb1");
  if (!packed) return false;
  const bool copied = copy_pieces(path, [packed](const char* bytes, std::size_t n) {
    return gzwrite(packed, bytes, static_cast<unsigned>(n)) == static_cast<int>(n);
  });
  const bool closed = gzclose(packed) == Z_OK;
  return copied && closed && output.commit();
}

}  // namespace

bool asks_for_gzip(const std::string& path) { return path.ends_with(".gz"); }

OutputPlace::OutputPlace(const std::string& wanted, bool dash)
    : wanted_(wanted), to_standard_output_(dash && wanted == "-") {
  if (!to_standard_output_ && !asks_for_gzip(wanted)) return;
  std::string name = (std::filesystem::temp_directory_path() / "quorix-XXXXXX").string();
  if (!mkdtemp(name.data())) throw CommandError(2, "no temporary folder can be made");
  folder_ = name;
}

OutputPlace::~OutputPlace() {
  std::error_code error;
  if (!folder_.empty()) std::filesystem::remove_all(folder_, error);
}

std::string OutputPlace::path() const {
  return folder_.empty() ? wanted_ : (folder_ / "output").string();
}

void OutputPlace::deliver() const {
  if (folder_.empty()) return;
  if (to_standard_output_) {
    if (!print_file(path())) refuse_writing("to standard output");
  } else if (!pack_file(path(), wanted_)) {
    refuse_writing(wanted_);
  }
}

}  // namespace qx
