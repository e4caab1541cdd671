// The whole command line of quorix, for the program itself and for what describes it.
#pragma once

#include <CLI/CLI.hpp>

namespace qx {

// Adds every subcommand, or that one alone which `word` names, none for --version: all declarations
// take longer than many a small file. The chosen one sets the process status when its callback
// runs.
void build_app(CLI::App& app, int& status, const char* word = nullptr);

}  // namespace qx
