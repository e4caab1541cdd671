// Formats of reflection files, by word, name and content.
#pragma once

#include <string>

namespace qx {

// A format as `read refl` calls it, and as people do.
struct TableFormat {
  const char* word;
  const char* name;
  const char* endings;  // between blanks
};
// Throws CommandError for a word or an ending that means none.
const TableFormat& format_of_word(const std::string& word);
const TableFormat& format_of_name(const std::string& path);
// Whether a file is named like a table of text, which MTZ and mmCIF are not.
bool is_named_like_table(const std::string& path);
// Told by the first lines of a plain or gzipped file.
const TableFormat& format_of_content(const std::string& path);

}  // namespace qx
