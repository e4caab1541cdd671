// Words, keys and typed values out of the current command line, and the whole-word key readers on a
// given string.
#include "core/command.h"
#include "core/command_line.h"
#include "core/name_code.h"
#include "core/parser_record.h"
#include "core/report.h"
#include "core/say.h"

#include <quorix/engine.h>

#include <cstdio>
#include <cstring>

using qx::absent;
using qx::fail;
using qx::failed;
using qx::found;
using qx::Key;
using qx::key_died;
using qx::ok;
using qx::Status;

namespace {

// At most the first four characters, upper-cased.
void shorten(const char* word, char* dst) {
  std::size_t i = 0;
  for (; i < 4 && word[i]; ++i) dst[i] = qx::to_upper(word[i]);
  dst[i] = '\0';
}

// Words go one after the other from long lists: what is left of the line stays where it is.
void take_first_word(qxparser& parser) {
  const qx::Word word = qx::first_word(parser.rest);
  qx::copy_word(word, parser.work);
  parser.rest += word.end() - parser.rest;
}

Key word_of(const char* heading, const char*& text) {
  qxparser* parser = qx::ready_parser(heading);
  if (!parser) return key_died;
  text = "";
  if (!parser->command) return absent;
  take_first_word(*parser);
  text = parser->work;
  return *text ? found : absent;
}

// A reader's value text: absent when there is no such key, or no value after it.
Key value_of(const char* heading, const char* key, const char*& text) {
  qxparser* parser = qx::ready_parser(heading);
  if (!parser) return key_died;
  text = "";
  if (!parser->command) return absent;
  const qx::Word word = qx::find_setting(parser->rest, key);
  if (qx::take_value_after(parser->rest, word, parser->work) == qx::KeyState::without_value) {
    qx::warn_without_value("qx_get_key_value():", key);
  }
  text = parser->work;
  return *text ? found : absent;
}

bool convert(const char* text, std::int32_t* value) { return qx::read_int(text, *value); }
bool convert(const char* text, double* value) { return std::sscanf(text, "%lf", value) == 1; }
bool convert(const char* text, float* value) { return std::sscanf(text, "%f", value) == 1; }

template <class T>
Key number_of(const char* heading, const char* key, T* value, const char* before,
              const char* between, const char* after) {
  const char* text = nullptr;
  const Key state = value_of(heading, key, text);
  if (state != found) return state;
  if (convert(*text == '=' ? text + 1 : text, value)) return found;
  // Kept: the heading names the command-word reader.
  (void)fail("qx_get_quorix_cmd_word():", "%s%s%s%s%s", before, text, between, key, after);
  return key_died;
}

}  // namespace

namespace qx {

Status next_command(char (&word)[5]) {
  word[0] = '\0';
  qxparser* parser = ready_parser("qx_get_quorix_cmd_word():");
  if (!parser) return failed;
  if (!parser->command) return ok;
  if (qx_does_it_has_word_char(parser->rest)) {
    qx::say("Warning: extraneous input discarded: \"%s\" from line %d\n", parser->rest,
            parser->command_start_line);
  }
  QX_TRY(assemble_command(parser));
  note_command_line(*parser);
  take_first_word(*parser);
  if (const char* equals = std::strchr(parser->work, '=')) {
    qx::say("WARNING: \"%s\" of line %d is not read: leave a blank before the \"=\" \n", equals,
            parser->command_start_line);
  }
  shorten(parser->work, word);
  return ok;
}

Status next_short_word(char (&word)[5]) {
  word[0] = '\0';
  const char* text = nullptr;
  if (word_of("qx_get_next_quorix_cmd_word():", text) == key_died) return failed;
  shorten(text, word);
  return ok;
}

Key take_word(const char*& text) { return word_of("qx_get_next_quorix_word():", text); }

Key take_rest(const char*& text) {
  qxparser* parser = ready_parser("qx_get_rest_of_quorix_cmdline():");
  if (!parser) return key_died;
  text = "";
  if (!parser->command) return absent;
  std::strcpy(parser->work, qx_first_word_char_position(parser->rest));
  parser->rest[0] = '\0';
  text = parser->work;
  return *text ? found : absent;
}

// The rest of the line, without leading blanks and an "=" before it.
Key take_argument(const char*& text) {
  const Key state = take_rest(text);
  if (state != found || *text != '=') return state;
  text = qx_first_word_char_position(text + 1);
  return *text ? found : absent;
}

Key take_argument_word(const char*& text) {
  Key state = take_word(text);
  if (state == found && std::strcmp(text, "=") == 0) return take_word(text);
  if (state == found && *text == '=') ++text;
  return state;
}

Status next_choice(char (&word)[5]) {
  word[0] = '\0';
  const char* text = nullptr;
  if (take_argument_word(text) == key_died) return failed;
  shorten(text, word);
  return ok;
}

Key take_value(const char* key, const char*& text) {
  const Key state = value_of("qx_get_quorix_key_string_value():", key, text);
  if (state == found && *text == '=') {
    qx::say("WARNING: the value \"%s\" of %s begins with \"=\": is a blank missing behind it? \n",
            text, key);
  }
  return state;
}

Key take_name(const char* key, const char*& text) {
  const qxparser* parser = ready_parser("qx_get_quorix_key_string_value():");
  if (!parser) return key_died;
  const Word word = parser->command ? find_setting(parser->rest, key) : Word();
  if (word.size == 0 || !opens_name_code(first_word(word.end()).start)) {
    return take_value(key, text);
  }
  (void)take_name_after(parser->rest, word, parser->work);
  text = parser->work;
  return *text ? found : absent;
}

Key take_end(const char* key, const char*& text) {
  qxparser* parser = ready_parser("qx_get_quorix_key_endof_string():");
  if (!parser) return key_died;
  text = "";
  if (!parser->command) return absent;
  const Word word = find_setting(parser->rest, key);
  if (take_end_after(parser->rest, word, parser->work) == KeyState::without_value) {
    warn_without_value("qx_get_key_endof_value():", key);
  }
  text = parser->work;
  return *text ? found : absent;
}

Key take_int(const char* key, std::int32_t& value) {
  return number_of("qx_get_quorix_key_int_value():", key, &value,
                   "Failed to convert int value from string ", " of key ", "\n");
}

Key take_double(const char* key, double& value) {
  return number_of("qx_get_quorix_key_double_value():", key, &value,
                   "Failed to convert double value from string \"", "\" of key \"", "\"\n");
}

bool take_key(const char* key) {
  const qxparser* parser = ready_parser("qx_does_quorix_key_exist():");
  return parser && parser->command && qx_chop_key(parser->rest, key) == 1;
}

void warn_no_choice(const char* command, const char* word) {
  qx::say("WARNING: %s takes yes or no, not \"%s\": nothing is changed \n", command, word);
}

bool begins_with(const char* word, const char* keyword) noexcept {
  return starts_with(word, keyword);
}

}  // namespace qx

Status qx_get_quorix_cmd_word(char* dst) {
  char word[5];
  dst[0] = '\0';
  QX_TRY(qx::next_command(word));
  std::strcpy(dst, word);
  return ok;
}

Status qx_get_next_quorix_cmd_word(char* dst) {
  char word[5];
  dst[0] = '\0';
  QX_TRY(qx::next_short_word(word));
  std::strcpy(dst, word);
  return ok;
}

std::int32_t qx_get_next_quorix_word(char* dst) {
  const char* text = nullptr;
  dst[0] = '\0';
  if (qx::take_word(text) != found) return 0;
  std::strcpy(dst, text);
  qx_string_toupper_case(dst);
  return 1;
}

std::int32_t qx_does_quorix_key_exist(const char* key) { return qx::take_key(key) ? 1 : 0; }

Key qx_get_quorix_key_int_value(const char* key, std::int32_t* value) {
  return qx::take_int(key, *value);
}

Key qx_get_quorix_key_double_value(const char* key, double* value) {
  return qx::take_double(key, *value);
}

Key qx_get_quorix_key_float_value(const char* key, float* value) {
  return number_of("qx_get_quorix_key_float_value():", key, value,
                   "Failed to convert float value from string \"", "\" of key \"", "\"\n");
}

Key qx_get_quorix_key_char_value(const char* key, char* value) {
  const char* text = nullptr;
  const Key state = value_of("qx_get_quorix_key_char_value():", key, text);
  if (state != found) return state;
  *value = std::strlen(text) == 1 ? *text : '\0';
  if (*value) return found;
  (void)fail("qx_get_quorix_key_char_value():", "string \"%s\" has more than one char for key %s\n",
             text, key);
  return key_died;
}

Key qx_get_quorix_key_string_value(const char* key, char* dst) {
  const char* text = nullptr;
  dst[0] = '\0';
  const Key state = qx::take_value(key, text);
  if (state == found) std::strcpy(dst, text);
  return state;
}

Status qx_get_quorix_key_endof_string(const char* key, char* dst) {
  const char* text = nullptr;
  dst[0] = '\0';
  const Key state = qx::take_end(key, text);
  if (state == found) std::strcpy(dst, text);
  return state == key_died ? failed : ok;
}

namespace {

// 1 a pair, 0 no more words or after a report.
template <class T>
std::int32_t pair_of(const char* heading, const char* failure, char* dst, T* value) {
  const char* text = nullptr;
  dst[0] = '\0';
  if (word_of(heading, text) != found) return 0;
  std::strcpy(dst, text);
  const Key second = word_of(heading, text);
  if (second == key_died) return 0;
  if (second == found && convert(text, value)) return 1;
  (void)fail(heading, "%s", failure);
  return 0;
}

}  // namespace

std::int32_t qx_get_quorix_pair_string_int(char* dst, std::int32_t* value) {
  return pair_of("qx_get_quorix_pair_string_int():", "Failed to get pair (string, int) ", dst,
                 value);
}

std::int32_t qx_get_quorix_pair_string_double(char* dst, double* value) {
  float single = 0.0F;  // Kept: the value carries single precision only
  const std::int32_t state = pair_of(
      "qx_get_quorix_pair_string_double():", "Failed to get pair (string, double) ", dst, &single);
  if (state == 1) *value = static_cast<double>(single);
  return state;
}

void qx_get_rest_of_quorix_cmdline(char* dst) {
  const char* text = nullptr;
  dst[0] = '\0';
  if (qx::take_rest(text) == found) std::strcpy(dst, text);
}

Status qx_get_quorix_cmd_line_index(std::int32_t* index) {
  const qxparser* parser = qx::ready_parser("qx_get_quorix_cmd_line_index():");
  if (!parser) return failed;
  *index = parser->startlineindex + parser->command_start_line - 1;
  return ok;
}

namespace {

// The text after a whole-word key, blanks and "=" signs skipped; null without the key.
const char* value_after(const char* s, const char* key) {
  const char* after = nullptr;
  for (s = qx_first_word_char_position(s); *s;
       s = qx_first_word_char_position(qx_first_white_or_nonprint_position(s))) {
    if (qx_does_string_start_with_this_word(s, key, &after)) {
      while (*after && (*after == '=' || !qx::is_word_char(*after))) ++after;
      return after;
    }
  }
  return nullptr;
}

template <class T>
std::int32_t scan_after(const char* s, const char* key, T* value) {
  *value = T{};
  const char* text = value_after(s, key);
  return text && convert(text, value) ? 1 : 0;
}

}  // namespace

std::int32_t qx_get_key_string_value(const char* s, const char* key, char* dst) {
  dst[0] = '\0';
  const char* text = value_after(s, key);
  if (!text || !*text) return 0;
  qx::copy_word(qx::first_word(text), dst);
  return 1;
}

std::int32_t qx_get_key_double_value(const char* s, const char* key, double* value) {
  return scan_after(s, key, value);
}

std::int32_t qx_get_key_two_float_value(const char* s, const char* key, float* first,
                                        float* second) {
  *first = *second = 0.0F;
  const char* text = value_after(s, key);
  return text && std::sscanf(text, "%f %f", first, second) == 2 ? 1 : 0;
}

std::int32_t qx_get_key_float_value(const char* s, const char* key, float* value) {
  return scan_after(s, key, value);
}

std::int32_t qx_get_key_int_value(const char* s, const char* key, std::int32_t* value) {
  return scan_after(s, key, value);
}

std::int32_t qx_get_key_char_value(const char* s, const char* key, char* value) {
  *value = '\0';
  const char* text = value_after(s, key);
  if (text) *value = *text;
  return *value ? 1 : 0;
}
