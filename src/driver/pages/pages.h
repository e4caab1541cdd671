// What describes the command line outside the program, written from its declarations.
#pragma once

#include <CLI/CLI.hpp>
#include <iosfwd>
#include <string>

namespace qx {

// The page of the whole program, or of one subcommand. `companion` is the text about a program of
// its own that has the same page name; empty if there is none.
void write_man_page(std::ostream& out, const CLI::App& root, const CLI::App* command,
                    const std::string& companion);
// quorix, or quorix-<subcommand>.
std::string page_name(const CLI::App& root, const CLI::App* command);

// A table of what follows each option and stands at each place, and the routine that reads it.
void write_bash_completion(std::ostream& out, const CLI::App& root, const std::string& routine);
// A call of _arguments for each subcommand.
void write_zsh_completion(std::ostream& out, const CLI::App& root);

}  // namespace qx
