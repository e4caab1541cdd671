#include "driver/commands/info/map_symmetry.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <gemmi/symmetry.hpp>  // for parse_triplet, find_spacegroup_by_number
#include <stdexcept>
#include <type_traits>

namespace qx {

namespace {

constexpr double most_index = 1e12;             // beyond it the remainders above are rounding
constexpr std::int64_t most_pairs = 4'000'000;  // enough to see a fault, quick on any map

// Points of a row and their mates, which lie `stride` apart.
struct Run {
  std::int64_t first, place, n, stride;
};

struct Sums {
  double n = 0, a = 0, b = 0, aa = 0, bb = 0, ab = 0, largest = 0;

  Sums& operator+=(const Sums& other) {
    n += other.n;
    a += other.a;
    b += other.b;
    aa += other.aa;
    bb += other.bb;
    ab += other.ab;
    largest = std::max(largest, other.largest);
    return *this;
  }
  [[nodiscard]] SymmetryCheck result() const {
    const double va = aa / n - a / n * (a / n);
    const double vb = bb / n - b / n * (b / n);
    const double cov = ab / n - a / n * (b / n);
    SymmetryCheck check;
    check.pairs = static_cast<std::int64_t>(n);
    check.correlation = va > 0 && vb > 0 ? cov / std::sqrt(va * vb) : 0.0;
    check.largest = va > 0 ? largest / std::sqrt(va) : 0.0;
    return check;
  }
};

// Sums of runs, two pairs at a time.
class LaneSums {
 public:
  template <class T>
  void add(const T* own, const T* mates, const Run& run) {
    n_ += run.n;
    const T* from = own + run.first;
    const T* to = mates + run.place;
    if (run.stride == 1) {
      add_all(from, to, run.n, std::integral_constant<std::int64_t, 1>());
    } else {
      add_all(from, to, run.n, run.stride);
    }
  }
  [[nodiscard]] Sums sum() const {
    return {static_cast<double>(n_),
            a_[0] + a_[1],
            b_[0] + b_[1],
            aa_[0] + aa_[1],
            bb_[0] + bb_[1],
            ab_[0] + ab_[1],
            std::max(largest_[0], largest_[1])};
  }

 private:
  using Two = double __attribute__((vector_size(16)));

  template <class T, class Stride>
  void add_all(const T* from, const T* to, std::int64_t n, Stride stride) {
    const auto value = [](T x) { return static_cast<double>(x); };
    LaneSums sums = *this;  // which may stay in registers
    std::int64_t i = 0;
    for (; i + 2 <= n; i += 2) {
      const Two x = {value(from[i]), value(from[i + 1])};
      const Two y = {value(to[i * stride]), value(to[(i + 1) * stride])};
      sums.add_two(x, y);
    }
    if (i < n) {  // two zeros add nothing
      const Two x = {value(from[i]), 0.0};
      const Two y = {value(to[i * stride]), 0.0};
      sums.add_two(x, y);
    }
    *this = sums;
  }
  void add_two(Two x, Two y) {
    a_ += x;
    b_ += y;
    aa_ += x * x;
    bb_ += y * y;
    ab_ += x * y;
    const Two apart = x - y;
    largest_ = apart > largest_ ? apart : largest_;
    largest_ = -apart > largest_ ? -apart : largest_;
  }

  Two a_ = {}, b_ = {}, aa_ = {}, bb_ = {}, ab_ = {}, largest_ = {};
  std::int64_t n_ = 0;
};

// Where an operator takes the points of a row: if it takes all grid points to grid points, the
// mates of a row lie in a row of the infinite crystal.
class MateRow {
 public:
  MateRow(const gemmi::Op& op, const qx_ccp4_map& map) : op_(&op), map_(&map) {
    for (std::size_t i = 0; i < 3 && straight_; ++i) {
      const double n = map.intervals[i];
      straight_ = is_whole(op.tran.at(i) * n / gemmi::Op::DEN);
      for (std::size_t j = 0; j < 3 && straight_; ++j) {
        const double step = op.rot.at(i).at(j) * n / map.intervals[j] / gemmi::Op::DEN;
        straight_ = is_whole(step);
        if (j == 0) step_.at(i) = std::llround(step);
      }
    }
  }
  MateRow(MateRow&&) = default;

  // Calls `take` with runs of points of the row whose mates the map holds and which are not their
  // own.
  template <class Take>
  void for_each(const GridPoint& first, Take take) const {
    if (!straight_) {
      look_up(first, [&](std::int64_t x, std::int64_t place) { take(Run{x, place, 1, 1}); });
    } else if (std::equal(map_->counts, map_->counts + 3, map_->intervals)) {
      stride_along(first, take);
    } else {
      walk(first, [&](std::int64_t x, std::int64_t place) { take(Run{x, place, 1, 1}); });
    }
  }

 private:
  static bool is_whole(double x) { return std::fabs(x - std::nearbyint(x)) < 1e-9; }
  [[nodiscard]] std::int64_t place(const GridPoint& at) const {
    return (at[2] * map_->counts[1] + at[1]) * map_->counts[0] + at[0];
  }
  [[nodiscard]] bool holds(const GridPoint& at) const {
    return at[0] < map_->counts[0] && at[1] < map_->counts[1] && at[2] < map_->counts[2];
  }
  // The grid point as the map's box counts, 0 to n - 1.
  [[nodiscard]] GridPoint in_cell(const GridPoint& point) const {
    GridPoint at;
    for (std::size_t i = 0; i < 3; ++i) {
      const std::int64_t n = map_->intervals[i];
      at.at(i) = ((point.at(i) - map_->starts[i]) % n + n) % n;
    }
    return at;
  }
  // The point of the row that is its own mate; -1 if none is, -2 if all are.
  [[nodiscard]] std::int64_t own_mate(const GridPoint& first, const GridPoint& mate) const {
    std::int64_t own = -2;
    for (std::size_t i = 0; i < 3; ++i) {
      const std::int64_t apart = mate.at(i) - first.at(i);
      const std::int64_t drift = step_.at(i) - (i == 0 ? 1 : 0);
      if (drift == 0 && apart == 0) continue;
      if (drift == 0 || apart % drift != 0 || -apart / drift < 0) return -1;
      const std::int64_t x = -apart / drift;
      if (own >= 0 && own != x) return -1;
      own = x;
    }
    return own;
  }
  template <class Take>
  void walk(const GridPoint& first, Take take) const {
    GridPoint mate;
    if (!mate_of(*op_, first, map_->intervals, mate)) return;
    const std::int64_t own = own_mate(first, mate);
    if (own == -2) return;
    GridPoint at = in_cell(mate);
    GridPoint step;
    for (std::size_t i = 0; i < 3; ++i) {
      const std::int64_t n = map_->intervals[i];
      step.at(i) = (step_.at(i) % n + n) % n;
    }
    for (std::int64_t x = 0; x < map_->counts[0]; ++x) {
      if (x != own && holds(at)) take(x, place(at));
      for (std::size_t i = 0; i < 3; ++i) {
        at.at(i) += step.at(i);
        at.at(i) -= at.at(i) >= map_->intervals[i] ? map_->intervals[i] : 0;
      }
    }
  }
  // Steps that mates go from `at` before one of them leaves the cell.
  [[nodiscard]] std::int64_t steps_within(const GridPoint& at) const {
    std::int64_t steps = map_->counts[0];
    for (std::size_t i = 0; i < 3; ++i) {
      if (step_.at(i) > 0) {
        steps = std::min(steps, (map_->intervals[i] - 1 - at.at(i)) / step_.at(i) + 1);
      } else if (step_.at(i) < 0) {
        steps = std::min(steps, at.at(i) / -step_.at(i) + 1);
      }
    }
    return steps;
  }
  // In a whole cell mates lie at equal distances until one leaves the cell.
  template <class Take>
  void stride_along(const GridPoint& first, Take take) const {
    GridPoint mate;
    if (!mate_of(*op_, first, map_->intervals, mate)) return;
    const std::int64_t own = own_mate(first, mate);
    if (own == -2) return;
    const std::int64_t stride =
        (step_[2] * map_->counts[1] + step_[1]) * map_->counts[0] + step_[0];
    GridPoint at = in_cell(mate);
    for (std::int64_t x = 0; x < map_->counts[0];) {
      std::int64_t n = std::min(steps_within(at), map_->counts[0] - x);
      if (x < own && own < x + n) n = own - x;
      if (x == own) {
        n = 1;
      } else {
        take(Run{x, place(at), n, stride});
      }
      x += n;
      for (std::size_t i = 0; i < 3; ++i) {
        const std::int64_t period = map_->intervals[i];
        at.at(i) = ((at.at(i) + n * step_.at(i)) % period + period) % period;
      }
    }
  }
  template <class Take>
  void look_up(const GridPoint& first, Take take) const {
    for (std::int64_t x = 0; x < map_->counts[0]; ++x) {
      const GridPoint point = {first[0] + x, first[1], first[2]};
      GridPoint mate;
      if (!mate_of(*op_, point, map_->intervals, mate) || mate == point) continue;
      const GridPoint at = in_cell(mate);
      if (holds(at)) take(x, place(at));
    }
  }

  const gemmi::Op* op_;
  const qx_ccp4_map* map_;
  bool straight_ = true;
  GridPoint step_ = {};  // of the mate, for a step along x
};

}  // namespace

bool mate_of(const gemmi::Op& op, const GridPoint& point, const std::int32_t (&n)[3],
             GridPoint& mate) {
  for (std::size_t i = 0; i < 3; ++i) {
    double x = static_cast<double>(op.tran.at(i)) * n[i];
    for (std::size_t j = 0; j < 3; ++j) {
      x += op.rot.at(i).at(j) * static_cast<double>(point.at(j)) * n[i] / n[j];
    }
    x /= gemmi::Op::DEN;
    const double rounded = std::nearbyint(x);
    if (std::fabs(x - rounded) > 1e-4 || std::fabs(rounded) > most_index) return false;
    mate.at(i) = static_cast<std::int64_t>(rounded);
  }
  return true;
}

gemmi::Op read_operator(const std::string& text) {
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  const auto number = [&](auto at) { return std::find_if_not(at, text.end(), is_digit) - at; };
  for (auto at = text.begin(); at != text.end(); ++at) {
    if (number(at) > 3) throw std::runtime_error("a number out of range in: " + text);
  }
  return gemmi::parse_triplet(text);
}

template <class T>
SymmetryCheck check_symmetry(const qx_ccp4_map& map, const T* values,
                             const std::vector<std::string>& operators) {
  std::vector<gemmi::Op> ops;
  for (const std::string& text : operators) {
    const gemmi::Op op = read_operator(text).wrap();
    if (op != gemmi::Op::identity()) ops.push_back(op);
  }
  std::vector<MateRow> mates;
  mates.reserve(ops.size());
  for (const gemmi::Op& op : ops) mates.emplace_back(op, map);
  const std::int64_t rows = std::int64_t{map.counts[1]} * map.counts[2];
  const auto nops = static_cast<std::int64_t>(ops.size());
  // An odd step: an even one could fall on special planes only.
  const std::int64_t step = rows * map.counts[0] * nops / most_pairs * 2 + 1;
  const bool beyond = map.counts[0] > map.intervals[0];
  Sums sums;
  for (std::int64_t row = 0; row < rows; row += step) {
    const std::int64_t y = row % map.counts[1];
    const std::int64_t z = row / map.counts[1];
    const GridPoint first = {map.starts[0], y + map.starts[1], z + map.starts[2]};
    // A map of more than the cell has its points from the cell.
    const T* own =
        values + (z % map.intervals[2] * map.counts[1] + y % map.intervals[1]) * map.counts[0];
    for (const MateRow& mate : mates) {
      LaneSums of_row;
      mate.for_each(first, [&](Run run) {
        if (beyond) run.first %= map.intervals[0];  // one point
        of_row.add(own, values, run);
      });
      sums += of_row.sum();
    }
  }
  return sums.n > 0 ? sums.result() : SymmetryCheck();
}

template SymmetryCheck check_symmetry(const qx_ccp4_map& map, const float* values,
                                      const std::vector<std::string>& operators);
template SymmetryCheck check_symmetry(const qx_ccp4_map& map, const double* values,
                                      const std::vector<std::string>& operators);

std::vector<std::string> operators_of_group(std::int32_t number) {
  std::vector<std::string> texts;
  const gemmi::SpaceGroup* group = gemmi::find_spacegroup_by_number(number);
  if (!group) return texts;
  for (const gemmi::Op op : group->operations()) texts.push_back(op.triplet());
  return texts;
}

}  // namespace qx
