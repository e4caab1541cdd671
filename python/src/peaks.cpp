// Peaks of a map: one of each orbit, where the model is.
#include "density.h"
#include "driver/commands/command_error.h"
#include "driver/commands/coordinates.h"
#include "driver/commands/group_name.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gemmi/symmetry.hpp>  // for GroupOps
#include <gemmi/unitcell.hpp>
#include <limits>
#include <numeric>
#include <optional>
#include <pybind11/stl.h>
#include <set>

namespace py = pybind11;

namespace qx::python {

namespace {

// A peak as Python sees it.
struct Peak {
  double xyz[3] = {};  // Angstrom
  double height = 0.0;
  std::int64_t atom = -1;  // in the order of the model's atoms
  double distance = std::numeric_limits<double>::quiet_NaN();
};

std::vector<gemmi::Op> operators_of(const Density& map) {
  std::vector<gemmi::Op> list;
  if (const gemmi::SpaceGroup* group = find_space_group(map.group)) {
    for (const gemmi::Op& op : group->operations()) list.push_back(op);
  } else {
    for (const std::string& text : map.operators) list.push_back(gemmi::parse_triplet(text));
  }
  if (list.empty()) list.push_back(gemmi::Op::identity());
  return list;
}

std::vector<qx_density_peak> all_peaks(const qx_density_box& box, double level) {
  std::vector<qx_density_peak> peaks(1024);
  const std::int64_t n =
      qx_find_density_peaks(&box, level, static_cast<std::int64_t>(peaks.size()), peaks.data());
  const bool more = n > static_cast<std::int64_t>(peaks.size());
  peaks.resize(static_cast<std::size_t>(n));
  if (more) (void)qx_find_density_peaks(&box, level, n, peaks.data());
  return peaks;
}

// The same for all grid points of an orbit.
std::int64_t orbit_of(const qx_density_peak& peak, const std::vector<gemmi::Op>& operators,
                      const std::array<std::int32_t, 3>& n) {
  std::array<double, 3> at = {};
  for (std::size_t a = 0; a < 3; ++a) at[a] = static_cast<double>(peak.indices[a]) / n[a];
  std::int64_t least = std::numeric_limits<std::int64_t>::max();
  for (const gemmi::Op& op : operators) {
    const auto mate = op.apply_to_xyz(at);
    std::int64_t number = 0;
    for (std::size_t a = 0; a < 3; ++a) {
      std::int64_t i = std::llround(mate[a] * n[a]) % n[a];
      if (i < 0) i += n[a];
      number = number * n[a] + i;
    }
    least = std::min(least, number);
  }
  return least;
}

std::vector<qx_density_peak> one_of_each_orbit(std::vector<qx_density_peak> peaks,
                                               const std::vector<gemmi::Op>& operators,
                                               const std::array<std::int32_t, 3>& n) {
  std::stable_sort(peaks.begin(), peaks.end(), [](const auto& a, const auto& b) {
    return std::fabs(a.height) > std::fabs(b.height);
  });
  std::set<std::int64_t> seen;
  std::erase_if(
      peaks, [&](const auto& peak) { return !seen.insert(orbit_of(peak, operators, n)).second; });
  return peaks;
}

// Where the mates of peaks lie against the atoms.
class Surroundings {
 public:
  Surroundings(const gemmi::UnitCell& cell, const std::vector<std::array<double, 3>>& atoms)
      : cell_(cell) {
    for (const auto& a : atoms) {
      atoms_.push_back(cell.fractionalize(gemmi::Position(a[0], a[1], a[2])));
    }
  }
  // Takes the mate that lies nearer to an atom than the peak does so far.
  void look(const std::array<double, 3>& mate, Peak& peak) const {
    for (std::size_t i = 0; i < atoms_.size(); ++i) {
      const gemmi::Fractional apart(mate[0] - atoms_[i].x, mate[1] - atoms_[i].y,
                                    mate[2] - atoms_[i].z);
      const gemmi::Fractional near = apart.wrap_to_zero();
      const gemmi::Position step = cell_.orthogonalize_difference(near);
      const double distance = step.length();
      if (distance >= peak.distance) continue;
      const gemmi::Position place = cell_.orthogonalize(
          gemmi::Fractional(atoms_[i].x + near.x, atoms_[i].y + near.y, atoms_[i].z + near.z));
      peak = {{place.x, place.y, place.z}, peak.height, static_cast<std::int64_t>(i), distance};
    }
  }

 private:
  const gemmi::UnitCell& cell_;
  std::vector<gemmi::Fractional> atoms_;
};

Peak placed(const qx_density_peak& found, const gemmi::UnitCell& cell,
            const std::vector<gemmi::Op>& operators, const Surroundings* model) {
  const std::array<double, 3> at = {found.fractional[0], found.fractional[1], found.fractional[2]};
  Peak peak;
  peak.height = found.height;
  if (model) {
    peak.distance = std::numeric_limits<double>::infinity();
    for (const gemmi::Op& op : operators) model->look(op.apply_to_xyz(at), peak);
    return peak;
  }
  const gemmi::Position place = cell.orthogonalize(gemmi::Fractional(at[0], at[1], at[2]));
  peak.xyz[0] = place.x;
  peak.xyz[1] = place.y;
  peak.xyz[2] = place.z;
  return peak;
}

py::tuple as_arrays(const std::vector<Peak>& peaks, const std::optional<Coordinates>& model) {
  const auto n = static_cast<py::ssize_t>(peaks.size());
  py::array_t<double> xyz({n, py::ssize_t{3}});
  py::array_t<double> height(n);
  py::array_t<double> distance(n);
  py::list names;
  for (py::ssize_t i = 0; i < n; ++i) {
    const Peak& peak = peaks[static_cast<std::size_t>(i)];
    std::copy_n(peak.xyz, 3, xyz.mutable_data(i, 0));
    height.mutable_at(i) = peak.height;
    distance.mutable_at(i) = peak.distance;
    names.append(peak.atom < 0 ? std::string()
                               : model->name_of_entry(static_cast<std::size_t>(peak.atom)));
  }
  return py::make_tuple(xyz, height, names, distance);
}

py::tuple find(const Density& map, double level, const std::string& path,
               const std::string& selection) {
  std::optional<Coordinates> model;
  std::vector<Peak> peaks;
  {
    const py::gil_scoped_release others_go_on;
    const auto& c = map.cell;
    const gemmi::UnitCell cell(c[0], c[1], c[2], c[3], c[4], c[5]);
    std::optional<Surroundings> atoms;
    if (!path.empty()) {
      model.emplace(path);
      if (!selection.empty()) model->select(selection, path);
      atoms.emplace(cell, model->positions());
    }
    const std::vector<gemmi::Op> operators = operators_of(map);
    for (const qx_density_peak& found :
         one_of_each_orbit(all_peaks(map.box(), level), operators, map.intervals)) {
      peaks.push_back(placed(found, cell, operators, atoms ? &*atoms : nullptr));
    }
  }
  return as_arrays(peaks, model);
}

}  // namespace

void bind_peaks(py::module_& module) {
  module.def("find_peaks", find, py::arg("map"), py::arg("level"), py::arg("model"),
             py::arg("selection"));
}

}  // namespace qx::python
