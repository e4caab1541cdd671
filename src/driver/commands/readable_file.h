// Files as the engine can read them: plain, with a name.
#pragma once

#include <string>

namespace qx {

// A file without a name in any folder: nothing of it is left, whatever ends the program.
class TemporaryFile {
 public:
  TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();
  [[nodiscard]] int descriptor() const { return descriptor_; }
  // Opens it while this object lives.
  [[nodiscard]] std::string path() const;

 private:
  int descriptor_;
};

// True if the file begins like a gzipped one.
bool is_gzipped(const std::string& path);
// 1ubq for some/folder/1ubq.mtz.gz.
std::string stem_of(const std::string& path);
// The first bytes of the file, unpacked if it is `gzipped`. Throws CommandError if it is no regular
// file that can be read.
std::string first_bytes(const std::string& path, std::size_t count, bool* gzipped = nullptr);
// The whole content, unpacked if it is gzipped; throws CommandError for what cannot be read.
std::string whole_text(const std::string& path);
// Unpacks a gzipped file; throws CommandError for a damaged one.
void unpack(const std::string& path, const TemporaryFile& to);
// Converts the first block with reflections of a plain mmCIF file to MTZ; throws CommandError, with
// the name that the user gave, if that cannot be done.
void convert_mmcif(const std::string& from, const TemporaryFile& to, const std::string& path);

}  // namespace qx
