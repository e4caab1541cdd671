#include "driver/commands/section_text.h"

#include "core/name_code.h"
#include "driver/commands/command_error.h"

#include <cstring>

namespace qx {

void check_text(const std::string& what, const std::string& text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      throw CommandError(2, what + format(" must not hold a control character (byte %u)", byte));
    }
    if (std::strchr("\"#!", c)) {
      throw CommandError(2, format("%s must not hold %c: %s", what.c_str(), c, text.c_str()));
    }
  }
  if (text.ends_with('-') || text.ends_with('&')) {
    throw CommandError(2, what + " must not end in " + text.back() + ": " + text);
  }
}

std::string coded_name(const std::string& name) {
  std::string code(coded_size(name.c_str()), '\0');
  code_name(name.c_str(), code.data());
  code.resize(std::strlen(code.c_str()));
  return code;
}

std::string quoted_name(const std::string& name) {
  return needs_code_in_quotes(name.c_str()) ? coded_name(name) : '"' + name + '"';
}

std::string name_as_word(const std::string& name) {
  return needs_code_as_word(name.c_str()) ? coded_name(name) : name;
}

std::vector<std::string> SectionText::lines() const {
  std::vector<std::string> all = lines_;
  all.emplace_back("xend");
  return all;
}

std::string printed(const SectionText& section) {
  const std::vector<std::string> lines = section.lines();
  std::string text;
  for (const std::string& line : lines) {
    const bool inside = &line != &lines.front() && &line != &lines.back();
    text += (inside ? "  " : "") + line + '\n';
  }
  return text;
}

}  // namespace qx
