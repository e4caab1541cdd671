// K. Character classes and word scanning on NUL-terminated text.
//
// A blank is the space character; a word character is any printable character but the space, bytes
// of 0x80 and above included, so that UTF-8 paths are words.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

inline bool is_printable(char c) noexcept {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x20 && byte != 0x7f;
}
inline bool is_word_char(char c) noexcept { return c != ' ' && is_printable(c); }

// Case is folded for ASCII letters only: a UTF-8 byte is never changed.
inline char to_upper(char c) noexcept {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
inline char to_lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// A stretch of a text; empty when size is 0.
struct Word {
  const char* start = nullptr;
  std::size_t size = 0;
  [[nodiscard]] const char* end() const noexcept { return start + size; }
};

// The first word of `s`, blanks and unprintable characters before it skipped; `stop` also ends it.
Word first_word(const char* s, char stop = '\0') noexcept;
// The first word that begins with `key` (any case).
Word find_key(const char* s, const char* key) noexcept;
bool starts_with(const char* s, const char* token) noexcept;
// Copies a word and ends it.
void copy_word(Word word, char* dst) noexcept;
// The integer that a text begins with, as scanf reads it; false if there is none or it does not
// fit.
bool read_int(const char* text, std::int32_t& value) noexcept;
// Takes a stretch out of the text it lies in.
void erase(char* s, const char* from, const char* to) noexcept;

}  // namespace qx
