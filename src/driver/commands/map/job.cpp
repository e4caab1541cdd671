#include "driver/commands/map/job.h"

#include "driver/commands/command_error.h"
#include "driver/commands/crystal_lines.h"
#include "driver/commands/group_name.h"

#include <cstring>

namespace qx {

std::string map_group(const MapJob& job) {
  if (!job.options.space_group.empty()) return job.options.space_group;
  return group_name_of(job.file);
}

const gemmi::SpaceGroup* known_group(const MapJob& job) {
  if (job.options.space_group.empty()) return job.file.group;
  return find_space_group(job.options.space_group);
}

const double* map_cell(const MapJob& job) {
  return job.options.cell.empty() ? job.file.cell : job.options.cell.data();
}

namespace {

// Limits that leave nothing out: the engine narrows them to the data.
constexpr double no_low_limit = 99999.0;
constexpr double no_high_limit = 0.01;

std::string limits_line(const std::string& kind, const std::vector<std::string>& values) {
  constexpr const char* keys[6] = {"xmin", "xmax", "ymin", "ymax", "zmin", "zmax"};
  std::string line = "extent " + kind;
  for (std::size_t i = 0; i < 6; ++i) line += format(" %s=%s", keys[i], values.at(i + 1).c_str());
  return line;
}

std::string extent_line(const std::vector<std::string>& extent) {
  const std::string& kind = extent.front();
  if (kind == "cell") return "extent unit";
  if (kind == "asu") return "extent asym";
  if (kind == "model") return "extent model";
  return limits_line(kind, extent);
}

}  // namespace

SectionText crystal_section(const MapJob& job) {
  SectionText text("xcry");
  add_group(text, map_group(job), job.file);
  const double* cell = map_cell(job);
  text.line(format("cell %.6f %.6f %.6f %.6f %.6f %.6f", cell[0], cell[1], cell[2], cell[3],
                   cell[4], cell[5]));
  if (job.dmin || job.options.dmax) {
    text.line(format("reso %.9g %.9g", job.dmin.value_or(no_high_limit),
                     job.options.dmax.value_or(no_low_limit)));
  }
  const std::string weight =
      job.labels.weight.empty() ? "" : " FOM=" + name_as_word(job.labels.weight);
  text.line("read refl mtz file " + quoted_name(job.input) +
            " coid MAP_COEFFA=" + name_as_word(job.labels.amplitude) +
            " MAP_COEFFP=" + name_as_word(job.labels.phase) + weight);
  return text;
}

SectionText grid_section(const MapOptions& options) {
  SectionText text("xgrid");
  if (!options.counts.empty()) {
    text.line(format("ngrid nx=%d ny=%d nz=%d", options.counts.at(0), options.counts.at(1),
                     options.counts.at(2)));
  } else if (options.spacing > 0.0) {
    text.line(
        format("space sx=%.9g sy=%.9g sz=%.9g", options.spacing, options.spacing, options.spacing));
  } else {
    text.line(format("frac %f", options.fraction));
  }
  return text;
}

SectionText fft_section(const MapOptions& options) {
  return SectionText("xfft").line(format("memory %f", options.memory));
}

namespace {

// One scale everywhere: a part of the map is in units of the whole.
const char* scale_word(const MapOptions& options) {
  if (options.no_scale) return "no";
  return options.extent.front() == "cell" ? "yes" : "cell";
}

}  // namespace

std::string kind_text(const MapJob& job) {
  const bool by_cell = std::strcmp(scale_word(job.options), "cell") == 0;
  return map_type(job.labels) + (by_cell ? cell_scale_mark : "");
}

namespace {

std::string write_line(const MapJob& job) {
  const MapOptions& options = job.options;
  std::string write = "write ccp4 file " + quoted_name(job.output);
  if (!options.plain_header) {
    write += options.symmetry ? " symm yes origin zero" : " origin zero";
    write += " density yes";
  }
  if (!options.plain_header) write += " kind " + quoted_name(kind_text(job));
  if (options.provenance) {
    write += " prov " + quoted_name(options.input) + " columns " +
             quoted_name(job.labels.amplitude + " " + job.labels.phase +
                         (job.labels.weight.empty() ? "" : " " + job.labels.weight));
  }
  return write;
}

}  // namespace

SectionText map_section(const MapJob& job) {
  const MapOptions& options = job.options;
  SectionText text("xmap");
  text.line("mapdef generated with amplitude input phase input")
      .line(format("param type unweighted u 1 v 0 scale %s cushion %g%s", scale_word(options),
                   options.cushion, job.labels.weight.empty() ? "" : " weight yes"))
      .line(extent_line(options.extent))
      .line("generate");
  if (!job.output.empty()) text.line(write_line(job));
  return text;
}

SectionText end_section() { return SectionText("xter"); }

}  // namespace qx
