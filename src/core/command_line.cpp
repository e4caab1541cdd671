#include "core/command_line.h"

#include "core/name_code.h"
#include "core/say.h"

#include <quorix/parser.h>

#include <cstring>

namespace qx {

void tidy_line(char* line) noexcept {
  qx_replace_nonprint_with_blank(line);
  line[std::strcspn(line, "#!")] = '\0';
  qx_chop_left_right_whitespaces(line);
}

bool chop_continuation(char* line) noexcept {
  const std::size_t size = std::strlen(line);
  if (size == 0 || (line[size - 1] != '-' && line[size - 1] != '&')) return false;
  line[size - 1] = '\0';
  qx_chop_left_right_whitespaces(line);
  return true;
}

Word find_setting(const char* line, const char* key) noexcept {
  Word word = find_key(line, key);
  if (word.size == 0) return word;
  const auto* equals = static_cast<const char*>(std::memchr(word.start, '=', word.size));
  if (!equals) {
    const Word next = first_word(word.end());
    if (next.size == 1 && *next.start == '=') equals = next.start;
  }
  if (equals) word.size = static_cast<std::size_t>(equals + 1 - word.start);
  return word;
}

void warn_without_value(const char* routine, const char* key) {
  qx::say("%s\nWarning: key %s defined with no value\n", routine, key);
}

KeyState take_value_after(char* line, Word key, char* value) noexcept {
  value[0] = '\0';
  if (key.size == 0) return KeyState::missing;
  const Word next = first_word(key.end());
  if (next.size == 0) {
    erase(line, key.start, next.end());
    return KeyState::without_value;
  }
  Word taken = next;
  if (*next.start == '"') {
    const char* text = next.start + 1;
    taken = {text, std::strcspn(text, "\"")};
  }
  copy_word(taken, value);
  erase(line, key.start, taken.end());
  return KeyState::taken;
}

KeyState take_name_after(char* line, Word key, char* name) noexcept {
  const char* start = key.size > 0 ? first_word(key.end()).start : "";
  if (!opens_name_code(start)) return take_value_after(line, key, name);
  erase(line, key.start, decode_name(start, name));
  return KeyState::taken;
}

KeyState take_end_after(char* line, Word key, char* value) noexcept {
  value[0] = '\0';
  if (key.size == 0) return KeyState::missing;
  const char* rest = qx_first_word_char_position(key.end());
  copy_word({rest, std::strlen(rest)}, value);
  line[key.start - line] = '\0';
  return *value ? KeyState::taken : KeyState::without_value;
}

}  // namespace qx

using qx::KeyState;

void qx_chop_first_get_second_word(char* s, char* dst) {
  (void)qx::take_value_after(s, qx::first_word(s), dst);
}

void qx_chop_first_get_endof_words(char* s, char* dst) {
  (void)qx::take_end_after(s, qx::first_word(s), dst);
}

std::int32_t qx_chop_key(char* s, const char* key) {
  const qx::Word word = qx::find_key(s, key);
  if (word.size == 0) return 0;
  qx::erase(s, word.start, word.end());
  return 1;
}

void qx_get_key_value(char* s, const char* key, char* dst) {
  if (qx::take_value_after(s, qx::find_key(s, key), dst) == KeyState::without_value) {
    qx::warn_without_value("qx_get_key_value():", key);
  }
}

void qx_get_key_endof_value(char* s, const char* key, char* dst) {
  if (qx::take_end_after(s, qx::find_key(s, key), dst) == KeyState::without_value) {
    qx::warn_without_value("qx_get_key_endof_value():", key);
  }
}
