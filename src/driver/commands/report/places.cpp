// Where people look in a map: residues with their density, and peaks.
#include "driver/commands/density_peaks.h"
#include "driver/commands/info/map_facts.h"
#include "driver/commands/report/report.h"

#include <quorix/density_box.h>

#include <algorithm>
#include <cmath>
#include <gemmi/unitcell.hpp>
#include <limits>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t most_peaks = 15;  // of either sign

qx_density_box box_of(const qx_ccp4_map& map) {
  qx_density_box box = {map.density[0][0], {}, {}, {}};
  std::copy_n(map.counts, 3, box.counts);
  std::copy_n(map.starts, 3, box.starts);
  std::copy_n(map.intervals, 3, box.intervals);
  return box;
}

double rounded(double value, double digits) { return std::nearbyint(value * digits) / digits; }

Json place_json(const double* xyz) {
  return {rounded(xyz[0], 100), rounded(xyz[1], 100), rounded(xyz[2], 100)};
}

Json number_or_null(double value) {
  return std::isfinite(value) ? Json(rounded(value, 1000)) : Json(nullptr);
}

void add_peaks(const std::vector<DensityPeakSite>& peaks, Json& rows) {
  for (std::size_t i = 0; i < std::min(peaks.size(), most_peaks); ++i) {
    const DensityPeakSite& peak = peaks[i];
    rows.push_back({{"height", rounded(peak.in_rms, 100)},
                    {"xyz", place_json(peak.xyz)},
                    {"near", peak.name},
                    {"distance", number_or_null(peak.distance)}});
  }
}

}  // namespace

Json peak_rows(const qx_ccp4_map& map, const MapFacts& facts, const Coordinates* model,
               double level) {
  Json rows = Json::array();
  DensityCrystal crystal;
  try {
    crystal = density_crystal(map.cell, {}, facts.operators());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return rows;  // as the symmetry check tells
  }
  for (const int sign : {1, -1}) {
    const double least = sign * level * facts.rms;
    add_peaks(find_density_peaks(box_of(map), crystal, least, facts.rms, model), rows);
  }
  return rows;
}

std::vector<double> densities_at(const qx_ccp4_map& map, double rms,
                                 const std::vector<Coordinates::Place>& places) {
  const double* c = map.cell;
  const gemmi::UnitCell cell(c[0], c[1], c[2], c[3], c[4], c[5]);
  const qx_density_box box = box_of(map);
  std::vector<double> means;
  for (const Coordinates::Place& place : places) {
    double sum = 0.0;
    int n = 0;
    for (const auto& atom : place.atoms) {
      const gemmi::Fractional at = cell.fractionalize(gemmi::Position(atom[0], atom[1], atom[2]));
      const double fractional[1][3] = {{at.x, at.y, at.z}};
      double value = 0.0;
      qx_interpolate_density(&box, 1, 1, fractional, &value);
      if (std::isnan(value)) continue;
      sum += value;
      ++n;
    }
    means.push_back(n > 0 ? sum / n / rms : std::numeric_limits<double>::quiet_NaN());
  }
  return means;
}

Json residue_rows(const std::vector<Coordinates::Place>& places, const PageSources& sources,
                  const std::vector<double>& densities) {
  Json rows = Json::array();
  for (std::size_t i = 0; i < places.size(); ++i) {
    const Coordinates::Place& place = places[i];
    const bool compared = i < sources.correlations.size();
    rows.push_back({place.chain, place.name, place.number, std::string(1, place.kind),
                    place_json(place.centre.data()),
                    compared ? number_or_null(sources.correlations[i]) : Json(nullptr),
                    i < densities.size() ? number_or_null(densities[i]) : Json(nullptr),
                    place.atoms.size()});
  }
  return rows;
}

}  // namespace qx
