// quorix info: what is in a file.
#include "driver/commands/commands.h"
#include "driver/commands/engine_run.h"
#include "driver/commands/info/foreign_maps.h"
#include "driver/commands/info/map_facts.h"
#include "driver/commands/info/reflection_facts.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/readable_file.h"

#include <quorix/map.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

constexpr const char* closing = R"(
Of a reflection file: records, columns with type, range, missing values and completeness, and the
pairs that a map can be made of; resolution and completeness where the file tells its cell and
group. Of a map: its header in words, its statistics counted again, and whether symmetry-related
points agree.

Examples:
  quorix info 1ubq.mtz
      What the file holds.
  quorix info --json 1ubq_2mFo-DFc.ccp4
      The same of a map, for a script.
)";

struct Options {
  std::string path;
  bool json = false, verbose = false;
};

template <class Facts>
void show(const Facts& facts, bool json) {
  if (json) {
    // A text in a file may be in any encoding.
    std::cout << to_json(facts).dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
              << '\n';
  } else {
    tell(std::cout, facts);
  }
}

int run(const Options& options) {
  if (options.json) keep_standard_output_clean();
  const std::string start = first_bytes(options.path, 4096);
  if (qx_starts_ccp4_map(start.data(), start.size()) == 1) {
    show(read_map_facts(options.path, options.verbose), options.json);
  } else if (!foreign_map_name(start).empty()) {
    show(read_foreign_map_facts(options.path), options.json);
  } else {
    Engine engine(options.verbose);
    show(read_reflection_facts(engine, options.path), options.json);
  }
  return 0;
}

}  // namespace

void add_info(CLI::App& app, int& status) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("info", "What is in a reflection file or a map");
  command
      ->add_option(
          "FILE", options->path,
          "Reflections (MTZ, structure-factor mmCIF, CNS, HKL, scalepack, d*TREK) or a map (CCP4, "
          "CNS, list of points), also gzipped; told by its content")
      ->required()
      ->check(names_files(
          "mtz mtz.gz cif cif.gz ent ent.gz cns cv hkl sca ref ccp4 map mrc ccp4.gz map.gz mrc.gz "
          "cns.gz hkl.gz sca.gz ref.gz"));
  command->footer(closing);
  command->add_flag("--json", options->json, "As JSON");
  command->add_flag("-v,--verbose", options->verbose, "Show everything the engine prints");
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
