#include "core/text.h"

#include <quorix/parser.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace qx {

Word first_word(const char* s, char stop) noexcept {
  while (*s && !is_word_char(*s)) ++s;
  const char* end = s;
  while (*end && is_word_char(*end) && !(stop && *end == stop)) ++end;
  return {s, static_cast<std::size_t>(end - s)};
}

Word find_key(const char* s, const char* key) noexcept {
  for (Word word = first_word(s); word.size > 0; word = first_word(word.end())) {
    if (starts_with(word.start, key)) return word;
  }
  return {};
}

bool starts_with(const char* s, const char* token) noexcept {
  for (; *token; ++s, ++token) {
    if (to_lower(*s) != to_lower(*token)) return false;
  }
  return true;
}

void copy_word(Word word, char* dst) noexcept {
  std::memmove(dst, word.start, word.size);
  dst[word.size] = '\0';
}

bool read_int(const char* text, std::int32_t& value) noexcept {
  char* end = nullptr;
  errno = 0;
  const long long number = std::strtoll(text, &end, 10);
  if (end == text || errno == ERANGE || number < INT32_MIN || number > INT32_MAX) return false;
  value = static_cast<std::int32_t>(number);
  return true;
}

void erase(char* s, const char* from, const char* to) noexcept {
  std::memmove(s + (from - s), to, std::strlen(to) + 1);
}

}  // namespace qx

using qx::first_word;
using qx::Word;

void qx_chop_left_whitespaces(char* s) {
  const char* first = s;
  while (*first == ' ') ++first;
  qx::erase(s, s, first);
}

void qx_chop_right_whitespaces(char* s) {
  if (!s) return;
  std::size_t size = std::strlen(s);
  while (size > 0 && s[size - 1] == ' ') --size;
  s[size] = '\0';
}

void qx_chop_left_right_whitespaces(char* s) {
  if (!s) return;
  qx_chop_left_whitespaces(s);
  qx_chop_right_whitespaces(s);
}

void qx_chop_newline_char(char* s) {
  if (s) s[std::strcspn(s, "\n")] = '\0';
}

void qx_chop_double_quote(char* s) {
  if (!s) return;
  char* to = s;
  for (; *s; ++s) {
    if (*s != '"') *to++ = *s;
  }
  *to = '\0';
}

void qx_replace_nonprint_with_blank(char* s) {
  for (; *s; ++s) {
    if (!qx::is_printable(*s)) *s = ' ';
  }
}

void qx_replace_comma_with_blank(char* s) {
  for (; *s; ++s) {
    if (*s == ',') *s = ' ';
  }
}

std::int32_t qx_does_it_has_word_char(const char* s) { return first_word(s).size > 0 ? 1 : 0; }

void qx_string_tolower_case(char* s) {
  for (; *s; ++s) *s = qx::to_lower(*s);
}

void qx_string_toupper_case(char* s) {
  for (; *s; ++s) *s = qx::to_upper(*s);
}

std::int32_t qx_is_string_start_with_this_token(const char* s, const char* token) {
  return qx::starts_with(s, token) ? 1 : 0;
}

std::int32_t qx_does_string_start_with_this_word(const char* s, const char* word,
                                                 const char** after) {
  s = qx_first_word_char_position(s);
  if (!qx::starts_with(s, word)) return 0;
  const char* end = s + std::strlen(word);
  if (*end != '\0' && *end != '=' && qx::is_word_char(*end)) return 0;
  if (after) *after = end;
  return 1;
}

const char* qx_first_white_or_nonprint_position(const char* s) {
  while (*s && qx::is_word_char(*s)) ++s;
  return s;
}

const char* qx_first_white_or_nonprint_or_eq_position(const char* s) {
  while (*s && *s != '=' && qx::is_word_char(*s)) ++s;
  return s;
}

const char* qx_first_word_char_position(const char* s) {
  while (*s && !qx::is_word_char(*s)) ++s;
  return s;
}

void qx_chop_first_word(char* s) { qx::erase(s, s, first_word(s).end()); }

void qx_get_and_chop_first_word(char* s, char* dst) {
  const Word word = first_word(s);
  qx::copy_word(word, dst);
  qx::erase(s, s, word.end());
}

void qx_get_and_chop_rightside_word(char* s, char* dst) {
  const Word word = first_word(s, '=');
  qx::copy_word(word, dst);
  qx::erase(s, s, word.end());
}

std::int32_t qx_strcmp_nocase(const char* a, const char* b) {
  return std::strlen(a) == std::strlen(b) && qx::starts_with(a, b) ? 0 : 1;
}

std::int32_t qx_strncmp_nocase(const char* a, const char* b, std::int32_t n) {
  for (; n > 0; --n, ++a, ++b) {
    if (qx::to_lower(*a) != qx::to_lower(*b)) return 1;
    if (*a == '\0') return 0;
  }
  return 0;
}
