// The command parser (section text in, words, keys and values out) and the string utilities.
//
// Routines that copy into `dst` trust the caller for its size: qx_get_quorix_cmdline_size() bytes
// always suffice for anything taken from the current command line.
#pragma once

#include <quorix/api.h>

#include <stdio.h>

QX_C_BEGIN

QX_API qx_status qx_new_qxparser(void);
QX_API qx_status qx_delete_qxparser(void);
// Loads `nlines` lines held in slots of 1024 bytes; lengths[i] bytes of slot i count.
QX_API qx_status qx_set_parser_from_text(int32_t nlines, const char* text, const int32_t* lengths,
                                         int32_t startlineindex);
// Loads and echoes a whole stream (it is rewound, so it must be seekable). An empty stream prints a
// note and gives `failed` without a die.
QX_API qx_status qx_set_parser_from_stream(FILE* stream);
// Releases the lines and buffers; the parser object stays.
QX_API qx_status qx_clean_qxparser(void);
QX_API void qx_print_qxparser(void);

// Starts a new command and gives the first four characters of its first word, upper-cased (dst: 5
// bytes). Empty when the text is used up.
QX_API qx_status qx_get_quorix_cmd_word(char* dst);
// The next word of the current command, cut and upper-cased the same way (dst: 5 bytes).
QX_API qx_status qx_get_next_quorix_cmd_word(char* dst);
// The next whole word, upper-cased: 1 if there was one, 0 if none.
QX_API int32_t qx_get_next_quorix_word(char* dst);
// 1 and the word removed if some word begins with `key` (any case), else 0.
QX_API int32_t qx_does_quorix_key_exist(const char* key);
QX_API qx_key qx_get_quorix_key_int_value(const char* key, int32_t* value);
QX_API qx_key qx_get_quorix_key_double_value(const char* key, double* value);
QX_API qx_key qx_get_quorix_key_float_value(const char* key, float* value);
QX_API qx_key qx_get_quorix_key_char_value(const char* key, char* value);
QX_API qx_key qx_get_quorix_key_string_value(const char* key, char* dst);
QX_API qx_status qx_get_quorix_key_endof_string(const char* key, char* dst);
// 1 a pair was read, 0 no more words or after a report.
QX_API int32_t qx_get_quorix_pair_string_int(char* dst, int32_t* value);
QX_API int32_t qx_get_quorix_pair_string_double(char* dst, double* value);
QX_API void qx_get_rest_of_quorix_cmdline(char* dst);
QX_API qx_status qx_get_quorix_cmd_line_index(int32_t* index);
// 1 while the loaded text has a command behind the current one, else 0.
QX_API int32_t qx_is_quorix_text_left(void);
// Bytes that hold any word, value or rest of the current command line, terminator included.
QX_API size_t qx_get_quorix_cmdline_size(void);

// Whole-word key readers on a given string: 1 found and converted, else 0 with the output cleared.
QX_API int32_t qx_get_key_string_value(const char* s, const char* key, char* dst);
QX_API int32_t qx_get_key_double_value(const char* s, const char* key, double* value);
QX_API int32_t qx_get_key_two_float_value(const char* s, const char* key, float* first,
                                          float* second);
QX_API int32_t qx_get_key_float_value(const char* s, const char* key, float* value);
QX_API int32_t qx_get_key_int_value(const char* s, const char* key, int32_t* value);
QX_API int32_t qx_get_key_char_value(const char* s, const char* key, char* value);

// String utilities, in place on NUL-terminated text. A word is a run of printable non-blanks.
QX_API void qx_chop_left_whitespaces(char* s);
QX_API void qx_chop_right_whitespaces(char* s);
QX_API void qx_chop_left_right_whitespaces(char* s);
QX_API void qx_chop_newline_char(char* s);
QX_API void qx_chop_double_quote(char* s);
QX_API void qx_replace_nonprint_with_blank(char* s);
QX_API void qx_replace_comma_with_blank(char* s);
QX_API int32_t qx_does_it_has_word_char(const char* s);
QX_API void qx_string_tolower_case(char* s);
QX_API void qx_string_toupper_case(char* s);
QX_API int32_t qx_is_string_start_with_this_token(const char* s, const char* token);
// 1 if the first word of `s` is `word` (any case), followed by a blank, "=" or the end; `after`
// then points behind it.
QX_API int32_t qx_does_string_start_with_this_word(const char* s, const char* word,
                                                   const char** after);
QX_API const char* qx_first_white_or_nonprint_position(const char* s);
QX_API const char* qx_first_white_or_nonprint_or_eq_position(const char* s);
QX_API const char* qx_first_word_char_position(const char* s);
QX_API void qx_chop_first_word(char* s);
QX_API void qx_get_and_chop_first_word(char* s, char* dst);
QX_API void qx_get_and_chop_rightside_word(char* s, char* dst);
QX_API void qx_chop_first_get_second_word(char* s, char* dst);
QX_API void qx_chop_first_get_endof_words(char* s, char* dst);
QX_API int32_t qx_chop_key(char* s, const char* key);
QX_API void qx_get_key_value(char* s, const char* key, char* dst);
QX_API void qx_get_key_endof_value(char* s, const char* key, char* dst);
QX_API int32_t qx_strcmp_nocase(const char* a, const char* b);
QX_API int32_t qx_strncmp_nocase(const char* a, const char* b, int32_t n);

QX_C_END
