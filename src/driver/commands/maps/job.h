// quorix maps and quorix validate: a model against measured amplitudes.
#pragma once

#include "driver/commands/fcalc/job.h"

#include <quorix/map.h>
#include <quorix/reflections.h>

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qx {

struct MapsOptions {
  FcalcOptions base;
  std::string prefix;  // of CCP4 maps; empty: none
  std::string mode = "continuous";
  std::string free_reflections = "use";
  std::string hydrogens = "yes";
  int kick = 0;  // sets of coefficients that the CCP4 maps are the mean of
  std::string fill = "yes";
  int worst = 10;    // residues that are printed
  std::string omit;  // atoms that the maps lack
  bool all = false, scripts = false, print_sections = false;
};

// Model, data and crystal; how they are compared.
void add_data_options(CLI::App& command, MapsOptions& options);
void add_method_options(CLI::App& command, MapsOptions& options);
// Which reflections enter a map.
void add_map_options(CLI::App& command, MapsOptions& options);
void add_maps_options(CLI::App& command, MapsOptions& options);
void add_validate_options(CLI::App& command, MapsOptions& options);
// Throws CommandError for values that no section is to see; fills what the base asks for.
void check_options(MapsOptions& options);

// The likelihood, and what the data set takes of it; between the two atoms are left out.
std::vector<SectionText> likelihood_sections(const FcalcJob& job, const MapsOptions& options);
SectionText weighted_map_section(const MapsOptions& options, const std::string& path,
                                 bool difference);
// The last section: the engine is gone after it.
SectionText coefficients_section(const FcalcJob& job, const MapsOptions& options,
                                 const std::string& path);

struct WrittenMap {
  std::string path;
  bool difference;
  double rms;  // e/A^3, of the whole cell
};

struct ResidueDensity {
  std::string name;
  std::size_t number;  // of the model's residues
  qx_density_correlation found;
};

struct MapsReport {
  std::string lines;  // as the engine prints them
  std::vector<WrittenMap> maps;
  qx_completeness completeness = {};
  double radius = 0.0;  // Angstrom, about atoms
  std::vector<ResidueDensity> residues;
  double seconds = 0.0;
};

// Crystal and observations, which have to be there; throws CommandError.
void prepare_with_data(Engine& engine, FcalcJob& job);
// Amplitudes, structure factors, solvent, scale, R factors, likelihood; as sections the same.
std::vector<SectionText> model_sections(Engine& engine, FcalcJob& job, const MapsOptions& options);
void calculate(Engine& engine, FcalcJob& job, const MapsOptions& options, MapsReport& report);
// Of every residue, how its density agrees with the model's; after calculate().
void correlate_densities(Engine& engine, const FcalcJob& job, MapsReport& report);
// The report as text.
void tell(const FcalcJob& job, const MapsOptions& options, const MapsReport& report);
double rms_of_map();

// R factors, scale, solvent and likelihood, from the engine while it is there.
nlohmann::ordered_json numbers_of_engine();

}  // namespace qx
