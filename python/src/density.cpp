#include "density.h"

#include "driver/commands/crystal_lines.h"
#include "session.h"

#include <quorix/map.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>
#include <pybind11/stl.h>

namespace py = pybind11;

namespace qx::python {

qx_density_box Density::box() const {
  qx_density_box box = {block.get(), {}, {}, {}};
  std::copy_n(counts.begin(), 3, box.counts);
  std::copy_n(starts.begin(), 3, box.starts);
  std::copy_n(intervals.begin(), 3, box.intervals);
  return box;
}

SectionText Density::crystal_section() const {
  ReflectionFile source;
  source.operators = operators;
  SectionText text("xcry");
  add_group(text, group, source);
  text.line(cell_line(cell.data()));
  return text;
}

std::shared_ptr<double> own(double* block) { return {block, qx_end_block}; }

std::shared_ptr<double> new_block(const std::array<std::int32_t, 3>& counts) {
  const auto points = static_cast<std::size_t>(counts[0]) * static_cast<std::size_t>(counts[1]) *
                      static_cast<std::size_t>(counts[2]);
  auto* block = static_cast<double*>(std::malloc(points * sizeof(double)));
  if (!block) throw std::bad_alloc();
  return own(block);
}

namespace {

// The block itself, [x][y][z] with x fastest. It lives as long as the array does.
py::array_t<double> array_of(const Density& map) {
  const py::capsule owner(new std::shared_ptr<double>(map.block),
                          [](void* p) { delete static_cast<std::shared_ptr<double>*>(p); });
  constexpr py::ssize_t step = sizeof(double);
  const py::ssize_t nx = map.counts[0];
  const py::ssize_t ny = map.counts[1];
  return {{nx, ny, py::ssize_t{map.counts[2]}},
          {step, step * nx, step * nx * ny},
          map.block.get(),
          owner};
}

void measure(Density& map) {
  const auto n = std::int64_t{map.counts[0]} * map.counts[1] * map.counts[2];
  const qx_density_statistics found = qx_calc_density_statistics(map.block.get(), n);
  map.mean = found.mean;
  map.rms = found.rms;
}

// A copy of values [nx, ny, nz] of the whole cell.
Density from_array(const py::array_t<double, py::array::f_style | py::array::forcecast>& values,
                   const std::array<double, 6>& cell, const std::string& group, Unit unit,
                   const std::string& kind) {
  if (values.ndim() != 3 || values.size() == 0) {
    throw py::value_error("a map has three axes with a point at least");
  }
  Density map;
  for (int axis = 0; axis < 3; ++axis) {
    map.counts[static_cast<std::size_t>(axis)] = static_cast<std::int32_t>(values.shape(axis));
  }
  map.intervals = map.counts;
  map.cell = cell;
  map.group = group;
  map.unit = unit;
  map.kind = kind;
  map.scale = unit == Unit::absolute ? 1.0 : std::numeric_limits<double>::quiet_NaN();
  map.block = new_block(map.counts);
  std::copy_n(values.data(), values.size(), map.block.get());
  measure(map);
  return map;
}

}  // namespace

void bind_density(py::module_& module) {
  py::enum_<Unit>(module, "Unit")
      .value("unknown", Unit::unknown)
      .value("absolute", Unit::absolute)
      .value("rms", Unit::rms);
  py::class_<Density>(module, "Density")
      .def(py::init(&from_array), py::arg("values"), py::arg("cell"), py::arg("group"),
           py::arg("unit"), py::arg("kind"))
      .def_property_readonly("array", array_of)
      .def_readonly("counts", &Density::counts)
      .def_readonly("starts", &Density::starts)
      .def_readonly("intervals", &Density::intervals)
      .def_readonly("cell", &Density::cell)
      .def_readonly("group", &Density::group)
      .def_readonly("operators", &Density::operators)
      .def_readonly("mean", &Density::mean)
      .def_readonly("rms", &Density::rms)
      .def_readonly("scale", &Density::scale)
      .def_readonly("unit", &Density::unit)
      .def_readonly("kind", &Density::kind)
      .def_property_readonly("whole_cell", &Density::is_whole_cell);
}

}  // namespace qx::python
