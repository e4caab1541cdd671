// Prose as --help prints it, taken apart for a manual page. A line at the margin that ends in a
// colon and has a blank one before it is a heading; what belongs to it is indented by two. A
// paragraph is a paragraph; a word with its explanation behind two blanks, or on deeper lines
// below, is a term; deeper lines that follow a blank line stay as they are.
#pragma once

#include <string>
#include <vector>

namespace qx {

struct TextBlock {
  enum class Kind { paragraph, term, verbatim } kind = Kind::paragraph;
  std::string term, text;
};

struct TextPart {
  std::string heading;  // empty for what stands before the first
  std::vector<TextBlock> blocks;
};

std::vector<TextPart> parse_text(const std::string& text);

}  // namespace qx
