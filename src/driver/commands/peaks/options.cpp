// The command line of quorix peaks.
#include "driver/commands/command_error.h"
#include "driver/commands/common_options.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/peaks/job.h"

#include <CLI/CLI.hpp>
#include <cmath>

namespace qx {

namespace {

constexpr const char* closing = R"(
Peaks are points of the grid that are higher than their 26 neighbours; a parabola along each axis
gives place and height. Blobs are points beyond a level that are connected, across the borders of
the cell as well: their volume, their score (the integral of the density: electrons) and their
centroid. Of both one of each orbit is told, where it is nearest to the model.

Of reflections the difference map is looked at if the file has its coefficients, else the 2mFo-DFc
map; the first line says which. Of a difference map peaks and blobs of both signs are told, of
others those above zero. With a model its atoms other than water are masked: blobs above zero lie
outside, and so do the peaks of a map that is no difference map. A map that holds an asymmetric unit
is completed by its symmetry; in other parts of a cell blobs end at the border, where there are no
peaks.

The dummy atoms that -o writes are those of the lists: residue DUM, chain P for peaks, N for holes,
B for blobs above zero, D for those below; B factors are the heights in rms.

Examples:
  quorix peaks 1ubq.mtz --model 1ubq.pdb
      What the model leaves unexplained.
  quorix peaks 1ubq.mtz --model apo.pdb --full -o sites.pdb
      Blobs of the 2mFo-DFc map that no atom explains, and dummy atoms there.
  quorix peaks 1ubq_mFo-DFc.ccp4 --level 5 --no-blobs --json
      Peaks of a map, for a script.
)";

void add_map_choice(CLI::App& command, PeaksOptions& o) {
  command
      .add_option("IN", o.map.input,
                  "A CCP4 map, or reflections with coefficients: MTZ or structure-factor mmCIF; "
                  "also gzipped, told by its content")
      ->required()
      ->check(names_files("ccp4 map mrc mtz mtz.gz cif cif.gz ent ent.gz ccp4.gz map.gz mrc.gz"));
  add_model(command, "--model", o.model, "The model that sites are told by (PDB or mmCIF)")
      .type_name("FILE");
  auto* full = command.add_flag("--full", o.full, "Of reflections: the 2mFo-DFc map");
  command.add_flag("--difference", o.map.difference, "Of reflections: the difference map or none")
      ->excludes(full);
  command
      .add_option("--f", o.map.amplitude, "Amplitude column (default: DELFWT, FWT or their kin)")
      ->type_name("LABEL");
  command.add_option("--phi", o.map.phase, "Phase column (default: that of the amplitude)")
      ->type_name("LABEL");
  add_limits(command, o.map.dmin, o.map.dmax);
  command.add_option("--frac", o.map.fraction, "Grid spacing as a fraction of the resolution")
      ->check(CLI::Range(0.05, 0.45))
      ->capture_default_str();
}

void add_criteria(CLI::App& command, PeaksOptions& o) {
  command.add_option("--level", o.level, "Peaks from this many rms on (default: 4)")
      ->type_name("X");
  command
      .add_option("--blob-level", o.blob_level,
                  "Blobs beyond this many rms (default: 3 in difference maps, else 1)")
      ->type_name("X");
  command.add_flag("--absolute", o.absolute,
                   "Levels are in e/A^3 (in the unit of a map that does not tell its scale)");
  add_word(command, "--sign", o.sign, "auto positive negative both",
           "Which sign peaks and blobs have; auto: both in difference maps");
  command
      .add_option("--mask-radius", o.mask_radius,
                  "How far from an atom's centre the model is taken to explain density, in A; 0: "
                  "nothing is masked")
      ->type_name("A")
      ->check(CLI::Range(0.0, 10.0))
      ->capture_default_str();
  command.add_option("--min-volume", o.min_volume, "Smallest blob in A^3")
      ->type_name("A^3")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command
      .add_option("--min-score", o.min_score,
                  "Least integral of a blob's density in electrons (default: 15 in maps in e/A^3 "
                  "that are no difference maps, else 0)")
      ->type_name("E")
      ->check(CLI::NonNegativeNumber);
  auto* no_peaks = command.add_flag("--no-peaks", o.no_peaks, "Blobs only");
  command.add_flag("--no-blobs", o.no_blobs, "Peaks only")->excludes(no_peaks);
}

}  // namespace

void add_peaks_options(CLI::App& command, PeaksOptions& options) {
  command.footer(closing);
  add_map_choice(command, options);
  add_criteria(command, options);
  command.add_option("-n,--most", options.most, "Length of each list at most; 0: everything")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command.add_option("-o,--output", options.output, "Dummy atoms at the sites, as a PDB file")
      ->type_name("FILE")
      ->check(names_files("pdb"));
  add_force(command, options.map.force);
  add_telling(command, options.map.json, options.map.quiet, options.map.verbose);
}

void check_level(const char* name, const std::optional<double>& level) {
  if (!level) return;
  if (!(std::isfinite(*level) && *level > 0.0)) {
    throw CommandError(
        2, std::string(name) + format(" is a number above 0, not %g (--sign of quorix peaks tells "
                                      "whether holes are looked for)",
                                      *level));
  }
}

void check_options(const PeaksOptions& options) {
  check_level("--level", options.level);
  check_level("--blob-level", options.blob_level);
  if (std::isnan(options.mask_radius) || std::isnan(options.min_volume) ||
      std::isnan(options.min_score.value_or(0.0))) {
    throw CommandError(2, "--mask-radius, --min-volume and --min-score take numbers");
  }
  if (options.absolute && (!options.level != !options.blob_level) && !options.no_peaks &&
      !options.no_blobs) {
    throw CommandError(2,
                       "--absolute: name both --level and --blob-level, or leave out peaks or "
                       "blobs");
  }
  if (options.absolute && !options.level && !options.blob_level) {
    throw CommandError(2, "--absolute: name the level with --level or --blob-level");
  }
}

}  // namespace qx
