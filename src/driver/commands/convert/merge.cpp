// Merging of unmerged observations: the means by gemmi, and how well those of a reflection agree.
#include "driver/commands/command_error.h"
#include "driver/commands/convert/job.h"
#include "driver/commands/resolution_shells.h"

#include <gemmi/merge.hpp>
#include <map>

namespace qx {

namespace {

using Observations = std::vector<gemmi::Intensities::Refl>;

// What is summed over the reflections of a shell.
struct Sums {
  std::size_t observations = 0, unique = 0, possible = 0, repeated = 0;
  double merge = 0, meas = 0, pim = 0, intensity = 0;  // of reflections with several observations
  double over_sigma = 0;
  double mean = 0, mean_square = 0, error = 0;  // of the same, for CC1/2

  void add(const gemmi::Intensities::Refl* first, std::size_t n);
};

// R factors hold the observations against their weighted mean; CC1/2 follows from the variance of
// the means and that of the observations about them, without halves drawn at random.
void Sums::add(const gemmi::Intensities::Refl* first, std::size_t n) {
  double weights = 0, weighted = 0, plain = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const double w = 1.0 / (first[i].sigma * first[i].sigma);
    weights += w;
    weighted += w * first[i].value;
    plain += first[i].value;
  }
  const double mean_here = weighted / weights;
  observations += n;
  ++unique;
  over_sigma += mean_here * std::sqrt(weights);
  if (n < 2) return;
  const double count = static_cast<double>(n);
  plain /= count;
  double deviation = 0, variance = 0;
  for (std::size_t i = 0; i < n; ++i) {
    deviation += std::fabs(first[i].value - mean_here);
    variance += (first[i].value - plain) * (first[i].value - plain);
    intensity += first[i].value;
  }
  merge += deviation;
  meas += std::sqrt(count / (count - 1)) * deviation;
  pim += std::sqrt(1 / (count - 1)) * deviation;
  ++repeated;
  mean += plain;
  mean_square += plain * plain;
  error += variance / (count - 1) / (count / 2);
}

MergingShell shell_of(const Sums& sums, double low, double high) {
  MergingShell shell;
  shell.low = low;
  shell.high = high;
  shell.observations = sums.observations;
  shell.unique = sums.unique;
  shell.possible = sums.possible;
  if (sums.unique > 0) shell.mean_over_sigma = sums.over_sigma / static_cast<double>(sums.unique);
  if (sums.intensity > 0) {
    shell.r_merge = sums.merge / sums.intensity;
    shell.r_meas = sums.meas / sums.intensity;
    shell.r_pim = sums.pim / sums.intensity;
  }
  if (sums.repeated < 3) return shell;
  const double n = static_cast<double>(sums.repeated);
  const double of_means = (sums.mean_square - sums.mean * sums.mean / n) / (n - 1);
  const double of_halves = 0.5 * sums.error / n;
  if (of_means + of_halves > 0) {
    // The variance of the means holds half of that between halves.
    shell.cc_half = (of_means - of_halves) / (of_means + of_halves);
  }
  return shell;
}

void take_observations(const gemmi::Mtz& mtz, gemmi::Intensities& intensities) {
  try {
    intensities.read_unmerged_intensities_from_mtz(mtz);
  } catch (const std::exception& error) {
    throw CommandError(2, std::string("the observations cannot be merged: ") + error.what());
  }
  intensities.remove_systematic_absences();
  if (intensities.data.empty()) throw CommandError(2, "there are no observations to merge");
  if (!intensities.unit_cell.is_crystal()) intensities.unit_cell = mtz.cell;
}

// In the order of reflections, Friedel mates as one.
template <class Take>
void for_each_reflection(const Observations& data, Take take) {
  for (std::size_t i = 0, end = 0; i < data.size(); i = end) {
    for (end = i; end < data.size() && data[end].hkl == data[i].hkl;) ++end;
    take(&data[i], end - i);
  }
}

Merging count(const gemmi::Intensities& intensities, int shells) {
  const auto range = intensities.resolution_range();
  constexpr double slack = 1e-6;
  const ShellLimits limits = {range[0] * (1 + slack), range[1] * (1 - slack), shells};
  const auto shell_at = [&](const gemmi::Miller& hkl) {
    return limits.of(intensities.unit_cell.calculate_d(hkl));
  };
  std::vector<Sums> sums(static_cast<std::size_t>(shells));
  Sums all;
  for_each_reflection(intensities.data, [&](const auto* first, std::size_t n) {
    sums[shell_at(first->hkl)].add(first, n);
    all.add(first, n);
  });
  const auto possible = possible_by_shell(intensities.unit_cell, intensities.spacegroup, limits);
  for (std::size_t i = 0; i < possible.size(); ++i) {
    sums[i].possible = possible[i];
    all.possible += possible[i];
  }
  Merging merging;
  for (int i = 0; i < shells; ++i) {
    merging.shells.push_back(
        shell_of(sums[static_cast<std::size_t>(i)], limits.bound(i), limits.bound(i + 1)));
  }
  merging.overall = shell_of(all, limits.low, limits.high);
  return merging;
}

// Columns by label, and the place of each reflection among the rows.
class MergedRows {
 public:
  explicit MergedRows(std::size_t labels) : width_(3 + labels) {}
  float* row(const gemmi::Miller& hkl) {
    const auto [at, is_new] = places_.try_emplace(hkl, data.size());
    if (is_new) {
      for (const int index : hkl) data.push_back(static_cast<float>(index));
      data.resize(data.size() + width_ - 3, NAN);
    }
    return data.data() + at->second;
  }
  std::vector<float> data;

 private:
  std::size_t width_;
  std::map<gemmi::Miller, std::size_t> places_;
};

void fill(gemmi::Intensities& intensities, bool anomalous, MergedRows& rows) {
  const Observations observed = intensities.data;
  if (anomalous) {
    intensities.merge_in_place(gemmi::DataType::Anomalous);
    for (const auto& refl : intensities.data) {
      float* row = rows.row(refl.hkl) + (refl.isign < 0 ? 8 : 6);
      row[0] = static_cast<float>(refl.value);
      row[1] = static_cast<float>(refl.sigma);
    }
    intensities.data = observed;
  }
  intensities.merge_in_place(gemmi::DataType::Mean);
  for (const auto& refl : intensities.data) {
    float* row = rows.row(refl.hkl);
    row[3] = static_cast<float>(refl.value);
    row[4] = static_cast<float>(refl.sigma);
    row[5] = refl.nobs;
  }
}

}  // namespace

Merging merge(gemmi::Mtz& mtz, const ConvertOptions& options) {
  gemmi::Intensities intensities;
  take_observations(mtz, intensities);
  const std::size_t rows_before = static_cast<std::size_t>(mtz.nreflections);
  intensities.sort();
  Merging merging = count(intensities, options.shells);
  merging.left_out = rows_before - intensities.data.size();
  std::vector<std::pair<std::string, char>> columns = {
      {"IMEAN", 'J'}, {"SIGIMEAN", 'Q'}, {"NOBS", 'R'}};
  if (options.anomalous) {
    columns.insert(columns.end(),
                   {{"I(+)", 'K'}, {"SIGI(+)", 'M'}, {"I(-)", 'K'}, {"SIGI(-)", 'M'}});
  }
  MergedRows rows(columns.size());
  fill(intensities, options.anomalous, rows);
  const int dataset = mtz.get_column_with_label("I").dataset_id;
  mtz.columns.resize(3);
  mtz.data.clear();
  mtz.nreflections = 0;
  for (const auto& [label, type] : columns) mtz.add_column(label, type, dataset, -1, false);
  mtz.batches.clear();
  mtz.data = std::move(rows.data);
  mtz.nreflections = static_cast<int>(mtz.data.size() / mtz.columns.size());
  mtz.set_cell_for_all(intensities.unit_cell);
  mtz.sort_order = {};
  mtz.sort();
  return merging;
}

}  // namespace qx
