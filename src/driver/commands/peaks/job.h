// quorix peaks: the options, and the density that is looked at.
#pragma once

#include "driver/commands/density_blobs.h"
#include "driver/commands/density_peaks.h"
#include "driver/commands/map/job.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qx {

struct PeaksOptions {
  MapOptions map;  // input, labels, limits, grid
  std::string model, output, sign = "auto";
  bool full = false;                        // the 2mFo-DFc pair
  std::optional<double> level, blob_level;  // rms, or e/A^3
  bool absolute = false;                    // the levels are in e/A^3
  double mask_radius = 2.0;                 // Angstrom
  double min_volume = 10.0;                 // A^3
  std::optional<double> min_score;          // electrons
  int most = 50;                            // of each list
  bool no_peaks = false, no_blobs = false;
};

void add_peaks_options(CLI::App& command, PeaksOptions& options);
// Both throw CommandError.
void check_options(const PeaksOptions& options);
void check_level(const char* name, const std::optional<double>& level);

// A density with its crystal, the whole cell where it is known.
struct DensityMap {
  std::unique_ptr<double, void (*)(void*)> block{nullptr, nullptr};
  std::int32_t counts[3] = {}, starts[3] = {}, intervals[3] = {};
  double cell[6] = {};  // Angstrom, degrees
  std::string group;    // as it is told
  const gemmi::SpaceGroup* known_group = nullptr;
  DensityCrystal crystal;
  std::string kind;  // "mFo-DFc (DELFWT/PHDELWT)"
  bool difference = false;
  bool absolute = false;  // e/A^3; else the file's unit
  double rms = 0.0;       // about zero, of the whole cell where it is known
  std::vector<std::string> warnings;

  [[nodiscard]] qx_density_box box() const;
  [[nodiscard]] bool is_whole_cell() const;
  [[nodiscard]] const char* unit() const { return absolute ? "e/A^3" : "map unit"; }
};

// Throws CommandError for what holds no map.
DensityMap map_of_reflections(const PeaksOptions& options);
DensityMap map_of_file(const PeaksOptions& options);

// What was found, of both signs, and what the levels were.
struct PeaksReport {
  std::vector<DensityPeakSite> peaks;
  std::vector<DensityBlobSite> blobs;
  double level = 0.0, blob_level = 0.0;  // in the map's unit
  double min_score = 0.0;
  bool positive = true, negative = false;
  std::size_t peaks_found = 0, blobs_found = 0;  // before the longest list is cut short
};

void tell(const PeaksOptions& options, const DensityMap& map, const PeaksReport& report);
void tell_json(const PeaksOptions& options, const DensityMap& map, const PeaksReport& report);
// Dummy atoms, B factors the heights in rms.
std::string dummy_atoms(const DensityMap& map, const PeaksReport& report);

}  // namespace qx
