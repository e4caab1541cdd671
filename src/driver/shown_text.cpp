#include "driver/shown_text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace qx {

namespace {

// Bytes of the UTF-8 sequence that begins so; 1 for what begins none.
std::size_t announced(unsigned char byte) {
  if (byte >= 0xc2 && byte <= 0xdf) return 2;
  if (byte >= 0xe0 && byte <= 0xef) return 3;
  if (byte >= 0xf0 && byte <= 0xf4) return 4;
  return 1;
}

bool is_control(unsigned char byte) {
  return (byte < 0x20 && byte != '\n' && byte != '\t') || (byte >= 0x7f && byte <= 0x9f);
}

}  // namespace

bool ShownText::flush(int descriptor) {
  for (std::size_t done = 0; done < used_;) {
    const ssize_t n = ::write(descriptor, out_ + done, used_ - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      used_ = 0;
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  used_ = 0;
  return true;
}

bool ShownText::add(int descriptor, const char* bytes, std::size_t count) {
  if (used_ + count > sizeof out_ && !flush(descriptor)) return false;
  std::memcpy(out_ + used_, bytes, count);
  used_ += count;
  return true;
}

bool ShownText::show(int descriptor, unsigned char byte) {
  char text[8];
  std::snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(byte));
  return add(descriptor, text, 6);
}

std::size_t ShownText::unit(const unsigned char* at, std::size_t left) {
  if (*at == '\r') return left < 2 ? 0 : at[1] == '\n' ? 2 : 1;
  const std::size_t size = announced(*at);
  for (std::size_t i = 1; i < size; ++i) {
    if (i == left) return 0;
    if ((at[i] & 0xc0U) != 0x80U) return 1;
  }
  return size;
}

bool ShownText::write(int descriptor, const char* bytes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    waiting_[waits_++] = static_cast<unsigned char>(bytes[i]);
    // One byte may tell that several before it stand alone.
    while (waits_ > 0) {
      const std::size_t size = unit(waiting_, waits_);
      if (size == 0) break;
      const bool latin_control = size == 2 && waiting_[0] == 0xc2 && waiting_[1] < 0xa0;
      const bool fine = latin_control ? show(descriptor, waiting_[1])
                        : size == 1 && is_control(waiting_[0])
                            ? show(descriptor, waiting_[0])
                            : add(descriptor, reinterpret_cast<const char*>(waiting_), size);
      if (!fine) return false;
      waits_ -= size;
      std::memmove(waiting_, waiting_ + size, waits_);
    }
  }
  return flush(descriptor);
}

bool ShownText::finish(int descriptor) {
  for (std::size_t i = 0; i < waits_; ++i) {
    const char byte = static_cast<char>(waiting_[i]);
    const bool fine =
        is_control(waiting_[i]) ? show(descriptor, waiting_[i]) : add(descriptor, &byte, 1);
    if (!fine) return false;
  }
  waits_ = 0;
  return flush(descriptor);
}

}  // namespace qx
