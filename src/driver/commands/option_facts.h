// What help, manual pages and shell completion tell of an option, taken from its declaration, so
// that the three never disagree.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace qx {

// Declares that the values of an option name files with one of these suffixes ("mtz mtz.gz", empty:
// any) or folders; or proposes words. They check nothing: completion uses them.
CLI::Validator names_files(const std::string& suffixes = {});
CLI::Validator names_folders();
CLI::Validator proposes(const std::string& words);

struct OptionFacts {
  std::vector<std::string> names;  // "-o", "--output"; the name alone for a place on the line
  std::string value;               // what follows as the user is told: "FILE"; empty for a flag
  int values = 0;                  // how many words at most
  std::string text;                // what it does, with range, default and "required"
  enum class Kind { text, files, folders, words } kind = Kind::text;
  std::vector<std::string> candidates;  // suffixes or words
};

OptionFacts facts_of(const CLI::Option& option);

// The options of a command, those of option groups included; places on the line apart.
std::vector<const CLI::Option*> options_of(const CLI::App& command);
std::vector<const CLI::Option*> places_of(const CLI::App& command);

// The help of every command.
class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_option(const CLI::Option* option, bool is_positional) const override;
  std::string make_footer(const CLI::App* app) const override;
};

}  // namespace qx
