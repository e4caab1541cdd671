#include "core/name_code.h"

#include "core/text.h"

#include <cstring>

namespace qx {

namespace {

int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  c = to_lower(c);
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// The byte that a percent sign announces; 0 if it stands for itself.
int announced(const char* text) {
  if (*text != '%' || digit(text[1]) < 0 || digit(text[2]) < 0) return 0;
  return digit(text[1]) * 16 + digit(text[2]);
}

// What passes in any place of a line, at its end as well.
bool is_plain(char c) { return is_word_char(c) && !std::strchr("%#!\"=&-", c); }

bool is_inside(const char* text) { return text[0] != '\0' && std::strncmp(text, "\"\"", 2) != 0; }

}  // namespace

bool opens_name_code(const char* text) noexcept {
  return std::strncmp(text, "\"\"", 2) == 0 && is_word_char(text[2]) && text[2] != '\0' &&
         text[2] != '"';
}

const char* decode_name(const char* text, char* name) noexcept {
  for (text += 2; is_inside(text); ++name) {
    const int byte = announced(text);
    *name = byte != 0 ? static_cast<char>(byte) : *text;
    text += byte != 0 ? 3 : 1;
  }
  *name = '\0';
  return *text ? text + 2 : text;
}

bool needs_code_in_quotes(const char* name) noexcept {
  for (; *name; ++name) {
    if (!is_printable(*name) || std::strchr("#!\"", *name)) return true;
  }
  return false;
}

bool needs_code_as_word(const char* name) noexcept {
  const std::size_t size = std::strlen(name);
  if (size > 0 && std::strchr("-&", name[size - 1])) return true;  // would go on in the next line
  return needs_code_in_quotes(name) || std::strchr(name, ' ') != nullptr;
}

std::size_t coded_size(const char* name) noexcept {
  return 3 * std::strlen(name) + sizeof "\"\"\"\"";
}

void code_name(const char* name, char* code) noexcept {
  constexpr char digits[] = "0123456789abcdef";
  const auto add = [&code](char c) { *code++ = c; };
  add('"'), add('"');
  for (; *name; ++name) {
    const auto byte = static_cast<unsigned char>(*name);
    if (is_plain(*name)) {
      add(*name);
    } else {
      add('%'), add(digits[byte >> 4U]), add(digits[byte & 15U]);
    }
  }
  add('"'), add('"'), add('\0');
}

}  // namespace qx
