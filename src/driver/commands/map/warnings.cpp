// What is odd about the data or the options of a map, and what follows from it.
#include "core/constants.h"
#include "driver/commands/command_error.h"
#include "driver/commands/map/job.h"
#include "driver/commands/unique_reflections.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gemmi/symmetry.hpp>  // for find_spacegroup_by_name
#include <gemmi/unitcell.hpp>  // for UnitCell

namespace qx {

namespace {

constexpr double cell_tolerance = 0.01;  // relative
constexpr double resolution_tolerance = 0.001;
constexpr double phase_tolerance = 1.0;  // degrees

struct Tally {
  std::size_t missing = 0, not_zero = 0, outside = 0, extinct = 0, off_phase = 0;
  std::size_t odd_weights = 0;
  double largest_extinct = 0.0;
  double largest_off_phase = 0.0;  // degrees
  std::optional<double> f000;
};

gemmi::UnitCell cell_of(const double* c) { return {c[0], c[1], c[2], c[3], c[4], c[5]}; }

// The weight of every row; none, which stands for 1, without a column.
std::span<const float> weights_of(const MapJob& job) {
  if (job.labels.weight.empty()) return {};
  return job.file.find(job.labels.weight).front()->values;
}

gemmi::Miller times(int n, const gemmi::Miller& hkl) {
  return {n * hkl[0], n * hkl[1], n * hkl[2]};
}

// How far, in degrees, the phase is from the two that a centric reflection can have; 0 for others.
double off_centric_phase(const gemmi::GroupOps& operators, const gemmi::Miller& hkl, double phase) {
  const gemmi::Miller opposite = times(-gemmi::Op::DEN, hkl);
  for (const gemmi::Op& op : operators.sym_ops) {
    if (op.apply_to_hkl_without_division(hkl) != opposite) continue;
    // The mate is the Friedel opposite: twice the phase is the phase of the operator's shift.
    return std::fabs(std::remainder(2.0 * phase + op.phase_shift(hkl) * 180.0 / pi, 360.0)) / 2.0;
  }
  return 0.0;
}

bool is_outside(const MapOptions& options, double d) {
  return d < options.dmin.value_or(0.0) || d > options.dmax.value_or(1e30);
}

Tally count(const MapJob& job) {
  const ReflectionFile& file = job.file;
  const std::span<const float> amplitudes = file.find(job.labels.amplitude).front()->values;
  const std::span<const float> phases = file.find(job.labels.phase).front()->values;
  const std::span<const float> weights = weights_of(job);
  const bool limited = job.options.dmin || job.options.dmax;
  const gemmi::UnitCell cell = cell_of(map_cell(job));
  const gemmi::SpaceGroup* group = known_group(job);
  const gemmi::GroupOps operators = group ? group->operations() : gemmi::GroupOps();
  Absences absences(operators);
  Tally tally;
  for (std::size_t i = 0; i < file.rows; ++i) {
    int at[3] = {};
    if (!file.index(i, at)) continue;
    const gemmi::Miller hkl = {at[0], at[1], at[2]};
    const double f = std::fabs(static_cast<double>(amplitudes[i]));
    const float weight = weights.empty() ? 1.0F : weights[i];
    if (weight < 0.0F || weight > 1.0F) ++tally.odd_weights;
    if (!std::isfinite(f) || !std::isfinite(phases[i]) || !std::isfinite(weight)) {
      ++tally.missing;
      continue;
    }
    if (hkl == gemmi::Miller{0, 0, 0}) {
      tally.f000 = f;
      continue;
    }
    if (limited && is_outside(job.options, cell.calculate_d(hkl))) ++tally.outside;
    if (!(f > 0.0)) continue;
    ++tally.not_zero;
    if (group && absences.has(hkl)) {
      ++tally.extinct;
      tally.largest_extinct = std::max(tally.largest_extinct, f);
      continue;
    }
    const double off = off_centric_phase(operators, hkl, static_cast<double>(phases[i]));
    if (off < phase_tolerance) continue;
    ++tally.off_phase;
    tally.largest_off_phase = std::max(tally.largest_off_phase, off);
  }
  return tally;
}

using Lines = std::vector<std::string>;

void compare_cell(const MapJob& job, Lines& lines) {
  const double* given = map_cell(job);
  const double* own = job.file.cell;
  for (int i = 0; i < 6; ++i) {
    if (std::fabs(given[i] - own[i]) <= cell_tolerance * own[i]) continue;
    lines.push_back(
        format("the file's cell is %g %g %g %g %g %g: with the one given, resolution "
               "and density are off",
               own[0], own[1], own[2], own[3], own[4], own[5]));
    return;
  }
}

void compare_group(const MapJob& job, Lines& lines) {
  const gemmi::SpaceGroup* given = known_group(job);
  const gemmi::SpaceGroup* own = job.file.group;
  if (job.options.space_group.empty() || !given || !own || given == own) return;
  if (given->number == own->number) {
    lines.push_back("the file is in the setting " + own->xhm() + ": as " + given->xhm() +
                    " its reflections are expanded about the wrong axes");
    return;
  }
  lines.push_back("the file's group is " + own->xhm() + ": as " + given->xhm() +
                  " its reflections get other symmetry mates, and the map is another one");
}

// A bare R name means hexagonal axes to the engine, whatever the cell looks like.
void check_rhombohedral(const MapJob& job, Lines& lines) {
  const gemmi::SpaceGroup* group = known_group(job);
  if (!group || (group->ext != 'H' && group->ext != 'R')) return;
  const double* c = map_cell(job);
  const bool hexagonal = std::fabs(c[3] - 90) < 1 && std::fabs(c[5] - 120) < 1;
  if (hexagonal != (group->ext == 'H')) {
    lines.push_back(
        format("%s asks for %s axes, which the cell does not have: say --spacegroup "
               "'%s:%c'",
               group->xhm().c_str(), group->ext == 'H' ? "hexagonal" : "rhombohedral", group->hm,
               hexagonal ? 'H' : 'R'));
  } else if (group->ext == 'R' && job.options.space_group.empty() &&
             job.file.group_name.find(':') == std::string::npos) {
    lines.push_back("the file's group " + job.file.group_name + " is on rhombohedral axes: " +
                    group->xhm() + " is used, the bare name would mean hexagonal axes");
  }
}

void compare_limits(const MapJob& job, Lines& lines) {
  const double* own = job.file.resolution;
  const auto& dmin = job.options.dmin;
  const auto& dmax = job.options.dmax;
  if (dmin && *dmin < own[0] * (1 - resolution_tolerance)) {
    lines.push_back(
        format("the data end at %.3f A: limit and grid follow them, not %.3f A", own[0], *dmin));
  }
  if (dmax && *dmax > own[1] * (1 + resolution_tolerance)) {
    lines.push_back(format("the data begin at %.2f A: %.2f A adds nothing", own[1], *dmax));
  }
}

void check_types(const MapJob& job, Lines& lines) {
  const FileColumn& f = *job.file.find(job.labels.amplitude).front();
  const FileColumn& phi = *job.file.find(job.labels.phase).front();
  if (std::strchr("FGED", f.type) == nullptr) {
    lines.push_back(format("column %s is of type %c, no amplitude: its values are used as they are",
                           f.label.c_str(), f.type));
  }
  if (phi.type != 'P') {
    lines.push_back(format("column %s is of type %c, no phase: its values are taken for degrees",
                           phi.label.c_str(), phi.type));
  }
}

void tell_tally(const MapJob& job, const Tally& tally, Lines& lines) {
  const char* f = job.labels.amplitude.c_str();
  if (tally.f000) {
    lines.push_back(
        format("F(0,0,0) = %g is left out: the mean over the cell is 0, the absolute density "
               "is %.5f e/A^3 higher",
               *tally.f000, *tally.f000 / cell_of(map_cell(job)).volume));
  } else if (job.options.verbose) {
    lines.emplace_back("F(0,0,0) is not in the file: the mean over the cell is 0");
  }
  if (tally.missing > 0) {
    const std::string& weight = job.labels.weight;
    lines.push_back(format("%zu of %zu reflections have no %s or no %s%s: they count as 0",
                           tally.missing, job.file.rows, f, job.labels.phase.c_str(),
                           weight.empty() ? "" : (" or no " + weight).c_str()));
  }
  if (tally.odd_weights > 0) {
    lines.push_back(
        format("%zu values of %s are no figures of merit, which lie between 0 and 1: "
               "they are used as they are, negative ones as 0",
               tally.odd_weights, job.labels.weight.c_str()));
  }
  if (tally.not_zero == 0) {
    lines.push_back(format("every %s is 0: the map is flat, and is not put on an rms scale", f));
  }
  if (tally.outside > 0) {
    lines.push_back(
        format("%zu reflections lie outside the limits and take no part", tally.outside));
  }
  if (tally.extinct > 0) {
    lines.push_back(
        format("%zu reflections that the group extinguishes have amplitudes (up to "
               "%g): they weigh 0; is the group right?",
               tally.extinct, tally.largest_extinct));
  }
  if (tally.off_phase > 0) {
    lines.push_back(
        format("%zu centric reflections have phases that the group forbids (by up to %.0f "
               "degrees): only the part along the allowed line counts",
               tally.off_phase, tally.largest_off_phase));
  }
}

}  // namespace

std::vector<std::string> map_warnings(const MapJob& job) {
  Lines lines;
  compare_cell(job, lines);
  compare_group(job, lines);
  check_rhombohedral(job, lines);
  compare_limits(job, lines);
  check_types(job, lines);
  tell_tally(job, count(job), lines);
  return lines;
}

}  // namespace qx
