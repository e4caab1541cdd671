// Completion in zsh: a call of _arguments for each subcommand.
#include "driver/commands/option_facts.h"
#include "driver/pages/pages.h"

#include <ostream>

namespace qx {

namespace {

// Text inside a specification that stands between single quotes.
std::string quoted(const std::string& text) {
  std::string safe;
  for (const char c : text) {
    if (c == '\'') {
      safe += "'\\''";
    } else {
      if (c == ':' || c == '[' || c == ']' || c == '\\') safe += '\\';
      safe += c;
    }
  }
  return safe;
}

std::string action_of(const OptionFacts& facts) {
  const std::string all =
      CLI::detail::join(facts.candidates, facts.kind == OptionFacts::Kind::files ? "|" : " ");
  switch (facts.kind) {
    case OptionFacts::Kind::files:
      return all.empty() ? "_files" : "_files -g \"*.(#i)(" + all + ")(-.)\"";
    case OptionFacts::Kind::folders:
      return "_files -/";
    case OptionFacts::Kind::words:
      return "(" + all + ")";
    case OptionFacts::Kind::text:
      break;
  }
  return " ";
}

// What follows an option: as many words as it takes at least, and an open end.
std::string values_of(const CLI::Option& option, const OptionFacts& facts) {
  if (facts.values == 0) return {};
  const std::string action = action_of(facts);
  std::string spec = ":" + quoted(facts.value) + ":" + action;
  for (int i = 1; i < option.get_items_expected_min(); ++i)
    spec += ":" + quoted(facts.value) + ": ";
  if (facts.values > option.get_items_expected_min()) {
    spec += ":*-*:" + quoted(facts.value) + ":" +
            (facts.kind == OptionFacts::Kind::words ? "_files" : action);
  }
  return spec;
}

void write_arguments(std::ostream& out, const CLI::App& command, const std::string& indent) {
  for (const CLI::Option* option : options_of(command)) {
    const OptionFacts facts = facts_of(*option);
    const std::string rest = '[' + quoted(facts.text) + ']' + values_of(*option, facts) + '\'';
    std::string others;
    for (const std::string& name : facts.names) others += (others.empty() ? "" : " ") + name;
    for (const std::string& name : facts.names) {
      const bool joins = facts.values == 1 && name.size() > 2;  // --name=value as well
      out << indent << "'(" << others << ')' << name << (joins ? "=" : "") << rest << " \\\n";
    }
  }
}

void write_places(std::ostream& out, const CLI::App& command, const std::string& indent) {
  int place = 0;
  for (const CLI::Option* option : places_of(command)) {
    const OptionFacts facts = facts_of(*option);
    const bool repeats = option->get_expected_max() > 1;
    out << indent << '\'' << (repeats ? "*" : std::to_string(++place)) << ':'
        << quoted(facts.names[0]) << ':' << action_of(facts) << "' \\\n";
  }
}

}  // namespace

void write_zsh_completion(std::ostream& out, const CLI::App& root) {
  out << "#compdef quorix\n# zsh completion for quorix, written by the build from what --help "
         "tells.\n\n"
         "_quorix() {\n  local curcontext=$curcontext state line ret=1\n  typeset -A opt_args\n"
         "  _arguments -C \\\n";
  write_arguments(out, root, "    ");
  out << "    '1:subcommand:->subcommand' '*::argument:->arguments' && ret=0\n"
         "  case $state in\n    subcommand)\n      local -a subcommands=(\n";
  for (const CLI::App* command : root.get_subcommands({})) {
    out << "        '" << command->get_name() << ':' << quoted(command->get_description()) << "'\n";
  }
  out << "      )\n      _describe subcommand subcommands && ret=0\n      ;;\n"
         "    arguments)\n      curcontext=${curcontext%:*}-$words[1]:\n      case $words[1] in\n";
  for (const CLI::App* command : root.get_subcommands({})) {
    out << "        " << command->get_name() << ")\n          _arguments \\\n";
    write_arguments(out, *command, "            ");
    write_places(out, *command, "            ");
    out << "            && ret=0\n          ;;\n";
  }
  out << "      esac\n      ;;\n  esac\n  return ret\n}\n\n"
         "if [ \"$funcstack[1]\" = _quorix ]; then _quorix \"$@\"; else compdef _quorix quorix; "
         "fi\n";
}

}  // namespace qx
