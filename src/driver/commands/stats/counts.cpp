// Counts, completeness and signal by resolution.
#include "driver/commands/resolution_shells.h"
#include "driver/commands/stats/job.h"
#include "driver/commands/unique_reflections.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

constexpr double slack = 1e-6;  // of limits, relative

struct Unique {
  gemmi::Miller hkl;
  double value, error;  // an error that is none is 0
};

bool earlier(const Unique& a, const Unique& b) { return a.hkl < b.hkl; }

double over(double sum, std::size_t n) { return n > 0 ? sum / static_cast<double>(n) : 0.0; }

void add(const Unique& r, StatsShell& shell) {
  ++shell.measured;
  shell.sum += r.value;
  if (!(r.error > 0.0)) return;
  ++shell.with_error;
  shell.over_error += r.value / r.error;
}

// The columns that are looked at.
struct Measured {
  const FileColumn* value;
  const FileColumn* error;  // null without

  Measured(const ReflectionFile& file, const ObservedColumns& columns) {
    const bool amplitudes = !columns.amplitude.empty();
    value = file.find(amplitudes ? columns.amplitude : columns.intensity).front();
    const std::string& label = amplitudes ? columns.sigma : columns.intensity_sigma;
    error = label.empty() ? nullptr : file.find(label).front();
  }
  [[nodiscard]] double error_of(std::size_t row) const {
    const double sigma = error ? static_cast<double>(error->values[row]) : 0.0;
    return std::isfinite(sigma) && sigma > 0.0 ? sigma : 0.0;
  }
};

class Counting {
 public:
  Counting(const StatsJob& job, const gemmi::SpaceGroup* group)
      : file_(job.file),
        options_(job.options),
        group_(group),
        cell_(file_.cell[0], file_.cell[1], file_.cell[2], file_.cell[3], file_.cell[4],
              file_.cell[5]),
        measured_(file_, job.columns) {}

  StatsCounts count() {
    collect();
    if (unique_.empty()) return counts_;
    limit();
    fill_shells();
    return counts_;
  }

 private:
  [[nodiscard]] bool is_inside(double d) const {
    return std::isfinite(d) && (!(options_.dmin > 0.0) || d >= options_.dmin * (1 - slack)) &&
           (!(options_.dmax > 0.0) || d <= options_.dmax * (1 + slack));
  }

  // The measured reflections by their index in the asymmetric unit, each once.
  void collect() {
    const gemmi::ReciprocalAsu asu(group_);
    const gemmi::GroupOps operators = group_->operations();
    for (std::size_t row = 0; row < file_.rows; ++row) {
      int hkl[3] = {};
      if (!file_.index(row, hkl)) continue;
      const gemmi::Miller own = {hkl[0], hkl[1], hkl[2]};
      if (!is_inside(cell_.calculate_d(own))) continue;
      ++counts_.rows;
      const auto value = static_cast<double>(measured_.value->values[row]);
      if (!std::isfinite(value)) {
        ++counts_.missing;
        continue;
      }
      note(own, value, measured_.error_of(row), operators, asu);
    }
    std::stable_sort(unique_.begin(), unique_.end(), earlier);
    const auto end = std::unique(unique_.begin(), unique_.end(),
                                 [](const auto& a, const auto& b) { return a.hkl == b.hkl; });
    counts_.repeated = static_cast<std::size_t>(unique_.end() - end);
    unique_.erase(end, unique_.end());
  }

  void note(const gemmi::Miller& own, double value, double error, const gemmi::GroupOps& operators,
            const gemmi::ReciprocalAsu& asu) {
    if (!(error > 0.0)) ++counts_.without_error;
    if (!(value > 0.0)) ++counts_.not_positive;
    if (operators.is_systematically_absent(own)) {
      counts_.extinct += value > 0.0 ? 1 : 0;
      return;
    }
    ++(operators.is_reflection_centric(own) ? counts_.centric : counts_.acentric);
    unique_.push_back({asu.to_asu(own, operators).first, value, error});
  }

  // From the limits asked for, or those of the reflections themselves.
  void limit() {
    double low = 0.0;
    double high = INFINITY;
    for (const Unique& r : unique_) {
      const double d = cell_.calculate_d(r.hkl);
      low = std::max(low, d);
      high = std::min(high, d);
    }
    counts_.all.high = options_.dmin > 0.0 ? options_.dmin : high;
    counts_.all.low = options_.dmax > 0.0 ? std::min(options_.dmax, low) : low;
  }

  void fill_shells() {
    const StatsShell& all = counts_.all;
    const int n = all.high < all.low ? options_.shells : 1;
    const ShellLimits limits = {all.low, all.high, n};
    for (int i = 0; i < n; ++i) {
      counts_.shells.push_back({limits.bound(i), limits.bound(i + 1), 0, 0, 0, 0.0, 0.0});
    }
    const auto shell_of = [&](const gemmi::Miller& hkl) -> StatsShell& {
      return counts_.shells[n > 1 ? limits.of(cell_.calculate_d(hkl)) : 0];
    };
    for (const Unique& r : unique_) {
      add(r, shell_of(r.hkl));
      add(r, counts_.all);
    }
    if (!are_countable(file_.cell, all.high)) return;
    for_all_unique(cell_, group_, all.high * (1 - slack), all.low * (1 + slack),
                   [&](const gemmi::Miller& hkl) {
                     ++shell_of(hkl).possible;
                     ++counts_.all.possible;
                   });
  }

  const ReflectionFile& file_;
  const StatsOptions& options_;
  const gemmi::SpaceGroup* group_;
  gemmi::UnitCell cell_;
  Measured measured_;
  std::vector<Unique> unique_;
  StatsCounts counts_;
};

}  // namespace

double StatsShell::completeness() const { return over(static_cast<double>(measured), possible); }
double StatsShell::mean() const { return over(sum, measured); }
double StatsShell::mean_over_error() const { return over(over_error, with_error); }

StatsCounts count_observations(const StatsJob& job, const gemmi::SpaceGroup* group) {
  return Counting(job, group).count();
}

}  // namespace qx
