#include "driver/commands/option_facts.h"

#include <cstddef>
#include <sstream>

namespace qx {

namespace {

constexpr std::size_t help_width = 100;
constexpr std::size_t text_column = 28;

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, separator);) {
    if (!piece.empty()) pieces.push_back(piece);
  }
  return pieces;
}

bool starts(const std::string& text, const char* with) { return text.rfind(with, 0) == 0; }

CLI::Validator remark(const std::string& text) {
  return {[](std::string&) { return std::string(); }, text};
}

// "FLOAT in [0.05 - 0.45]" as prose; empty for a validator that the option's text needs no word of.
std::string range_text(const std::string& remark) {
  const std::size_t open = remark.find(" in [");
  const std::size_t dash = remark.find(" - ", open);
  if (open == std::string::npos || dash == std::string::npos || remark.back() != ']') return {};
  return remark.substr(open + 5, dash - open - 5) + " to " +
         remark.substr(dash + 3, remark.size() - dash - 4);
}

void note_remark(OptionFacts& facts, const std::string& remark, std::string& range) {
  if (starts(remark, "files") || remark == "FILE") {
    facts.kind = OptionFacts::Kind::files;
    if (remark.size() > 6) facts.candidates = split(remark.substr(6), ' ');
  } else if (remark == "folders" || remark == "DIR") {
    facts.kind = OptionFacts::Kind::folders;
  } else if (starts(remark, "PATH")) {
    facts.kind = OptionFacts::Kind::files;
  } else if (starts(remark, "words ")) {
    facts.kind = OptionFacts::Kind::words;
    facts.candidates = split(remark.substr(6), ' ');
  } else if (starts(remark, "{")) {
    facts.kind = OptionFacts::Kind::words;
    facts.candidates = split(remark.substr(1, remark.size() - 2), ',');
    facts.value = remark.substr(1, remark.size() - 2);
    for (char& c : facts.value) c = c == ',' ? '|' : c;
  } else if (range.empty()) {
    range = range_text(remark);
  }
}

// A name of its own for the values, or X and N for numbers.
std::string value_name(const std::string& type, int count) {
  if (type.find(' ') != std::string::npos) return type;
  const std::string one = type == "FLOAT" ? "X" : type == "INT" || type == "UINT" ? "N" : type;
  std::string all = one;
  for (int i = 1; i < count; ++i) all += ' ' + one;
  return all;
}

std::string told(const CLI::Option& option, const std::string& range) {
  std::string text = option.get_description();
  const std::string standard = option.get_default_str();
  const bool has_default = !standard.empty() && text.find("(default:") == std::string::npos;
  if (!range.empty()) text += ", " + range;
  if (has_default) text += " (default: " + standard + ")";
  if (option.get_required() && option.nonpositional()) text += " (required)";
  return text;
}

void collect(const CLI::App& command, bool places, std::vector<const CLI::Option*>& found) {
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_group().empty() && option->get_positional() == places) found.push_back(option);
  }
  for (const CLI::App* group : command.get_subcommands({})) {
    if (group->get_name().empty()) collect(*group, places, found);
  }
}

// Words of the text on lines that fit, indented but for the first.
std::string wrapped(const std::string& text, std::size_t indent) {
  std::string lines;
  std::size_t column = indent;
  for (const std::string& word : split(text, ' ')) {
    if (column > indent && column + 1 + word.size() > help_width) {
      lines += '\n' + std::string(indent, ' ');
      column = indent;
    } else if (column > indent) {
      lines += ' ';
      ++column;
    }
    lines += word;
    column += word.size();
  }
  return lines;
}

}  // namespace

CLI::Validator names_files(const std::string& suffixes) { return remark("files " + suffixes); }
CLI::Validator names_folders() { return remark("folders"); }
CLI::Validator proposes(const std::string& words) { return remark("words " + words); }

OptionFacts facts_of(const CLI::Option& option) {
  OptionFacts facts;
  if (option.get_positional()) {
    facts.names.push_back(option.get_name(true));
  } else {
    for (const std::string& name : option.get_snames()) facts.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) facts.names.push_back("--" + name);
  }
  std::vector<std::string> remarks = split(option.get_type_name(), ':');
  if (option.get_items_expected_max() == 0) remarks.clear();  // a flag
  std::string range;
  if (!remarks.empty()) {
    facts.values = option.get_allow_extra_args() ? option.get_items_expected_max()
                                                 : option.get_items_expected_min();
    facts.value = value_name(remarks.front(), option.get_items_expected_min());
    for (std::size_t i = 1; i < remarks.size(); ++i) note_remark(facts, remarks[i], range);
  }
  facts.text = told(option, range);
  return facts;
}

std::vector<const CLI::Option*> options_of(const CLI::App& command) {
  std::vector<const CLI::Option*> found;
  collect(command, false, found);
  return found;
}

std::vector<const CLI::Option*> places_of(const CLI::App& command) {
  std::vector<const CLI::Option*> found;
  collect(command, true, found);
  return found;
}

std::string HelpFormatter::make_option(const CLI::Option* option, bool is_positional) const {
  const OptionFacts facts = facts_of(*option);
  std::string line = "  " + CLI::detail::join(facts.names, ", ");
  if (!is_positional && !facts.value.empty()) line += ' ' + facts.value;
  if (line.size() + 2 > text_column) {
    line += '\n' + std::string(text_column, ' ');
  } else {
    line.append(text_column - line.size(), ' ');
  }
  return line + wrapped(facts.text, text_column) + '\n';
}

std::string HelpFormatter::make_footer(const CLI::App* app) const {
  const std::string text =
      app->get_footer();  // begins with a line break, as does what CLI11 puts before it
  return text.empty() || text[0] != '\n' ? text : text.substr(1);
}

}  // namespace qx
