// Text on its way to where it may be read: control bytes in it are spelled out.
#pragma once

#include <cstddef>

namespace qx {

// A terminal obeys control bytes, and names, labels and titles can hold any. All but line breaks
// and tabs are written as \u001b: what a JSON text may hold as well. UTF-8 passes, and so do bytes
// that are neither that nor control bytes of an 8-bit terminal.
class ShownText {
 public:
  // False after a failed write.
  bool write(int descriptor, const char* bytes, std::size_t count);
  // What waits for bytes that would have told what it is.
  bool finish(int descriptor);

 private:
  bool add(int descriptor, const char* bytes, std::size_t count);
  bool flush(int descriptor);
  bool show(int descriptor, unsigned char byte);
  // How many bytes at `at` belong together; 0: more are needed to tell.
  static std::size_t unit(const unsigned char* at, std::size_t left);

  char out_[8192];
  std::size_t used_ = 0;
  unsigned char waiting_[4] = {};
  std::size_t waits_ = 0;
};

}  // namespace qx
