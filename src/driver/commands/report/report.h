// quorix report: its options, and what its page shows, as JSON.
#pragma once

#include "driver/commands/coordinates.h"
#include "driver/commands/reflection_file.h"

#include <quorix/map.h>

#include <array>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace qx {

struct MapFacts;

struct ReportOptions {
  std::vector<std::string> files;  // as they stand on the line
  std::vector<std::string> maps;   // of them
  std::string reflections;         // of them; empty: maps are named
  std::string model, data, column, folder = ".";
  double most_points = 8.0;  // millions
  bool difference = false, no_difference = false, whole = false;
  bool force = false, quiet = false, verbose = false;
};

// A map of the page: the user's file, or one made of reflections that nobody else sees.
struct MapSource {
  std::string name, path;                 // what the page calls it, what is read
  std::optional<bool> difference = {};    // by what it was made of
  std::vector<std::string> history = {};  // of what and how, for the page
  std::shared_ptr<TemporaryFile> file = {};
};

struct PageSources {
  std::vector<MapSource> maps;
  std::string column;                // whose completeness is told, of the reflections
  std::vector<double> correlations;  // of the model's residues in their order, NaN: none; or empty
  double radius = 0.0;               // Angstrom, about atoms, of these
};

// Tells the files apart by what they hold. Throws CommandError.
void sort_files(ReportOptions& options);
// The maps of a reflection file: of its usual columns, else of amplitudes and the model; and how
// density and model agree where amplitudes were measured. Throws CommandError.
PageSources sources_of_reflections(const ReportOptions& options, const Coordinates* model);
// Throws CommandError for a model whose crystal is another one than that of `file`.
void check_crystal(const Coordinates& model, const std::string& model_path, const double* cell,
                   const std::string& file);

// Counts of the density between its extremes, or between 12 and 20 rms about zero where those lie
// further out.
nlohmann::ordered_json density_histogram(const qx_ccp4_map& map, double rms);

// The points that the page holds: the map, or a box of it.
struct ShownBox {
  std::int32_t first[3],
      counts[3];  // within the map's own points; of a whole cell, from any period
  bool whole = true;
  std::vector<char> held = {};  // of its points, x fastest; empty: all are
};

// The whole map if it has at most `most` points; else the box of that size about the grid point
// `centre`.
ShownBox shown_box(const qx_ccp4_map& map, const double (&centre)[3], double most);
// The points of a map of the whole cell that lie within `radius` Angstrom of the places; nothing if
// they are more than `most`.
std::optional<ShownBox> neighbourhood(const qx_ccp4_map& map,
                                      const std::vector<std::array<double, 3>>& places,
                                      double radius, double most);

// The box in steps of a tenth of the rms, a byte a point (255: not held), gzipped, in base 64.
nlohmann::ordered_json packed_density(const qx_ccp4_map& map, const ShownBox& box, double rms);

// What people look for in a map: a row for each peak beyond `level` rms, the highest first, then
// the deepest.
nlohmann::ordered_json peak_rows(const qx_ccp4_map& map, const MapFacts& facts,
                                 const Coordinates* model, double level);
// A row for each residue: chain, name, number, kind, centre, correlation, mean density in rms.
nlohmann::ordered_json residue_rows(const std::vector<Coordinates::Place>& places,
                                    const PageSources& sources,
                                    const std::vector<double>& densities);
// The mean density at the atoms of each place in rms; NaN where the map has none of them.
std::vector<double> densities_at(const qx_ccp4_map& map, double rms,
                                 const std::vector<Coordinates::Place>& places);

// Shells of equal volume in reciprocal space. From the map's own Fourier coefficients, which needs
// the whole cell; null after a report.
nlohmann::ordered_json completeness_of_map(const qx_ccp4_map& map,
                                           const std::vector<std::string>& records);
// From a column of a reflection file; an empty label takes the usual one of such a map.
nlohmann::ordered_json completeness_of_data(const ReflectionFile& file, const std::string& label,
                                            bool difference);

// All that the page shows but for the scripts.
nlohmann::ordered_json compose_page(const ReportOptions& options);
// Fills the page's parts and writes it; throws CommandError.
void write_page(const std::string& path, const nlohmann::ordered_json& page);

}  // namespace qx
