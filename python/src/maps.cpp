// Maps from reflections: what quorix map does, with the density left in memory.
#include "density.h"
#include "driver/commands/command_error.h"
#include "driver/commands/map/job.h"
#include "reflections.h"
#include "session.h"

#include <quorix/views.h>

#include <algorithm>
#include <pybind11/stl.h>

namespace py = pybind11;

namespace qx::python {

namespace {

MapLabels choose(const ReflectionFile& file, const MapOptions& options) {
  MapLabels labels;
  if (!options.amplitude.empty() || !options.phase.empty()) {
    labels = given_labels(file, options.amplitude, options.phase);
  } else if (!options.weight.empty()) {
    labels = measured_labels(file);
  } else {
    labels = usual_labels(file, options.difference);
  }
  if (labels.amplitude.empty()) {
    refuse_labels(file, file.path + " has none of the pairs " + usual_pairs(options.difference), {},
                  passed_over(file, options.difference));
  }
  if (!options.weight.empty()) add_weight(file, options.weight, labels);
  return labels;
}

std::vector<std::string> warnings_of(const Reflections& reflections, const MapJob& job) {
  const double* c = map_cell(job);
  std::string kind = job.labels.amplitude + '\n' + job.labels.phase + '\n' + job.labels.weight +
                     '\n' + map_group(job);
  const double limits[2] = {job.options.dmin.value_or(0), job.options.dmax.value_or(0)};
  kind.append(reinterpret_cast<const char*>(limits), sizeof limits);
  kind.append(reinterpret_cast<const char*>(c), 6 * sizeof *c);
  return reflections.warnings(kind, [&] { return map_warnings(job); });
}

void describe(const MapJob& job, const qx_map_view& view, Density& map) {
  std::copy_n(view.counts, 3, map.counts.begin());
  std::copy_n(view.starts, 3, map.starts.begin());
  std::copy_n(view.intervals, 3, map.intervals.begin());
  std::copy_n(map_cell(job), 6, map.cell.begin());
  map.group = map_group(job);
  map.operators = job.file.operators;
  map.unit = job.options.no_scale ? Unit::absolute : Unit::rms;
  map.scale = job.options.no_scale ? 1.0 : view.rms;
  map.mean = view.mean / map.scale;
  map.rms = view.rms / map.scale;
  map.kind = kind_text(job);
}

Density make_map(const Reflections& reflections, const MapOptions& options) {
  return with_engine([&](Session& session) {
    const ReflectionFile& file = reflections.file();
    MapJob job = {options, file, choose(file, options), file.readable.path, {}, options.dmin};
    check_text("the space group", map_group(job));
    session.warn(warnings_of(reflections, job));
    std::int32_t dropped = 0;
    Engine engine(false);
    file.lend();
    start_map(engine, job, dropped);
    session.warn(grid_warnings(job, dropped));
    engine.run(fft_section(options));
    engine.run(map_section(job));
    qx_map_view view;
    if (qx_get_map_view(&view) != 1) throw CommandError(1, "the engine has no map");
    Density map;
    describe(job, view, map);
    engine.call([&] {
      map.block = own(qx_take_map_density());
      return map.block ? ok : failed;
    });
    return map;
  });
}

}  // namespace

void bind_maps(py::module_& module) {
  py::class_<MapOptions>(module, "MapOptions")
      .def(py::init([] {
        MapOptions options;
        options.extent = {"cell"};
        options.no_scale = true;
        return options;
      }))
      .def_readwrite("amplitude", &MapOptions::amplitude)
      .def_readwrite("phase", &MapOptions::phase)
      .def_readwrite("weight", &MapOptions::weight)
      .def_readwrite("difference", &MapOptions::difference)
      .def_readwrite("dmin", &MapOptions::dmin)
      .def_readwrite("dmax", &MapOptions::dmax)
      .def_readwrite("fraction", &MapOptions::fraction)
      .def_readwrite("spacing", &MapOptions::spacing)
      .def_readwrite("counts", &MapOptions::counts)
      .def_readwrite("no_scale", &MapOptions::no_scale)
      .def_readwrite("spacegroup", &MapOptions::space_group)
      .def_readwrite("cell", &MapOptions::cell);
  module.def("make_map", make_map, py::arg("reflections"), py::arg("options"));
}

}  // namespace qx::python
