#include "driver/commands/info/map_symmetry.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <gemmi/symmetry.hpp>  // for parse_triplet, find_spacegroup_by_number
#include <stdexcept>

namespace qx {

namespace {

using Point = std::array<std::int64_t, 3>;

constexpr double most_index = 1e12;             // beyond it the remainders above are rounding
constexpr std::int64_t most_pairs = 4'000'000;  // enough to see a fault, quick on any map

// Grid point that the operator takes `point` to; false if it falls between the points.
bool mate_of(const gemmi::Op& op, const Point& point, const std::int32_t (&n)[3], Point& mate) {
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

struct Sums {
  double n = 0, a = 0, b = 0, aa = 0, bb = 0, ab = 0, largest = 0;

  void add(double x, double y) {
    n += 1;
    a += x;
    b += y;
    aa += x * x;
    bb += y * y;
    ab += x * y;
    largest = std::max(largest, std::fabs(x - y));
  }
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

  // Calls `take` with the number of a point in the row and its mate's place in the map, for every
  // mate that the map holds and that is another point.
  template <class Take>
  void for_each(const Point& first, Take take) const {
    if (straight_) {
      walk(first, take);
    } else {
      look_up(first, take);
    }
  }

 private:
  static bool is_whole(double x) { return std::fabs(x - std::nearbyint(x)) < 1e-9; }
  [[nodiscard]] std::int64_t place(const Point& at) const {
    return (at[2] * map_->counts[1] + at[1]) * map_->counts[0] + at[0];
  }
  [[nodiscard]] bool holds(const Point& at) const {
    return at[0] < map_->counts[0] && at[1] < map_->counts[1] && at[2] < map_->counts[2];
  }
  // The grid point as the map's box counts, 0 to n - 1.
  [[nodiscard]] Point in_cell(const Point& point) const {
    Point at;
    for (std::size_t i = 0; i < 3; ++i) {
      const std::int64_t n = map_->intervals[i];
      at.at(i) = ((point.at(i) - map_->starts[i]) % n + n) % n;
    }
    return at;
  }
  // The point of the row that is its own mate; -1 if none is, -2 if all are.
  [[nodiscard]] std::int64_t own_mate(const Point& first, const Point& mate) const {
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
  void walk(const Point& first, Take take) const {
    Point mate;
    if (!mate_of(*op_, first, map_->intervals, mate)) return;
    const std::int64_t own = own_mate(first, mate);
    if (own == -2) return;
    Point at = in_cell(mate);
    Point step;
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
  template <class Take>
  void look_up(const Point& first, Take take) const {
    for (std::int64_t x = 0; x < map_->counts[0]; ++x) {
      const Point point = {first[0] + x, first[1], first[2]};
      Point mate;
      if (!mate_of(*op_, point, map_->intervals, mate) || mate == point) continue;
      const Point at = in_cell(mate);
      if (holds(at)) take(x, place(at));
    }
  }

  const gemmi::Op* op_;
  const qx_ccp4_map* map_;
  bool straight_ = true;
  Point step_ = {};  // of the mate, for a step along x
};

}  // namespace

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
    const Point first = {map.starts[0], y + map.starts[1], z + map.starts[2]};
    // A map of more than the cell has its points from the cell.
    const T* own =
        values + (z % map.intervals[2] * map.counts[1] + y % map.intervals[1]) * map.counts[0];
    for (const MateRow& mate : mates) {
      Sums of_row;
      mate.for_each(first, [&](std::int64_t x, std::int64_t place) {
        of_row.add(static_cast<double>(own[beyond ? x % map.intervals[0] : x]),
                   static_cast<double>(values[place]));
      });
      sums += of_row;
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
