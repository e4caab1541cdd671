// quorix fcalc: the options, and the sections that they come to.
#pragma once

#include "driver/commands/command_error.h"
#include "driver/commands/coordinates.h"
#include "driver/commands/engine_run.h"
#include "driver/commands/free_flags.h"
#include "driver/commands/progress_line.h"
#include "driver/commands/section_text.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qx {

struct FcalcOptions {
  std::string command = "fcalc";  // as its warnings name it
  std::string model, hkl, output, space_group, map_2fofc, map_fofc;
  std::string solvent;  // as xoverall takes it; empty: its own choice
  std::vector<std::string> labels, free;
  std::vector<double> cell;
  double dmin = 0.0, dmax = 0.0;  // Angstrom; 0: no limit
  double b0 = -1.0;               // chosen by resolution
  double ecut = 1e-5;
  double fraction = 0.33;
  double memory = 400.0;
  int gaussians = 5;
  std::optional<int> free_value;  // told by the flags
  int hydrogens = 0;  // above 0 with, below 0 without them, 0: as the radiation sees them
  bool neutron = false, scale = false, force = false;
  bool fill = false;  // reflections that the data lack are added
  bool json = false, quiet = false, verbose = false;
};

void add_fcalc_options(CLI::App& command, FcalcOptions& options);
void add_solvent_option(CLI::App& command, FcalcOptions& options);
// Throws CommandError for values that no section is to see.
void check_options(const FcalcOptions& options);

// Labels of the observations in the reflection file; empty where it has none.
struct ObservedColumns {
  std::string amplitude, sigma, free;
  std::string intensity = {}, intensity_sigma = {};    // looked for where there is no amplitude
  std::optional<FreeSet> free_set = {};                // none: the column marks none
  std::string plus = {}, minus = {}, difference = {};  // of Friedel mates
  bool empty = false;                                  // no amplitude is above 0
};

// The usual columns that the file has: amplitudes before intensities, or intensities alone.
ObservedColumns usual_observations(const ReflectionFile& file);
ObservedColumns usual_intensities(const ReflectionFile& file);
// Those of F,SIGF,FREE (where `intensities` are let in, also I,SIGI,FREE); throws CommandError for
// a label that the file lacks or that is no such thing.
ObservedColumns given_observations(const ReflectionFile& file,
                                   const std::vector<std::string>& labels, bool intensities);
// "read refl ..." of a file and these columns of it.
std::string read_line(const std::string& path, const ObservedColumns& observed);

struct FcalcJob {
  const FcalcOptions& options;
  Coordinates coordinates;
  Crystal crystal = {};
  ObservedColumns observed = {};
  std::string input = {};                           // what the sections read as --hkl
  std::shared_ptr<const ReflectionFile> data = {};  // that, as the engine holds it
  std::vector<std::string> warnings = {};

  [[nodiscard]] bool anomalous() const {
    return !observed.plus.empty() || !observed.difference.empty();
  }
  // Whether the model is scaled with its solvent.
  [[nodiscard]] bool with_solvent() const {
    return !observed.amplitude.empty() && !observed.empty && options.solvent != "none";
  }
};

// One line on standard error; JSON holds the warnings itself.
void warn(FcalcJob& job, const std::string& text);

// The observations' labels: as given, else the usual ones that the file has; with a warning where
// they do not look like the model's.
void find_observed(Engine& engine, FcalcJob& job);

SectionText crystal_section(const FcalcJob& job);
double high_resolution();  // Angstrom, of the engine's data; 0 without
SectionText fft_section(const FcalcOptions& options);
SectionText formfactor_section(const FcalcOptions& options);
// Angstrom; atoms are cut off there at the latest. Blurring makes them as wide as the resolution.
double widest_radius();
SectionText map_section(const std::string& path, int u);
// The last section: the engine is gone after it.
SectionText end_section(const FcalcJob& job, const std::string& path);

}  // namespace qx
