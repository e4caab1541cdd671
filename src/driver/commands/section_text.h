// Composing sections line by line.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace qx {

// Throws CommandError for a text that no section's line can carry, and names what stands in the
// way.
void check_text(const std::string& what, const std::string& text);

// A name as a section's line carries it, whatever bytes it holds: between quotes, or a word.
std::string quoted_name(const std::string& name);
std::string name_as_word(const std::string& name);
std::string coded_name(const std::string& name);  // leaves nothing in the line when it is read

// The lines of one section.
class SectionText {
 public:
  explicit SectionText(std::string word) { lines_.push_back(std::move(word)); }
  SectionText& line(std::string text) {
    lines_.push_back(std::move(text));
    return *this;
  }
  // With "xend" at the end.
  [[nodiscard]] std::vector<std::string> lines() const;

 private:
  std::vector<std::string> lines_;
};

// Sections as quorix run takes them.
std::string printed(const SectionText& section);

}  // namespace qx
