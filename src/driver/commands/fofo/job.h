// quorix fofo: differences between two sets of observations of one crystal form.
#pragma once

#include "driver/commands/fcalc/job.h"

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qx {

struct FofoOptions {
  FcalcOptions base;  // its data are the second file on the line, which is subtracted
  std::string on, phases;
  std::vector<std::string> on_labels;
  std::string scale = "aniso", weight = "q";
  std::string hydrogens = "yes";
  double alpha = 0.05, reject = 0.0;
  bool print_sections = false;
};

void add_fofo_options(CLI::App& command, FofoOptions& options);
// Throws CommandError for values that no section is to see; fills what the base asks for.
void check_options(FofoOptions& options);

// A set of amplitudes as the sections read it.
struct AmplitudeSet {
  std::string path;  // what the sections read
  std::shared_ptr<TemporaryFile> kept;
  ObservedColumns columns;
};

// Crystal and reflections without a model: the file's own, and the column of phases.
SectionText phased_section(const FofoOptions& options, const ReflectionFile& file,
                           const AmplitudeSet& off);
// The second set, its scale and weights, and the map, if one is wanted.
SectionText difference_section(const FofoOptions& options, const AmplitudeSet& on,
                               const std::string& map);
// The last section: the engine is gone after it.
SectionText differences_written(const FofoOptions& options, const ObservedColumns& off,
                                const std::string& path);

}  // namespace qx
