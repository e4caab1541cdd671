// The sections that the options come to.
#include "driver/commands/crystal_lines.h"
#include "driver/commands/stats/job.h"

namespace qx {

SectionText crystal_section(const StatsJob& job, const std::string& input) {
  const StatsOptions& options = job.options;
  SectionText text("xcry");
  add_group(text, options.space_group.empty() ? group_name_of(job.file) : options.space_group,
            job.file);
  text.line(cell_line(job.file.cell));
  if (options.dmin > 0.0 || options.dmax > 0.0) {
    text.line(limits_line(options.dmin, options.dmax));
  }
  return text.line(read_line(input, job.columns));
}

// Beyond 4 A the intensities follow the solvent; of data that end near there all is taken.
double line_begins(const StatsOptions& options, const StatsCounts& counts) {
  constexpr double no_limit = 99999.0;
  constexpr std::size_t least = 40;
  const double low = counts.all.high < 0.9 * options.low ? options.low : no_limit;
  std::size_t behind = 0;
  for (const StatsShell& shell : counts.shells) behind += shell.low <= low ? shell.measured : 0;
  return behind >= least ? low : 0.0;
}

SectionText wilson_section(const StatsJob& job, const StatsCounts& counts) {
  SectionText text("xwilson");
  const double low = line_begins(job.options, counts);
  if (low > 0.0) text.line(format("param low %.9g", low)).line("plot");
  text.line("moments").line("twin").line("anisotropy");
  if (!job.options.amplitudes.empty()) text.line("amplitudes");
  return text.line("print");
}

SectionText amplitudes_section(const StatsJob& job, const std::string& output) {
  std::string line = "write refl mtz file " + quoted_name(output) + " others coid FOBS=F SIGF=SIGF";
  if (!job.columns.free.empty()) line += " TEST=" + name_as_word(job.columns.free);
  return SectionText("xter").line(line);
}

}  // namespace qx
