// The extension module quorix._engine; quorix is what people import.
#include "density.h"
#include "reflections.h"
#include "session.h"

#include <quorix/memory.h>
#include <quorix/version.h>

PYBIND11_MODULE(_engine, module) {
  module.doc() = "The engine behind quorix; its names are not for use from outside.";
  module.attr("version") = QUORIX_VERSION;
  constexpr double kept_megabytes = 64.0;  // notebooks make map after map of one grid
  qx_keep_memory(kept_megabytes);
  qx::python::translate_errors();
  qx::python::bind_reflections(module);
  qx::python::bind_density(module);
  qx::python::bind_density_use(module);
  qx::python::bind_maps(module);
  qx::python::bind_jobs(module);
  qx::python::bind_peaks(module);
  qx::python::bind_commands(module);
}
