#include "driver/commands/common_options.h"

#include "driver/commands/option_facts.h"

#include <quorix/engine.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <sstream>

namespace qx {

CLI::Option& add_model(CLI::App& command, const char* name, std::string& path, const char* help) {
  return *command.add_option(name, path, help)
              ->check(names_files("pdb ent cif mmcif pdb.gz ent.gz cif.gz mmcif.gz"));
}

CLI::Option& add_reflections(CLI::App& command, const char* name, std::string& path,
                             const char* help) {
  return *command.add_option(name, path, help)
              ->check(names_files("mtz mtz.gz cif cif.gz ent ent.gz"));
}

CLI::Option& add_labels(CLI::App& command, const char* name, std::vector<std::string>& labels,
                        const char* type, const char* help) {
  return *command.add_option(name, labels, help)
              ->type_name(type)
              ->delimiter(',')
              ->allow_extra_args(false);  // what follows is a file
}

CLI::Option& add_free_value(CLI::App& command, std::optional<int>& value) {
  return *command
              .add_option(
                  "--free-value", value,
                  "Flag of the free reflections (default: told by how often each value occurs)")
              ->type_name("N");
}

namespace {

template <class Limit>
void add_both_limits(CLI::App& command, Limit& dmin, Limit& dmax, const char* help_of_dmin) {
  command.add_option("--dmin", dmin, help_of_dmin)->type_name("A")->check(CLI::PositiveNumber);
  command.add_option("--dmax", dmax, "Low-resolution limit in A")
      ->type_name("A")
      ->check(CLI::PositiveNumber);
}

constexpr const char* plain_dmin = "High-resolution limit in A";

}  // namespace

void add_limits(CLI::App& command, double& dmin, double& dmax, const char* help_of_dmin) {
  add_both_limits(command, dmin, dmax, help_of_dmin ? help_of_dmin : plain_dmin);
}

void add_limits(CLI::App& command, std::optional<double>& dmin, std::optional<double>& dmax) {
  add_both_limits(command, dmin, dmax, plain_dmin);
}

void add_space_group(CLI::App& command, std::string& space_group, const std::string& whose) {
  command
      .add_option("--spacegroup", space_group,
                  "Space group, a name or a number (default: " + whose + ")")
      ->type_name("NAME");
}

void add_cell(CLI::App& command, std::vector<double>& cell, const std::string& whose) {
  command.add_option("--cell", cell, "Unit cell in A and degrees (default: " + whose + ")")
      ->type_name("A B C ALPHA BETA GAMMA")
      ->expected(6);
}

CLI::Option& add_word(CLI::App& command, const char* name, std::string& word, const char* words,
                      const char* help) {
  std::istringstream in(words);
  std::vector<std::string> list;
  for (std::string next; in >> next;) list.push_back(next);
  return *command.add_option(name, word, help)
              ->check(CLI::IsMember(list))
              ->check(proposes(words))
              ->capture_default_str();
}

void add_threads(CLI::App& command) {
  command
      .add_option_function<std::int32_t>(
          "--threads", qx_set_threads,
          command.get_name() == "batch"
              ? "Threads of each data set (default: 1)"
              : "Threads for heavy work, which do not change the result (default: what "
                "QUORIX_THREADS or OMP_NUM_THREADS says, else the processors available)")
      ->type_name("N")
      ->check(CLI::Range(1, 1024));
}

void add_force(CLI::App& command, bool& force) {
  command.add_flag("--force", force,
                   "Write over a file that holds something else; never over an input");
}

void add_telling(CLI::App& command, bool& json, bool& quiet, bool& verbose) {
  command.add_flag("--json", json, "Tell what was found as JSON, warnings included");
  command.add_flag("-q,--quiet", quiet, "Warnings and errors only");
  command.add_flag("-v,--verbose", verbose, "Show everything the engine prints");
}

}  // namespace qx
