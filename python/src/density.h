// A density that outlives the engine that made it.
#pragma once

#include "driver/commands/section_text.h"

#include <quorix/density_box.h>

#include <array>
#include <cstdint>
#include <memory>
#include <pybind11/numpy.h>
#include <string>
#include <vector>

namespace qx::python {

enum class Unit { unknown, absolute, rms };  // e/A^3; rms of the whole cell

struct Density {
  std::shared_ptr<double> block;  // [z][y][x]
  std::array<std::int32_t, 3> counts = {}, starts = {}, intervals = {};
  std::array<double, 6> cell = {};  // Angstrom, degrees
  std::string group;                // empty: known by its operators only
  std::vector<std::string> operators;
  double mean = 0.0, rms = 0.0;  // of the whole cell, in the map's unit; rms about zero
  double scale = 0.0;            // e/A^3 for 1 of the map's unit; NaN if not known
  Unit unit = Unit::unknown;
  std::string kind;  // what label 2 of its file says

  [[nodiscard]] qx_density_box box() const;
  [[nodiscard]] bool is_whole_cell() const { return counts == intervals; }
  // "xcry" with group and cell.
  [[nodiscard]] SectionText crystal_section() const;
};

// A block that malloc gave.
std::shared_ptr<double> own(double* block);
std::shared_ptr<double> new_block(const std::array<std::int32_t, 3>& counts);

void bind_density(pybind11::module_& module);
void bind_density_use(pybind11::module_& module);  // boxes, points, files
void bind_maps(pybind11::module_& module);         // from reflections
void bind_jobs(pybind11::module_& module);         // texts of sections
void bind_peaks(pybind11::module_& module);
void bind_commands(pybind11::module_& module);  // whole subcommands

}  // namespace qx::python
