#include "driver/commands/fcalc/job.h"

#include <quorix/engine.h>
#include <quorix/views.h>

#include <algorithm>

namespace qx {

std::string read_line(const std::string& path, const ObservedColumns& observed) {
  const std::pair<const char*, const std::string&> columns[] = {
      {" FOBS=", observed.amplitude}, {" SIGF=", observed.sigma},
      {" IOBS=", observed.intensity}, {" SIGI=", observed.intensity_sigma},
      {" FP=", observed.plus},        {" FM=", observed.minus},
      {" DP=", observed.difference},  {" TEST=", observed.free}};
  std::string line = "read refl mtz file " + quoted_name(path) + " coid H=H";
  for (const auto& [word, label] : columns) {
    if (!label.empty()) line += word + name_as_word(label);
  }
  return line;
}

SectionText crystal_section(const FcalcJob& job) {
  const Crystal& crystal = job.crystal;
  SectionText text("xcry");
  text.line("spgname " + crystal.space_group);
  text.line(format("cell %.6f %.6f %.6f %.6f %.6f %.6f", crystal.cell[0], crystal.cell[1],
                   crystal.cell[2], crystal.cell[3], crystal.cell[4], crystal.cell[5]));
  if (crystal.own_matrix) {
    std::string line = "orth";
    for (const double value : crystal.orth2frac) line += format(" %.9g", value);
    text.line(line);
  }
  if (job.options.dmin > 0.0 || job.options.dmax > 0.0) {
    constexpr double no_high_limit = 0.01;  // narrowed to the data
    text.line(format("reso %.6f %.6f", job.options.dmin > 0.0 ? job.options.dmin : no_high_limit,
                     job.options.dmax > 0.0 ? job.options.dmax : 99999.0));
  }
  if (!job.options.hkl.empty()) text.line(read_line(job.input, job.observed));
  if (job.options.fill) text.line("fill");
  return text;
}

double high_resolution() {
  qx_limits_view limits;
  return qx_get_limits_view(&limits) == 1 ? limits.high : 0.0;
}

namespace {

// Blurring that keeps the sampling error small: sharp atoms on a coarse grid would alias. More than
// this makes the atoms' spheres large for nothing; 4.5 d^2 leaves 1.5e-3 of sharp nuclei at 4 A.
double suitable_b0(const FcalcOptions& options) {
  if (options.b0 >= 0.0) return options.b0;
  const double d = high_resolution();
  return std::max(2.0, 6.0 * d * d);
}

}  // namespace

double widest_radius() { return std::max(20.0, 2.5 * high_resolution()); }

SectionText fft_section(const FcalcOptions& options) {
  return SectionText("xfft")
      .line(format("memory %f", options.memory))
      .line("sincos no")
      .line(format("B0 %f", suitable_b0(options)));
}

SectionText formfactor_section(const FcalcOptions& options) {
  SectionText text("xformfact");
  if (options.neutron) {
    text.line("diff neutron");
  } else if (options.gaussians == 5) {
    text.line("atmf C 5 N 5 O 5 S 5");
  }
  return text;
}

SectionText map_section(const std::string& path, int u) {
  return SectionText("xmap")
      .line("mapdef generated with amplitude calc phase calc")
      .line(format("param type unweighted u %d v 1 scale yes", u))
      .line("extent unit")
      .line("generate")
      .line("write ccp4 file " + quoted_name(path) + " symm yes origin zero density yes");
}

SectionText end_section(const FcalcJob& job, const std::string& path) {
  std::string line = "write refl mtz file " + quoted_name(path) + " coid FC=FC PHIC=PHIC";
  if (job.with_solvent()) line += " MAP_COEFFA=FC_ALL MAP_COEFFP=PHIC_ALL";
  if (!job.observed.amplitude.empty()) line += " FOBS=" + name_as_word(job.observed.amplitude);
  if (!job.observed.sigma.empty()) line += " SIGF=" + name_as_word(job.observed.sigma);
  if (!job.options.free.empty()) {
    line += " TEST=FREE";
  } else if (!job.observed.free.empty()) {
    line += " TEST=" + name_as_word(job.observed.free);
  }
  return SectionText("xter").line(line);
}

}  // namespace qx
