#include "driver/commands/option_facts.h"
#include "driver/pages/page_text.h"
#include "driver/pages/pages.h"

#include <quorix/version.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <ostream>
#include <sstream>

namespace qx {

namespace {

// Text that the formatter must not take for requests, hyphens or quotes.
std::string roff(const std::string& text) {
  std::string safe;
  for (const char c : text) {
    if (c == '\\') {
      safe += "\\e";
    } else if (c == '-') {
      safe += "\\-";
    } else {
      if ((c == '.' || c == '\'') && (safe.empty() || safe.back() == '\n')) safe += "\\&";
      safe += c;
    }
  }
  return safe;
}

// The same on lines of a length that pages are kept in.
std::string filled(const std::string& text) {
  std::string lines, line;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (!line.empty() && line.size() + 1 + roff(word).size() > 78) {
      lines += line + '\n';
      line.clear();
    }
    line += line.empty() ? roff(word)
                         : ' ' + roff(word).substr(word[0] == '.' || word[0] == '\'' ? 2 : 0);
  }
  return lines + line + '\n';
}

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// The day of the build, or what a reproducible build says instead.
std::string date() {
  const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
  const std::time_t now =
      epoch ? static_cast<std::time_t>(std::strtoll(epoch, nullptr, 10)) : std::time(nullptr);
  char text[16];
  std::strftime(text, sizeof text, "%Y-%m-%d", std::gmtime(&now));
  return text;
}

void write_blocks(std::ostream& out, const std::vector<TextBlock>& blocks) {
  for (const TextBlock& block : blocks) {
    const bool first = &block == &blocks.front();
    switch (block.kind) {
      case TextBlock::Kind::paragraph:
        out << (first ? "" : ".PP\n") << filled(block.text);
        break;
      case TextBlock::Kind::term:
        out << ".TP\n\\fB" << roff(block.term) << "\\fR\n" << filled(block.text);
        break;
      case TextBlock::Kind::verbatim:
        out << (first ? "" : ".PP\n") << ".nf\n" << roff(block.text) << ".fi\n";
        break;
    }
  }
}

void write_part(std::ostream& out, const TextPart& part) {
  if (part.blocks.empty()) return;
  out << ".SH \"" << roff(upper(part.heading)) << "\"\n";
  write_blocks(out, part.blocks);
}

const TextPart* find_part(const std::vector<TextPart>& parts, const std::string& heading) {
  const auto found = std::find_if(parts.begin(), parts.end(),
                                  [&](const TextPart& part) { return part.heading == heading; });
  return found == parts.end() ? nullptr : &*found;
}

void write_options(std::ostream& out, const std::string& heading,
                   const std::vector<const CLI::Option*>& options) {
  if (options.empty()) return;
  out << ".SH " << heading << '\n';
  for (const CLI::Option* option : options) {
    const OptionFacts facts = facts_of(*option);
    out << ".TP\n";
    for (const std::string& name : facts.names) {
      out << (&name == &facts.names.front() ? "" : ", ") << "\\fB" << roff(name) << "\\fR";
    }
    if (option->nonpositional() && !facts.value.empty()) {
      out << " \\fI" << roff(facts.value) << "\\fR";
    }
    out << '\n' << filled(facts.text);
  }
}

void write_synopsis(std::ostream& out, const CLI::App& root, const CLI::App* command) {
  out << "\\fB" << roff(root.get_name());
  if (!command) {
    out << "\\fR \\fISUBCOMMAND\\fR [\\fIOPTIONS\\fR] [\\fIFILES\\fR]\n.br\n\\fB"
        << roff(root.get_name() + " --help") << "\\fR | \\fB" << roff("--version") << "\\fR\n";
    return;
  }
  out << ' ' << roff(command->get_name()) << "\\fR [\\fIOPTIONS\\fR]";
  for (const CLI::Option* place : places_of(*command)) {
    const bool many = place->get_expected_max() > 1;
    const std::string name = "\\fI" + roff(place->get_name(true)) + "\\fR" + (many ? "..." : "");
    out << ' ' << (place->get_required() ? name : "[" + name + "]");
  }
  out << '\n';
}

void write_subcommands(std::ostream& out, const CLI::App& root) {
  out << ".SH SUBCOMMANDS\n";
  for (const CLI::App* command : root.get_subcommands({})) {
    const std::string page = page_name(root, command);
    out << ".TP\n\\fB" << roff(command->get_name()) << "\\fR\n"
        << roff(command->get_description()) << "; see\n.BR " << roff(page) << " (1).\n";
  }
}

void write_see_also(std::ostream& out, const CLI::App& root, const std::string& own) {
  std::vector<std::string> pages = {page_name(root, nullptr)};
  for (const CLI::App* command : root.get_subcommands({}))
    pages.push_back(page_name(root, command));
  std::sort(pages.begin(), pages.end());
  std::erase(pages, own);
  out << ".SH \"SEE ALSO\"\n";
  for (const std::string& page : pages) {
    out << ".BR " << roff(page) << (page == pages.back() ? " (1)\n" : " (1),\n");
  }
}

// A subcommand's headings, and those of the whole program that it has not itself.
std::vector<TextPart> parts_of(const CLI::App& root, const CLI::App* command) {
  std::vector<TextPart> parts = parse_text((command ? command : &root)->get_footer());
  if (!command) return parts;
  const std::vector<TextPart> common = parse_text(root.get_footer());
  for (const TextPart& part : common) {
    if (!part.heading.empty() && !find_part(parts, part.heading)) parts.push_back(part);
  }
  return parts;
}

std::string lower_first(std::string text) {
  // "MTZ" stays what it is.
  if (text.size() > 1 && std::islower(static_cast<unsigned char>(text[1]))) {
    text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  }
  return text;
}

}  // namespace

std::string page_name(const CLI::App& root, const CLI::App* command) {
  return command ? root.get_name() + "-" + command->get_name() : root.get_name();
}

void write_man_page(std::ostream& out, const CLI::App& root, const CLI::App* command,
                    const std::string& companion) {
  const CLI::App& subject = command ? *command : root;
  const std::string name = page_name(root, command);
  const std::vector<TextPart> parts = parts_of(root, command);
  const std::vector<TextPart> other = parse_text(companion);
  const TextPart* other_name = find_part(other, "Name");
  const TextPart* other_synopsis = find_part(other, "Synopsis");
  out << ".TH \"" << upper(name) << "\" 1 \"" << date() << "\" \"quorix " QUORIX_VERSION
      << "\" \"User commands\"\n.SH NAME\n"
      << roff(name) << " \\- "
      << roff(other_name ? other_name->blocks.at(0).text : lower_first(subject.get_description()))
      << "\n.SH SYNOPSIS\n";
  if (other_synopsis) write_blocks(out, other_synopsis->blocks);
  if (other_synopsis) out << ".PP\n";
  write_synopsis(out, root, command);
  for (const TextPart& part : other) {
    if (&part != other_name && &part != other_synopsis) write_part(out, part);
  }
  out << ".SH \""
      << (other.size() > 1 ? "THE SUBCOMMAND " + upper(subject.get_name()) : "DESCRIPTION")
      << "\"\n"
      << filled(subject.get_description() + '.');
  if (!parts.front().blocks.empty()) out << ".PP\n";
  write_blocks(out, parts.front().blocks);
  write_options(out, "ARGUMENTS", places_of(subject));
  write_options(out, "OPTIONS", options_of(subject));
  if (!command) write_subcommands(out, root);
  for (const TextPart& part : parts) {
    if (!part.heading.empty()) write_part(out, part);
  }
  write_see_also(out, root, name);
}

}  // namespace qx
