// The sections that the options come to.
#include "driver/commands/maps/job.h"
#include "driver/commands/maps/omitted.h"

namespace qx {

std::vector<SectionText> likelihood_sections(const FcalcJob& job, const MapsOptions& options) {
  SectionText estimate("xmlf");
  estimate
      .line("param mode " + options.mode +
            (options.free_reflections == "fill" ? " test fill" : " test keep") +
            (options.fill == "yes" ? " missing df" : " missing zero"))
      .line("estimate")
      .line("print");
  const auto put = [&](SectionText& section) {
    section.line("replace");
    if (job.anomalous()) section.line("anomalous");
  };
  if (options.omit.empty()) {
    put(estimate);
    return {estimate};
  }
  SectionText without("xmlf");
  put(without);
  return {
      estimate,
      SectionText("xomit").line(omitted_atoms_line(job, options.omit, "--omit")).line("exclude"),
      without};
}

SectionText weighted_map_section(const MapsOptions& options, const std::string& path,
                                 bool difference) {
  SectionText text("xmap");
  text.line("mapdef generated with amplitude calc phase calc")
      .line(format("param type sigmaa u %d v 1 scale no", difference ? 1 : 2));
  if (options.kick > 0) text.line(format("kick length 0.3 naverage %d", options.kick));
  return text.line("extent unit")
      .line("generate")
      .line("write ccp4 file " + quoted_name(path) + " symm yes origin zero density yes");
}

SectionText coefficients_section(const FcalcJob& job, const MapsOptions& options,
                                 const std::string& path) {
  const ObservedColumns& observed = job.observed;
  std::string line = "write refl mtz file " + quoted_name(path) + " coid FOBS=" +
                     (observed.amplitude.empty() ? "FP" : name_as_word(observed.amplitude));
  if (observed.amplitude.empty()) {
    line += " SIGF=SIGFP";
  } else if (!observed.sigma.empty()) {
    line += " SIGF=" + name_as_word(observed.sigma);
  }
  if (!observed.free.empty()) line += " TEST=" + name_as_word(observed.free);
  line +=
      " FC=FC_ALL PHIC=PHIC_ALL MAP_COEFFA=FWT MAP_COEFFP=PHWT MAP_COEFF=DELFWT MAP_PHASE=PHDELWT"
      " FOM=FOM";
  if (options.fill == "yes") line += " FWT_nofill PHWT_nofill";
  if (job.anomalous()) line += " FAN PHAN";
  if (options.all) line += " MAP_SCALE=KTOT WT=WT FPART=FSOLV PHIP=PHISOLV";
  return SectionText("xter").line(line);
}

}  // namespace qx
