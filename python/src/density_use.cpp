// What is done with a density: boxes about models, values at points, files.
#include "density.h"
#include "driver/commands/command_error.h"
#include "driver/commands/coordinates.h"
#include "driver/commands/group_name.h"
#include "driver/commands/info/map_facts.h"
#include "driver/commands/map_labels.h"
#include "driver/commands/model_and_data.h"
#include "driver/commands/output_guard.h"
#include "driver/commands/output_place.h"
#include "session.h"

#include <quorix/map.h>

#include <algorithm>
#include <cstring>
#include <gemmi/symmetry.hpp>  // for SpaceGroup
#include <gemmi/unitcell.hpp>
#include <limits>
#include <pybind11/stl.h>

namespace py = pybind11;

namespace qx::python {

namespace {

using Points = py::array_t<double, py::array::c_style | py::array::forcecast>;

class Model : public Coordinates {
 public:
  Model(const std::string& path, const std::string& selection) : Coordinates(path) {
    if (!selection.empty()) select(selection, path);
  }
};

void warn_of_crystal(Session& session, const Density& map, const Coordinates& model) {
  session.warn(model.warnings());
  session.warn(crystal_differences(model.crystal(), find_space_group(map.group), map.cell.data(),
                                   "its coordinates are taken as they are in the map's cell"));
}

// The same density on other points.
Density cut(const Density& map, const std::int32_t (&low)[3], const std::int32_t (&high)[3]) {
  Density part = map;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    part.starts[axis] = low[axis];
    part.counts[axis] = high[axis] - low[axis] + 1;
  }
  part.block = new_block(part.counts);
  const qx_density_box from = map.box();
  const qx_density_box to = part.box();
  if (qx_cut_density_box(&from, &to, part.block.get()) != 1) {
    throw CommandError(1, "the map is a part of the cell and does not cover the model");
  }
  if (map.unit == Unit::rms && part.kind.find(cell_scale_mark) == std::string::npos) {
    part.kind += cell_scale_mark;
  }
  return part;
}

Density around(const Density& map, const std::string& path, const std::string& selection,
               double cushion) {
  return with_engine([&](Session& session) {
    const Model model(path, selection);
    warn_of_crystal(session, map, model);
    Engine engine(false);
    engine.run(map.crystal_section());
    engine.run(SectionText("xmod"));
    engine.call([&] { return model.fill_model() ? ok : failed; });
    engine.run(SectionText("xmol").line("hydr yes"));
    std::int32_t low[3] = {};
    std::int32_t high[3] = {};
    engine.call([&] { return qx_calc_model_bounds(cushion, map.intervals.data(), low, high); });
    return cut(map, low, high);
  });
}

// At n points, orthogonal coordinates in Angstrom.
py::array_t<double> at_points(const Density& map, const Points& xyz, int order) {
  if (xyz.ndim() != 2 || xyz.shape(1) != 3) throw py::value_error("points are an array [n, 3]");
  const py::ssize_t n = xyz.shape(0);
  py::array_t<double> values(n);
  const double* from = xyz.data();
  double* to = values.mutable_data();
  const py::gil_scoped_release others_go_on;
  const auto& c = map.cell;
  const gemmi::UnitCell cell(c[0], c[1], c[2], c[3], c[4], c[5]);
  const qx_density_box box = map.box();
  for (py::ssize_t i = 0; i < n; ++i) {
    const gemmi::Fractional f =
        cell.fractionalize(gemmi::Position(from[3 * i], from[3 * i + 1], from[3 * i + 2]));
    const double point[1][3] = {{f.x, f.y, f.z}};
    qx_interpolate_density(&box, order, 1, point, to + i);
  }
  return values;
}

py::array_t<double> positions(const std::string& path, const std::string& selection) {
  const Model model(path, selection);
  const auto atoms = model.positions();
  py::array_t<double> xyz({static_cast<py::ssize_t>(atoms.size()), py::ssize_t{3}});
  if (!atoms.empty())
    std::memcpy(xyz.mutable_data(), atoms.data(), sizeof(atoms[0]) * atoms.size());
  return xyz;
}

bool write(const Density& map, const std::string& path, bool force) {
  return with_engine([&](Session&) {
    check_outputs({}, {{path, FileKind::map}}, force);
    const OutputPlace place(path);
    const std::string name = place.path();
    const qx_density_box box = map.box();
    Engine engine(false);
    engine.run(map.crystal_section());
    engine.call(
        [&] { return qx_write_density_box(name.c_str(), &box, map.kind.c_str(), map.scale, 1); });
    place.deliver();
    return true;
  });
}

void take_facts(const MapFacts& facts, Density& map) {
  const gemmi::SpaceGroup* group = gemmi::find_spacegroup_by_number(facts.map.space_group);
  if (group) map.group = group->xhm();
  if (!group) map.operators = facts.operators();
  if (!group && map.operators.empty()) map.operators = {"x,y,z"};
  constexpr std::string_view heading = "Map type: ";
  for (const std::string& label : facts.labels) {
    if (label.starts_with(heading)) map.kind = label.substr(heading.size());
  }
}

Density read_map(const std::string& path) {
  return with_engine([&](Session&) {
    Density map;
    const auto take = [&](const qx_ccp4_map& found, const MapFacts&) {
      std::copy_n(found.counts, 3, map.counts.begin());
      std::copy_n(found.starts, 3, map.starts.begin());
      std::copy_n(found.intervals, 3, map.intervals.begin());
      std::copy_n(found.cell, 6, map.cell.begin());
      map.block = new_block(map.counts);
      std::copy_n(found.density[0][0], std::int64_t{map.counts[0]} * map.counts[1] * map.counts[2],
                  map.block.get());
      return true;
    };
    const MapFacts facts = read_map_facts(path, false, take);
    take_facts(facts, map);
    map.mean = facts.mean;
    map.rms = facts.rms;
    map.scale = std::numeric_limits<double>::quiet_NaN();
    return map;
  });
}

}  // namespace

void bind_density_use(py::module_& module) {
  module.def("around", around, py::arg("map"), py::arg("model"), py::arg("selection"),
             py::arg("cushion"));
  module.def("at_points", at_points, py::arg("map"), py::arg("points"), py::arg("order"));
  module.def("positions", positions, py::arg("model"), py::arg("selection"));
  module.def("write", write, py::arg("map"), py::arg("path"), py::arg("force"));
  module.def("read_map", read_map, py::arg("path"));
}

}  // namespace qx::python
