// Peaks of a map: one of each orbit, where the model is.
#include "density.h"
#include "driver/commands/coordinates.h"
#include "driver/commands/density_peaks.h"

#include <algorithm>
#include <optional>
#include <pybind11/stl.h>

namespace py = pybind11;

namespace qx::python {

namespace {

py::tuple as_arrays(const std::vector<DensityPeakSite>& peaks) {
  const auto n = static_cast<py::ssize_t>(peaks.size());
  py::array_t<double> xyz({n, py::ssize_t{3}});
  py::array_t<double> height(n);
  py::array_t<double> distance(n);
  py::list names;
  for (py::ssize_t i = 0; i < n; ++i) {
    const DensityPeakSite& peak = peaks[static_cast<std::size_t>(i)];
    std::copy_n(peak.xyz, 3, xyz.mutable_data(i, 0));
    height.mutable_at(i) = peak.value;
    distance.mutable_at(i) = peak.distance;
    names.append(peak.name);
  }
  return py::make_tuple(xyz, height, names, distance);
}

py::tuple find(const Density& map, double level, const std::string& path,
               const std::string& selection) {
  std::vector<DensityPeakSite> peaks;
  {
    const py::gil_scoped_release others_go_on;
    std::optional<Coordinates> model;
    if (!path.empty()) {
      model.emplace(path);
      if (!selection.empty()) model->select(selection, path);
    }
    peaks =
        find_density_peaks(map.box(), density_crystal(map.cell.data(), map.group, map.operators),
                           level, map.rms, model ? &*model : nullptr);
  }
  return as_arrays(peaks);
}

}  // namespace

void bind_peaks(py::module_& module) {
  module.def("find_peaks", find, py::arg("map"), py::arg("level"), py::arg("model"),
             py::arg("selection"));
}

}  // namespace qx::python
