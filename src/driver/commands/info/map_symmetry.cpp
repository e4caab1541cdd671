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

// Density at a grid point of the infinite crystal; false if the box does not hold it.
bool density_at(const qx_ccp4_map& map, const Point& point, double& value) {
  Point in_box;
  for (std::size_t i = 0; i < 3; ++i) {
    const std::int64_t n = map.intervals[i];
    in_box.at(i) = ((point.at(i) - map.starts[i]) % n + n) % n;
    if (in_box.at(i) >= map.counts[i]) return false;
  }
  value = map.density[in_box[2]][in_box[1]][in_box[0]];
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

}  // namespace

gemmi::Op read_operator(const std::string& text) {
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  const auto number = [&](auto at) { return std::find_if_not(at, text.end(), is_digit) - at; };
  for (auto at = text.begin(); at != text.end(); ++at) {
    if (number(at) > 3) throw std::runtime_error("a number out of range in: " + text);
  }
  return gemmi::parse_triplet(text);
}

SymmetryCheck check_symmetry(const qx_ccp4_map& map, const std::vector<std::string>& operators) {
  std::vector<gemmi::Op> ops;
  for (const std::string& text : operators) {
    const gemmi::Op op = read_operator(text).wrap();
    if (op != gemmi::Op::identity()) ops.push_back(op);
  }
  const std::int64_t points = std::int64_t{map.counts[0]} * map.counts[1] * map.counts[2];
  const auto nops = static_cast<std::int64_t>(ops.size());
  // An odd step: an even one could fall on special planes only.
  const std::int64_t step = points * nops / most_pairs * 2 + 1;
  Sums sums;
  for (std::int64_t at = 0; at < points; at += step) {
    const std::int64_t row = at / map.counts[0];
    const Point point = {at % map.counts[0] + map.starts[0], row % map.counts[1] + map.starts[1],
                         row / map.counts[1] + map.starts[2]};
    double own = 0.0;
    double other = 0.0;
    if (!density_at(map, point, own)) continue;
    for (const gemmi::Op& op : ops) {
      Point mate;
      if (mate_of(op, point, map.intervals, mate) && mate != point &&
          density_at(map, mate, other)) {
        sums.add(own, other);
      }
    }
  }
  return sums.n > 0 ? sums.result() : SymmetryCheck();
}

std::vector<std::string> operators_of_group(std::int32_t number) {
  std::vector<std::string> texts;
  const gemmi::SpaceGroup* group = gemmi::find_spacegroup_by_number(number);
  if (!group) return texts;
  for (const gemmi::Op op : group->operations()) texts.push_back(op.triplet());
  return texts;
}

}  // namespace qx
