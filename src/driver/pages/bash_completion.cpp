// Completion in bash: a table of what follows each option and stands at each place, and a fixed
// routine that reads it. It needs nothing but bash 4.
#include "driver/commands/option_facts.h"
#include "driver/pages/pages.h"

#include <ostream>

namespace qx {

namespace {

constexpr const char* many = "99";

std::string fact_of(const OptionFacts& facts) {
  std::string fact = facts.values > 50 ? many : std::to_string(facts.values);
  switch (facts.kind) {
    case OptionFacts::Kind::text:
      return fact + " text";
    case OptionFacts::Kind::folders:
      return fact + " folders";
    case OptionFacts::Kind::files:
      fact += " files";
      break;
    case OptionFacts::Kind::words:
      fact += " words";
      break;
  }
  for (const std::string& candidate : facts.candidates) fact += ' ' + candidate;
  return fact;
}

void write_row(std::ostream& out, const std::string& pattern, const std::string& fact) {
  out << "    " << pattern << ") fact='" << fact << "' ;;\n";
}

void write_command(std::ostream& out, const CLI::App& command, const std::string& name) {
  std::string all = "0";
  for (const CLI::Option* option : options_of(command)) {
    const OptionFacts facts = facts_of(*option);
    std::string pattern;
    for (const std::string& one : facts.names) {
      all += ' ' + one;
      if (!pattern.empty()) pattern += " | ";
      pattern.append("'").append(name).append(" ").append(one).append("'");
    }
    if (facts.values > 0) write_row(out, pattern, fact_of(facts));
  }
  write_row(out, "'" + name + " options'", all);
  int place = 0;
  for (const CLI::Option* option : places_of(command)) {
    const bool repeats = option->get_expected_max() > 1;
    const std::string number = repeats ? "'[0-9]*" : std::to_string(++place) + "'";
    write_row(out, std::string("'").append(name).append(" ").append(number),
              fact_of(facts_of(*option)));
    if (repeats) break;
  }
}

}  // namespace

void write_bash_completion(std::ostream& out, const CLI::App& root, const std::string& routine) {
  out << "# bash completion for quorix, written by the build from what --help tells.\n\n"
         "# What follows an option or stands at a place: how many words, then what they are.\n"
         "_quorix_fact() {\n  fact='0 text'\n  case $1 in\n";
  std::string commands = "1 words";
  for (const CLI::App* command : root.get_subcommands({})) commands += ' ' + command->get_name();
  write_row(out, "' 1'", commands);
  write_command(out, root, "");
  for (const CLI::App* command : root.get_subcommands({})) {
    write_command(out, *command, command->get_name());
  }
  out << "  esac\n}\n" << '\n' << routine;
}

}  // namespace qx
