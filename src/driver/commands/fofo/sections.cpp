// The sections that the options come to.
#include "driver/commands/crystal_lines.h"
#include "driver/commands/fofo/job.h"

namespace qx {

SectionText phased_section(const FofoOptions& options, const ReflectionFile& file,
                           const AmplitudeSet& off) {
  const FcalcOptions& base = options.base;
  SectionText text("xcry");
  add_group(text, base.space_group.empty() ? group_name_of(file) : base.space_group, file);
  const double* c = base.cell.empty() ? file.cell : base.cell.data();
  text.line(cell_line(c));
  if (base.dmin > 0.0 || base.dmax > 0.0) text.line(limits_line(base.dmin, base.dmax));
  return text.line(read_line(off.path, off.columns) + " PHIC=" + name_as_word(options.phases));
}

SectionText difference_section(const FofoOptions& options, const AmplitudeSet& on,
                               const std::string& map) {
  ObservedColumns columns = on.columns;
  columns.free.clear();
  SectionText text("xfofo");
  text.line(read_line(on.path, columns))
      .line(format("param scale %s weight %s alpha %.9g reject %.9g", options.scale.c_str(),
                   options.weight.c_str(), options.alpha, options.reject))
      .line("replace");
  if (map.empty()) return text;
  return text.line("extent unit")
      .line("generate")
      .line("write ccp4 file " + quoted_name(map) + " symm yes origin zero density yes");
}

SectionText differences_written(const FofoOptions& options, const ObservedColumns& off,
                                const std::string& path) {
  if (path.empty()) return SectionText("xter");
  const bool own = !off.amplitude.empty();
  std::string line = "write refl mtz file " + quoted_name(path) +
                     " coid FOBS=" + (own ? name_as_word(off.amplitude) : "F");
  if (!own || !off.sigma.empty()) line += " SIGF=" + (own ? name_as_word(off.sigma) : "SIGF");
  if (!off.free.empty()) line += " TEST=" + name_as_word(off.free);
  line += " PHIC=" + (options.phases.empty() ? "PHIC_ALL" : name_as_word(options.phases));
  if (options.phases.empty()) line += " FC=FC_ALL";
  return SectionText("xter").line(line +
                                  " DP=DF SIGDP=SIGDF WT=W MAP_COEFF=FOFOWT MAP_PHASE=PHFOFOWT");
}

}  // namespace qx
