// quorix report: maps as one page to look at, and scripts for the programs that edit models.
#include "driver/commands/report/report.h"

#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/output_guard.h"
#include "driver/commands/progress_line.h"
#include "driver/commands/readable_file.h"
#include "driver/commands/viewer_scripts.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* closing = R"(
The page needs no network. It shows 2mFo-DFc in blue and mFo-DFc in green and red, each with a slider
in rms and e/A^3, and the model. It jumps to residues, ligands, waters and difference peaks, begins at
the first ligand, and tells how density and model agree by residue: where the reflections hold measured
amplitudes by the correlation that quorix validate tells, else by the mean density at the atoms.
Reflections without coefficients of these maps are weighted with the model, as quorix maps does.
Sections, a histogram, header, provenance and completeness by resolution stand below. For maps, scripts
are written beside the page that show them in Coot, PyMOL and ChimeraX.

Examples:
  quorix report 1ubq.mtz 1ubq.pdb
      1ubq.html to open in a browser: both maps.
  quorix report 1ubq_2mFo-DFc.ccp4 --model 1ubq.pdb -o report
      report/1ubq_2mFo-DFc.html, and the scripts.
)";

std::string stem_of_page(const ReportOptions& options) {
  return stem_of(options.reflections.empty() ? options.maps.front() : options.reflections);
}

std::string path_of_page(const ReportOptions& options) {
  return (std::filesystem::path(options.folder) / (stem_of_page(options) + ".html")).string();
}

void check_outputs_of(const ReportOptions& options) {
  std::vector<Output> outputs;
  if (!options.maps.empty()) outputs = script_outputs(stem_of_page(options), options.folder);
  outputs.push_back({path_of_page(options), FileKind::page});
  std::vector<std::string> inputs = options.maps;
  inputs.insert(inputs.end(), {options.reflections, options.model, options.data});
  check_outputs(inputs, outputs, options.force);
}

// Of maps that are files.
std::vector<ViewerScript> scripts_of(const ReportOptions& options, const Json& page) {
  if (options.maps.empty()) return {};
  std::vector<ViewedMap> viewed;
  for (const Json& part : page["maps"]) {
    for (const std::string& path : options.maps) {
      if (std::filesystem::path(path).filename().string() != part["name"]) continue;
      viewed.push_back({path, part["difference"].get<bool>(), part["rms_unit"].get<double>()});
      break;
    }
  }
  return viewer_scripts(stem_of_page(options), viewed, options.model, options.folder);
}

int run(ReportOptions& options) {
  const Progress progress("looking at the maps");
  sort_files(options);
  check_outputs_of(options);
  Json page = compose_page(options);
  std::error_code error;
  std::filesystem::create_directories(options.folder, error);
  const std::vector<ViewerScript> scripts = scripts_of(options, page);
  page["scripts"] = Json::array();
  for (const ViewerScript& script : scripts) {
    page["scripts"].push_back(
        {{"program", script.program}, {"command", script.command}, {"text", script.text}});
  }
  write_page(path_of_page(options), page);
  write_scripts(options.folder, scripts);
  if (options.quiet) return 0;
  std::cout << format("%-11s ", "page") << path_of_page(options) << '\n';
  for (const ViewerScript& script : scripts) {
    std::cout << format("%-11s ", script.program.c_str())
              << (std::filesystem::path(options.folder) / script.file).string() << '\n';
  }
  return 0;
}

void add_shown_options(CLI::App& command, ReportOptions& o) {
  auto* data = command
                   .add_option("--data", o.data,
                               "Reflections whose completeness is shown (default: those given, "
                               "else the map's own coefficients)")
                   ->type_name("FILE")
                   ->check(names_files("mtz mtz.gz cif cif.gz ent ent.gz"));
  command.add_option("--column", o.column, "Column of the data (default: FWT or its like)")
      ->type_name("LABEL")
      ->needs(data);
  auto* difference =
      command.add_flag("--difference", o.difference, "A difference map: contours of both signs");
  command.add_flag("--no-difference", o.no_difference, "Not a difference map, whatever its name")
      ->excludes(difference);
  command.add_flag("--whole", o.whole, "Hold all of the maps, not only the density near the model");
  command.add_option("--points", o.most_points, "Most points that the page holds, in millions")
      ->check(CLI::Range(0.001, 100.0))
      ->capture_default_str();
}

}  // namespace

void add_report(CLI::App& app, int& status) {
  auto options = std::make_shared<ReportOptions>();
  ReportOptions& o = *options;
  CLI::App* command =
      app.add_subcommand("report", "Maps as a page to look at, and scripts for other programs");
  command
      ->add_option("FILES", o.files,
                   "Reflections (MTZ or mmCIF) or one or two CCP4 maps, and a model; also gzipped, "
                   "told apart by what they hold")
      ->required()
      ->check(names_files("mtz cif mmcif ent pdb ccp4 map mrc mtz.gz cif.gz mmcif.gz ent.gz pdb.gz "
                          "ccp4.gz map.gz mrc.gz"));
  command->add_option("--model", o.model, "The model: PDB or mmCIF, also gzipped")
      ->type_name("FILE")
      ->check(names_files("pdb ent cif mmcif pdb.gz ent.gz cif.gz mmcif.gz"));
  command->add_option("-o,--output", o.folder, "Folder for the page and the scripts")
      ->type_name("FOLDER")
      ->check(names_folders())
      ->capture_default_str();
  add_shown_options(*command, o);
  command->add_flag("--force", o.force,
                    "Write over a file that holds something else; never over an input");
  command->add_flag("-q,--quiet", o.quiet, "Warnings and errors only");
  command->add_flag("-v,--verbose", o.verbose, "Show everything the engine prints");
  command->footer(closing);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
