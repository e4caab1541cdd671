#include "reflections.h"

#include "driver/commands/command_error.h"
#include "driver/commands/map_labels.h"
#include "session.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gemmi/symmetry.hpp>  // for SpaceGroup
#include <memory>
#include <pybind11/stl.h>
#include <unistd.h>

namespace py = pybind11;

namespace qx::python {

Reflections::Reflections(const std::string& path, const std::string& name)
    : file_(read_reflections(path, false)) {
  descriptor_ = open(file_.readable.path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor_ < 0) throw CommandError(2, "cannot read " + name + ": " + std::strerror(errno));
  file_.readable.path = "/proc/self/fd/" + std::to_string(descriptor_);
  file_.path = name;
}

Reflections::~Reflections() {
  if (descriptor_ >= 0) close(descriptor_);
}

namespace {

std::unique_ptr<Reflections> read(const std::string& path, const std::string& name) {
  return with_engine([&](Session&) { return std::make_unique<Reflections>(path, name); });
}

// Lent, not to be written to: maps are made of the file.
py::array_t<float> column_of(const py::object& self, const FileColumn& column) {
  py::array_t<float> values(static_cast<py::ssize_t>(column.values.size()), column.values.data(),
                            self);
  values.attr("flags").attr("writeable") = false;
  return values;
}

py::array_t<float> column_at(const py::object& self, std::size_t i) {
  return column_of(self, self.cast<const Reflections&>().file().columns.at(i));
}

// Places of the columns that a name means.
std::vector<std::size_t> find(const Reflections& self, const std::string& name) {
  std::vector<std::size_t> places;
  for (const FileColumn* column : self.file().find(name)) {
    places.push_back(static_cast<std::size_t>(column - self.file().columns.data()));
  }
  return places;
}

py::array_t<std::int32_t> indices(const Reflections& self) {
  const ReflectionFile& file = self.file();
  py::array_t<std::int32_t> array({static_cast<py::ssize_t>(file.rows), py::ssize_t{3}});
  auto hkl = array.mutable_unchecked<2>();
  for (std::size_t row = 0; row < file.rows; ++row) {
    int at[3] = {};
    if (!file.index(row, at)) {
      throw CommandError(1, file.path + " has a row without indices");
    }
    for (py::ssize_t axis = 0; axis < 3; ++axis) {
      hkl(static_cast<py::ssize_t>(row), axis) = at[axis];
    }
  }
  return array;
}

py::tuple as_tuple(const MapLabels& pair) {
  return py::make_tuple(pair.amplitude, pair.phase, pair.kind);
}

// What maps of the kind are made of with nothing said; None without such columns.
py::object usual_pair(const Reflections& self, bool difference) {
  const MapLabels labels = usual_labels(self.file(), difference);
  return labels.amplitude.empty() ? py::none() : py::object(as_tuple(labels));
}

py::list candidates(const Reflections& self) {
  py::list pairs;
  for (const MapLabels& pair : label_candidates(self.file())) pairs.append(as_tuple(pair));
  return pairs;
}

py::list columns(const Reflections& self) {
  py::list all;
  for (const FileColumn& column : self.file().columns) {
    all.append(
        py::make_tuple(self.file().name_of(column), std::string(1, column.type), column.dataset));
  }
  return all;
}

py::list datasets(const Reflections& self) {
  py::list all;
  for (const FileDataset& set : self.file().datasets) {
    all.append(py::make_tuple(set.id, set.project, set.crystal, set.name, set.wavelength));
  }
  return all;
}

std::string group_of(const Reflections& self) {
  const ReflectionFile& file = self.file();
  return file.group ? file.group->xhm() : file.group_name;
}

}  // namespace

void bind_reflections(py::module_& module) {
  module.def("read", read, py::arg("path"), py::arg("name"));
  py::class_<Reflections>(module, "Reflections")
      .def_property_readonly("path", [](const Reflections& r) { return r.file().path; })
      .def_property_readonly("readable",
                             [](const Reflections& r) { return r.file().readable.path; })
      .def_property_readonly("title", [](const Reflections& r) { return r.file().title; })
      .def_property_readonly("spacegroup", group_of)
      .def_property_readonly("operators", [](const Reflections& r) { return r.file().operators; })
      .def_property_readonly("history", [](const Reflections& r) { return r.file().history; })
      .def_property_readonly("cell",
                             [](const Reflections& r) {
                               return std::vector<double>(r.file().cell, r.file().cell + 6);
                             })
      .def_property_readonly("dmin", [](const Reflections& r) { return r.file().resolution[0]; })
      .def_property_readonly("dmax", [](const Reflections& r) { return r.file().resolution[1]; })
      .def_property_readonly("rows", [](const Reflections& r) { return r.file().rows; })
      .def_property_readonly("columns", columns)
      .def_property_readonly("datasets", datasets)
      .def_property_readonly("candidates", candidates)
      .def("usual_pair", usual_pair, py::arg("difference"))
      .def("find", find, py::arg("name"))
      .def("indices", indices)
      .def("column", column_at, py::arg("place"));
}

}  // namespace qx::python
