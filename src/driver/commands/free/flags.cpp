// The flags of every row: kept where an older set has them, else drawn.
#include "driver/commands/command_error.h"
#include "driver/commands/free/job.h"
#include "driver/commands/unique_reflections.h"

#include <algorithm>
#include <cmath>
#include <gemmi/unitcell.hpp>
#include <map>

namespace qx {

namespace {

gemmi::UnitCell cell_of(const ReflectionFile& file) {
  const double* c = file.cell;
  return {c[0], c[1], c[2], c[3], c[4], c[5]};
}

std::string crystal_of(const ReflectionFile& file) {
  const double* c = file.cell;
  return file.path + format(" (%g %g %g A, %g %g %g, ", c[0], c[1], c[2], c[3], c[4], c[5]) +
         (file.group ? file.group->xhm() : "?") + ")";
}

// Crystals of one form differ by a few per cent.
void check_same_form(const ReflectionFile& file, const ReflectionFile& like) {
  constexpr double edges = 0.05, degrees = 5.0;
  const auto refuse = [&](const char* what) {
    throw CommandError(2, crystal_of(file) + " and " + crystal_of(like) + " have " + what +
                              ": flags of one mean nothing for the other");
  };
  for (int i = 0; i < 6; ++i) {
    const double slack = i < 3 ? edges * like.cell[i] : degrees;
    if (std::fabs(file.cell[i] - like.cell[i]) > slack) refuse("other cells");
  }
  const bool same = like.group && file.group->laue_str() == like.group->laue_str() &&
                    file.group->centring_type() == like.group->centring_type();
  if (!same) refuse("space groups of other symmetry");
}

const FileColumn& source_column(const FreeOptions& options, const ReflectionFile& file) {
  if (!options.like_label.empty()) {
    const auto found = file.find(options.like_label);
    if (found.size() == 1) return *found.front();
    throw CommandError(2, file.path + " has " + (found.empty() ? "no" : "more than one") +
                              " column " + options.like_label);
  }
  if (const FileColumn* column = usual_free_column(file)) return *column;
  throw CommandError(2, file.path +
                            " has no free flags under a usual name: give --like-label LABEL" +
                            (options.like.empty() ? ", or leave --extend out" : ""));
}

FreeSet source_set(const FreeOptions& options, const FileColumn& column) {
  std::string problem;
  const auto set = choose_free_set(column, options.free_value, problem);
  if (!set) throw CommandError(2, problem + ": there is nothing to keep");
  return *set;
}

// How the older set names its flags: two values, or groups of equal size.
FlagValues values_of(const FileColumn& column, const FreeSet& set, const KeptFlags& kept) {
  std::map<int, std::size_t> counts;
  for (const float value : column.values) {
    if (std::isfinite(value)) ++counts[static_cast<int>(std::lround(value))];
  }
  FlagValues values;
  values.values.push_back(set.value);
  int most = set.value == 0 ? 1 : 0;
  std::size_t of_most = 0;
  for (const auto& [value, count] : counts) {
    if (value == set.value) continue;
    values.values.push_back(value);
    if (count > of_most) most = value;
    of_most = std::max(of_most, count);
  }
  values.two = counts.size() <= 2 || 2 * of_most > set.flags;
  values.per_free = static_cast<double>(counts.size());
  if (!values.two) return values;
  values.values = {set.value, most};
  values.per_free = std::max(2.0, kept.orbits_for_each(set.value));
  return values;
}

void keep(const ReflectionFile& file, const FileColumn& column, KeptFlags& kept) {
  for (std::size_t i = 0; i < file.rows; ++i) {
    int hkl[3];
    if (!std::isfinite(column.values[i]) || !file.index(i, hkl)) continue;
    kept.add({hkl[0], hkl[1], hkl[2]}, static_cast<int>(std::lround(column.values[i])));
  }
}

FlagValues values_asked_for(const FreeOptions& options) {
  FlagValues values;
  values.per_free = 100.0 / options.percent;
  values.two = options.values == "binary";
  if (values.two) values.values = {1, 0};
  return values;
}

// The older set, if there is one.
void take_source(const FreeOptions& options, const ReflectionFile& file, KeptFlags& kept,
                 FreeFlags& flags) {
  flags.values = values_asked_for(options);
  if (options.like.empty() && !options.extend) return;
  std::optional<ReflectionFile> other;
  if (!options.like.empty()) {
    other = read_reflections(options.like, options.verbose);
    check_same_form(file, *other);
  }
  const ReflectionFile& from = other ? *other : file;
  const FileColumn& column = source_column(options, from);
  flags.source = {from.path, source_set(options, column)};
  keep(from, column, kept);
  flags.values = values_of(column, flags.source.set, kept);
  flags.source.conflicts = kept.conflicts();
  flags.source.follows_lattice = kept.follows_lattice();
}

using Drawn = std::unordered_map<OrbitKey, int>;

// What must be drawn: orbits without a flag, and behind them those that rows have beside.
Drawn draw(const FreeOptions& options, const ReflectionFile& file, const Orbits& orbits,
           const KeptFlags& kept, const FlagValues& values) {
  const gemmi::UnitCell cell = cell_of(file);
  constexpr double slack = 1e-6;
  std::vector<FreeOrbit> open =
      all_orbits(cell, *file.group, orbits, file.resolution[0] * (1 - slack));
  std::erase_if(open, [&](const FreeOrbit& o) { return kept.of(index_of(o.key)).has_value(); });
  Drawn drawn;
  for (const FreeOrbit& orbit : open) drawn.emplace(orbit.key, 0);
  std::vector<FreeOrbit> more;
  for (std::size_t i = 0; i < file.rows; ++i) {
    int h[3];
    if (!file.index(i, h) || kept.of({h[0], h[1], h[2]})) continue;
    const FreeOrbit orbit = orbit_of(cell, orbits, {h[0], h[1], h[2]});
    if (drawn.emplace(orbit.key, 0).second) more.push_back(orbit);
  }
  std::sort(more.begin(), more.end());
  open.insert(open.end(), more.begin(), more.end());
  const std::vector<int> flags =
      draw_flags(open.size(), values, static_cast<std::uint64_t>(options.seed));
  for (std::size_t i = 0; i < open.size(); ++i) drawn[open[i].key] = flags[i];
  return drawn;
}

std::optional<int> flag_of(const gemmi::Miller& hkl, const Orbits& orbits, const KeptFlags& kept,
                           const Drawn& drawn) {
  if (const auto flag = kept.of(hkl)) return flag;
  const auto found = drawn.find(orbits.key(hkl));
  return found == drawn.end() ? std::nullopt : std::optional(found->second);
}

void flag_rows(const ReflectionFile& file, const Orbits& orbits, const KeptFlags& kept,
               const Drawn& drawn, FreeFlags& flags) {
  flags.rows.resize(file.rows);
  for (std::size_t i = 0; i < file.rows; ++i) {
    int h[3];
    if (!file.index(i, h)) continue;
    const gemmi::Miller hkl = {h[0], h[1], h[2]};
    flags.rows[i] = flag_of(hkl, orbits, kept, drawn);
    if (!flags.rows[i]) continue;
    ++(kept.of(hkl) ? flags.kept : flags.drawn);
  }
}

void flag_missing(const ReflectionFile& file, const Orbits& laue, const Orbits& orbits,
                  const KeptFlags& kept, const Drawn& drawn, FreeFlags& flags) {
  std::unordered_map<OrbitKey, bool> present;
  for (std::size_t i = 0; i < file.rows; ++i) {
    int h[3];
    if (file.index(i, h)) present[laue.key({h[0], h[1], h[2]})] = true;
  }
  constexpr double slack = 1e-6;
  for_all_unique(cell_of(file), file.group, file.resolution[0] * (1 - slack), 0.0,
                 [&](const gemmi::Miller& hkl) {
                   const auto flag = flag_of(hkl, orbits, kept, drawn);
                   if (!flag || present.count(laue.key(hkl)) > 0) return;
                   flags.added.push_back(hkl);
                   flags.added_flags.push_back(*flag);
                 });
}

void check_file(const ReflectionFile& file) {
  if (file.rows == 0) throw CommandError(2, file.path + " holds no reflections");
  if (file.batches > 0) {
    throw CommandError(2, file.path + format(": unmerged data (%d batches): merge them first, by "
                                             "quorix convert --merge",
                                             file.batches));
  }
  if (!file.group) throw CommandError(2, "the space group of " + file.path + " is not known");
  if (!are_countable(file.cell, file.resolution[0])) {
    throw CommandError(2, file.path + " has no cell that its reflections can be counted in");
  }
}

void warn(const FreeOptions& options, FreeFlags& flags) {
  const std::size_t none = flags.rows.size() - flags.flagged() + flags.added.size();
  if (flags.source.conflicts > 0) {
    flags.warnings.push_back(
        flags.source.file +
        format(": %zu rows have another flag than an equivalent one: the first counts",
               flags.source.conflicts));
  }
  if (!flags.source.file.empty() && !options.extend && none > 0) {
    flags.warnings.push_back(format("%zu reflections have no flag in ", none) + flags.source.file +
                             " and get none: --extend draws them");
  }
}

}  // namespace

std::size_t FreeFlags::count(int value) const {
  return static_cast<std::size_t>(std::count(rows.begin(), rows.end(), std::optional(value)) +
                                  std::count(added_flags.begin(), added_flags.end(), value));
}

std::size_t FreeFlags::flagged() const {
  const auto has = [](const std::optional<int>& flag) { return flag.has_value(); };
  return static_cast<std::size_t>(std::count_if(rows.begin(), rows.end(), has)) + added.size();
}

FreeFlags make_flags(const FreeOptions& options, const ReflectionFile& file) {
  check_file(file);
  const Orbits laue(file.group->operations());
  const Orbits lattice(lattice_group(cell_of(file), *file.group, options.obliquity));
  FreeFlags flags;
  flags.operators = lattice.order();
  flags.own_operators = laue.order();
  KeptFlags kept(laue, lattice);
  take_source(options, file, kept, flags);
  Drawn drawn;
  if (options.like.empty() || options.extend) {
    drawn = draw(options, file, lattice, kept, flags.values);
  }
  flag_rows(file, lattice, kept, drawn, flags);
  if (options.complete) flag_missing(file, laue, lattice, kept, drawn, flags);
  if (flags.count(flags.values.free_value()) == 0) {
    throw CommandError(2, format("none of %zu reflections would be free: a larger --percent, or "
                                 "another --like, is needed",
                                 flags.rows.size()));
  }
  warn(options, flags);
  return flags;
}

std::string choose_label(const FreeOptions& options, const ReflectionFile& file,
                         const FreeFlags& flags) {
  const FileColumn* own = usual_free_column(file);
  const bool extends_own = options.extend && options.like.empty();
  std::string label = options.label;
  if (label.empty() && extends_own) return flags.source.set.label;
  if (label.empty() && own && options.replace) return own->label;
  if (label.empty() && own) {
    throw CommandError(2, file.path + " has free flags already, " + own->label +
                              ": --replace puts others in their place, --label NAME beside them, "
                              "--extend alone fills them up");
  }
  if (label.empty()) label = flags.source.file.empty() ? "FreeR_flag" : flags.source.set.label;
  if (!options.replace && !file.find(label).empty()) {
    throw CommandError(2, file.path + " has a column " + label +
                              ": --replace puts the flags in its place, --label NAME beside it");
  }
  return label;
}

}  // namespace qx
