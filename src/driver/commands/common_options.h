// Options that several commands have, in the same words.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace qx {

CLI::Option& add_model(CLI::App& command, const char* name, std::string& path, const char* help);
CLI::Option& add_reflections(CLI::App& command, const char* name, std::string& path,
                             const char* help);
// A list of columns, which ends with its word.
CLI::Option& add_labels(CLI::App& command, const char* name, std::vector<std::string>& labels,
                        const char* type, const char* help);
CLI::Option& add_free_value(CLI::App& command, std::optional<int>& value);

void add_limits(CLI::App& command, double& dmin, double& dmax, const char* help_of_dmin = nullptr);
void add_limits(CLI::App& command, std::optional<double>& dmin, std::optional<double>& dmax);
void add_space_group(CLI::App& command, std::string& space_group, const std::string& whose);
void add_cell(CLI::App& command, std::vector<double>& cell, const std::string& whose);

// One word of a list separated by blanks, the default told.
CLI::Option& add_word(CLI::App& command, const char* name, std::string& word, const char* words,
                      const char* help);

// Takes effect at once, before the command runs.
void add_threads(CLI::App& command);
void add_force(CLI::App& command, bool& force);
void add_telling(CLI::App& command, bool& json, bool& quiet, bool& verbose);

}  // namespace qx
