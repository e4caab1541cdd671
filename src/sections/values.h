// Values of keys that sections share.
#pragma once

#include "sections/section.h"

#include <cstdint>
#include <utility>

namespace qx {

// A word of a table and what it stands for; a word matches when it begins with the table's.
template <class T>
using Choice = std::pair<const char*, T>;

// The value of `key`, if the line has it, as one of the choices; `given` tells whether it had it.
// Another word is reported: " Unknow KEY value: WORD ".
template <class T, std::size_t N>
Status choose(const char* heading, const char* key, const Choice<T> (&choices)[N], T& value,
              bool* given = nullptr) {
  const char* word = "";
  const Key state = take_value(key, word);
  if (given) *given = state == found;
  if (state != found) return state == key_died ? failed : ok;
  for (const auto& [name, choice] : choices) {
    if (!begins_with(word, name)) continue;
    value = choice;
    return ok;
  }
  return fail(heading, " Unknow %s value: %s ", key, word);
}

inline constexpr Choice<bool> yes_or_no[] = {{"yes", true}, {"no", false}};

// The number after `key`, if the line has it.
inline Status take_number(const char* key, double& value) {
  return take_double(key, value) == key_died ? failed : ok;
}
inline Status take_count(const char* key, std::int32_t& value) {
  return take_int(key, value) == key_died ? failed : ok;
}

// The file named after the key "file"; reports `missing` when there is none. The text is valid
// until the next word is taken.
inline Status take_file(const char* heading, const char* missing, const char*& path) {
  const Key state = take_value("file", path);
  if (state == key_died) return failed;
  return state == found && path[0] != '\0' ? ok : fail(heading, "%s", missing);
}

}  // namespace qx
