// Completeness by resolution, of a map's Fourier coefficients or of a data column.
#include "driver/commands/command_error.h"
#include "driver/commands/info/map_symmetry.h"
#include "driver/commands/map_labels.h"
#include "driver/commands/report/report.h"
#include "driver/commands/resolution_shells.h"
#include "driver/commands/unique_reflections.h"

#include <quorix/fft.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <gemmi/symmetry.hpp>  // for find_spacegroup_by_number
#include <map>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

constexpr int shell_count = 15;
constexpr double most_points = 3e7;  // three arrays of doubles are held
// Beneath this share of the rms amplitude a coefficient is what rounding to single precision left.
constexpr double least_amplitude = 1e-6;

using Amplitude =
    std::function<double(int, int, int)>;  // of a reflection; negative if it is not there

Json no_shells(const std::string& reason) { return {{"text", reason}, {"shells", Json::array()}}; }

const gemmi::SpaceGroup* group_of(const std::vector<std::string>& records, std::int32_t number) {
  if (records.empty()) return gemmi::find_spacegroup_by_number(number);
  std::vector<gemmi::Op> operators;
  operators.reserve(records.size());
  for (const std::string& record : records) operators.push_back(read_operator(record));
  return gemmi::find_spacegroup_by_ops(gemmi::split_centering_vectors(operators));
}

struct Shells {
  ShellLimits limits;
  std::vector<double> found, possible, squares;

  Shells(double low, double high)
      : limits{low, high, shell_count},
        found(shell_count),
        possible(shell_count),
        squares(shell_count) {}

  void add(double d, double amplitude) {
    const std::size_t shell = limits.of(d);
    possible[shell] += 1;
    if (amplitude < 0.0) return;
    found[shell] += 1;
    squares[shell] += amplitude * amplitude;
  }
  [[nodiscard]] Json json() const {
    Json list = Json::array();
    for (int n = 0; n < shell_count; ++n) {
      const auto i = static_cast<std::size_t>(n);
      list.push_back({{"low", limits.bound(n)},
                      {"high", limits.bound(n + 1)},
                      {"found", found[i]},
                      {"possible", possible[i]},
                      {"amplitude", found[i] > 0 ? std::sqrt(squares[i] / found[i]) : 0.0}});
    }
    return list;
  }
};

Json shells_of(const gemmi::UnitCell& cell, const gemmi::SpaceGroup* group, double low, double high,
               const Amplitude& amplitude) {
  Shells shells(low, high);
  constexpr double slack = 1e-6;
  for_all_unique(cell, group, high * (1 - slack), low * (1 + slack), [&](const gemmi::Miller& hkl) {
    shells.add(cell.calculate_d(hkl), amplitude(hkl[0], hkl[1], hkl[2]));
  });
  return shells.json();
}

// The spectrum of a map of the whole cell.
class Spectrum {
 public:
  explicit Spectrum(const std::int32_t (&n)[3]) { std::copy_n(n, 3, n_); }
  Spectrum(const Spectrum&) = delete;
  Spectrum& operator=(const Spectrum&) = delete;
  ~Spectrum() = default;

  // False after a report; what was opened goes with the engine.
  [[nodiscard]] bool transform(const qx_ccp4_map& map) {
    re_ = xopen_3d_double(n_[2], n_[1], n_[0], "rpt_re");
    if (!re_) return false;
    im_ = xopen_3d_double(n_[2], n_[1], n_[0], "rpt_im");
    if (!im_) return false;
    double*** in = xopen_3d_double(n_[2], n_[1], n_[0], "rpt_in");
    if (!in) return false;
    for (std::int32_t z = 0; z < n_[2]; ++z) {
      for (std::int32_t y = 0; y < n_[1]; ++y) std::copy_n(map.density[z][y], n_[0], in[z][y]);
    }
    return qx_forward_rfft_3D(n_[2], n_[1], n_[0], in, re_, im_) == ok && xfree_3d_double(in) == ok;
  }
  [[nodiscard]] bool release() const {
    return xfree_3d_double(re_) == ok && xfree_3d_double(im_) == ok;
  }
  [[nodiscard]] double amplitude(int h, int k, int l) const {
    const int z = ((l % n_[2]) + n_[2]) % n_[2];
    const int y = ((k % n_[1]) + n_[1]) % n_[1];
    const int x = ((h % n_[0]) + n_[0]) % n_[0];
    return std::hypot(re_[z][y][x], im_[z][y][x]);
  }

 private:
  std::int32_t n_[3] = {};
  double*** re_ = nullptr;
  double*** im_ = nullptr;
};

struct Range {
  double low = 0.0, high = INFINITY, rms = 0.0;
};

// Where the coefficients of any size lie, within the sphere that the grid can hold.
Range range_of(const Spectrum& spectrum, const gemmi::UnitCell& cell,
               const gemmi::SpaceGroup* group, double nyquist) {
  double squares = 0.0;
  double count = 0.0;
  const auto each = [&](auto work) {
    for_all_unique(cell, group, nyquist, 0.0, [&](const gemmi::Miller& hkl) {
      work(cell.calculate_d(hkl), spectrum.amplitude(hkl[0], hkl[1], hkl[2]));
    });
  };
  each([&](double /*d*/, double f) {
    squares += f * f;
    count += 1.0;
  });
  Range range;
  range.rms = count > 0.0 ? std::sqrt(squares / count) : 0.0;
  each([&](double d, double f) {
    if (f <= least_amplitude * range.rms) return;
    range.low = std::max(range.low, d);
    range.high = std::min(range.high, d);
  });
  return range;
}

Json shells_of_map(const qx_ccp4_map& map, const Spectrum& spectrum, const gemmi::UnitCell& cell,
                   const gemmi::SpaceGroup* group) {
  double nyquist = 0.0;
  const double stars[3] = {cell.ar, cell.br, cell.cr};
  for (int a = 0; a < 3; ++a) nyquist = std::max(nyquist, 2.0 / (map.intervals[a] * stars[a]));
  // Strictly inside: at half the grid's count an index and its opposite are one.
  if (!are_countable(map.cell, nyquist)) return no_shells("The map has no valid unit cell.");
  const Range range = range_of(spectrum, cell, group, nyquist * 1.0001);
  if (!(range.high < range.low)) return no_shells("The density has no Fourier coefficients.");
  const double volume = cell.volume;
  const double points = static_cast<double>(map.intervals[0]) * map.intervals[1] * map.intervals[2];
  const Json shells = shells_of(cell, group, range.low, range.high, [&](int h, int k, int l) {
    const double f = spectrum.amplitude(h, k, l);
    return f > least_amplitude * range.rms ? f * volume / points : -1.0;
  });
  return {{"text", format("Of the map's own Fourier coefficients, between %.2f and %.3f A; the "
                          "amplitudes are in the map's units times A^3.",
                          range.low, range.high)},
          {"shells", shells}};
}

}  // namespace

Json completeness_of_map(const qx_ccp4_map& map, const std::vector<std::string>& records) {
  for (int a = 0; a < 3; ++a) {
    if (map.counts[a] < map.intervals[a]) {
      return no_shells("The map is a part of the cell: name the data with --data.");
    }
  }
  if (static_cast<double>(map.intervals[0]) * map.intervals[1] * map.intervals[2] > most_points) {
    return no_shells("The map is too large to be transformed here: name the data with --data.");
  }
  const gemmi::SpaceGroup* group = nullptr;
  try {
    group = group_of(records, map.space_group);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    // told below
  }
  if (!group) return no_shells("The map's space group is not known.");
  const double* c = map.cell;
  const gemmi::UnitCell cell(c[0], c[1], c[2], c[3], c[4], c[5]);
  Spectrum spectrum(map.intervals);
  if (!spectrum.transform(map)) return nullptr;
  Json json = shells_of_map(map, spectrum, cell, group);
  return spectrum.release() ? json : Json(nullptr);
}

namespace {

const FileColumn& data_column(const ReflectionFile& file, std::string label, bool difference) {
  if (label.empty()) label = usual_labels(file, difference).amplitude;
  if (label.empty()) label = usual_labels(file, !difference).amplitude;
  const auto found = file.find(label);
  if (found.size() == 1) return *found.front();
  std::string columns;
  for (const FileColumn& column : file.columns) columns += " " + file.name_of(column);
  throw CommandError(2, file.path +
                            (label.empty() ? " has none of the usual amplitudes"
                                           : " does not have one column " + label) +
                            "; name a column with --column:" + columns);
}

// Magnitudes of a column by the indices of the asymmetric unit.
std::map<gemmi::Miller, double> present_values(const ReflectionFile& file,
                                               const FileColumn& column) {
  const gemmi::ReciprocalAsu asu(file.group);
  const gemmi::GroupOps ops = file.group->operations();
  std::map<gemmi::Miller, double> present;
  for (std::size_t row = 0; row < file.rows; ++row) {
    int hkl[3] = {};
    const auto value = static_cast<double>(column.values[row]);
    if (!std::isfinite(value) || !file.index(row, hkl)) continue;
    present[asu.to_asu({hkl[0], hkl[1], hkl[2]}, ops).first] = std::fabs(value);
  }
  return present;
}

}  // namespace

Json completeness_of_data(const ReflectionFile& file, const std::string& label, bool difference) {
  if (!file.group) return no_shells("The space group of " + file.path + " is not known.");
  const FileColumn& column = data_column(file, label, difference);
  const std::map<gemmi::Miller, double> present = present_values(file, column);
  const double* c = file.cell;
  const gemmi::UnitCell cell(c[0], c[1], c[2], c[3], c[4], c[5]);
  double low = 0.0;
  double high = INFINITY;
  for (const auto& [hkl, value] : present) {
    const double d = cell.calculate_d(hkl);
    if (!std::isfinite(d)) continue;
    low = std::max(low, d);
    high = std::min(high, d);
  }
  if (!(high < low)) return no_shells("Column " + column.label + " holds nothing.");
  if (!are_countable(c, high)) return no_shells(file.path + " has no valid unit cell.");
  // Both sides name a reflection by its index in the asymmetric unit.
  const Json shells = shells_of(cell, file.group, low, high, [&](int h, int k, int l) {
    const auto it = present.find({h, k, l});
    return it == present.end() ? -1.0 : it->second;
  });
  return {{"text", format("Column %s of %s, between %.2f and %.3f A.", column.label.c_str(),
                          std::filesystem::path(file.path).filename().c_str(), low, high)},
          {"shells", shells}};
}

}  // namespace qx
