#include "driver/commands/map/check.h"

#include <quorix/engine.h>
#include <quorix/map.h>
#include <quorix/memory.h>
#include <quorix/views.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <set>
#include <vector>

namespace qx {

namespace {

constexpr int wanted_points = 100;
constexpr double pi = std::numbers::pi;

using Index = std::array<int, 3>;

struct Point {
  Index at;      // grid indices of the cell, 0 to n - 1
  double found;  // what the file says
};

struct Term {
  Index hkl;
  std::complex<double> f;  // with its weight
};

// exp(-2 pi i m / n) for all m.
std::vector<std::complex<double>> roots_of_unity(std::int32_t n) {
  std::vector<std::complex<double>> roots(static_cast<std::size_t>(n));
  for (std::size_t m = 0; m < roots.size(); ++m) {
    roots[m] = std::polar(1.0, -2.0 * pi * static_cast<double>(m) / n);
  }
  return roots;
}

Index wrapped(const Index& index, const std::int32_t (&n)[3]) {
  Index inside = {};
  for (std::size_t a = 0; a < 3; ++a) inside[a] = ((index[a] % n[a]) + n[a]) % n[a];
  return inside;
}

// Points all over the box, the same in every run.
std::vector<Point> choose_points(const qx_ccp4_map& map) {
  std::vector<Point> points;
  std::uint64_t state = 137;
  const auto below = [&state](std::int32_t n) {
    state = state * 6364136223846793005U + 1442695040888963407U;  // Knuth's MMIX generator
    return static_cast<std::int32_t>((state >> 33) % static_cast<std::uint64_t>(n));
  };
  while (points.size() < wanted_points) {
    const std::int32_t x = below(map.counts[0]);
    const std::int32_t y = below(map.counts[1]);
    const std::int32_t z = below(map.counts[2]);
    points.push_back(
        {wrapped({x + map.starts[0], y + map.starts[1], z + map.starts[2]}, map.intervals),
         map.density[z][y][x]});
  }
  return points;
}

class Orbits {
 public:
  // False if a row before has given this reflection already.
  bool insert(const Index& hkl, const std::vector<Index>& mates, bool opposites_too) {
    if (seen_.contains(hkl)) return false;
    for (const Index& mate : mates) {
      seen_.insert(mate);
      if (opposites_too) seen_.insert({-mate[0], -mate[1], -mate[2]});
    }
    return true;
  }

 private:
  std::set<Index> seen_;
};

// All terms of one reflection. Every operator contributes, so a reflection on a symmetry element
// comes more than once and is weighted down; the terms of an extinct one cancel.
void add_terms(const Index& hkl, std::complex<double> f, double weight, Orbits& orbits,
               bool opposites_too, std::vector<Term>& terms) {
  std::vector<Index> mates;
  std::vector<double> cycles;
  Index mate = {};
  double turn = 0.0;
  for (std::int32_t op = 0; qx_get_index_mate(op, hkl.data(), mate.data(), &turn) == 1; ++op) {
    mates.push_back(mate);
    cycles.push_back(turn);
  }
  if (!orbits.insert(hkl, mates, opposites_too)) return;
  const Index opposite = {-hkl[0], -hkl[1], -hkl[2]};
  const auto times = std::count(mates.begin(), mates.end(), hkl);
  const bool centric = std::find(mates.begin(), mates.end(), opposite) != mates.end();
  weight /= static_cast<double>(times) * (centric && opposites_too ? 2.0 : 1.0);
  for (std::size_t i = 0; i < mates.size(); ++i) {
    terms.push_back({mates[i], weight * f * std::polar(1.0, -2.0 * pi * cycles[i])});
  }
}

Status collect_terms(std::vector<Term>& terms) {
  qx_reflections_view set;
  qx_group_view group;
  if (qx_get_map_reflections_view(&set) != 1 || qx_get_group_view(&group) != 1) return failed;
  const auto n = static_cast<std::size_t>(set.n);
  std::vector<double> amplitude(n);
  std::vector<double> phase(n);
  if (qx_assemble_input_map_coeff(amplitude.data(), phase.data()) != ok) return failed;
  const bool opposites_too = set.friedel_opposites_differ == 0;
  Orbits orbits;
  for (std::size_t row = 0; row < n; ++row) {
    add_terms({set.h[row], set.k[row], set.l[row]},
              std::polar(amplitude[row], phase[row] * pi / 180.0), opposites_too ? 2.0 : 1.0,
              orbits, opposites_too, terms);
  }
  return ok;
}

double largest_deviation(const qx_ccp4_map& file, const std::vector<Term>& terms) {
  qx_map_view map;
  qx_cell_view cell;
  if (qx_get_map_view(&map) != 1 || qx_get_cell_view(&cell) != 1) return INFINITY;
  const bool scaled = map.scaled != 0 && map.rms > 0.0;
  const double unit = (scaled ? map.rms : 1.0) * cell.volume;
  const double rms = scaled ? 1.0 : map.rms;
  const std::vector<std::complex<double>> roots[3] = {roots_of_unity(file.intervals[0]),
                                                      roots_of_unity(file.intervals[1]),
                                                      roots_of_unity(file.intervals[2])};
  double largest = 0.0;
  for (const Point& point : choose_points(file)) {
    double sum = 0.0;
    for (const Term& term : terms) {
      std::complex<double> wave = term.f;
      for (std::size_t a = 0; a < 3; ++a) {
        const std::int64_t n = file.intervals[a];
        const std::int64_t turn = std::int64_t{term.hkl[a]} * point.at[a] % n;
        wave *= roots[a][static_cast<std::size_t>(turn < 0 ? turn + n : turn)];
      }
      sum += wave.real();
    }
    const double deviation = std::fabs(point.found - sum / unit) / (rms > 0.0 ? rms : 1.0);
    largest = std::isnan(deviation) ? INFINITY : std::max(largest, deviation);
  }
  return largest;
}

}  // namespace

MapCheck check_map(Engine& engine, const std::string& path) {
  MapCheck check;
  engine.call([&] {
    std::vector<Term> terms;
    qx_ccp4_map file = {};
    if (collect_terms(terms) != ok || qx_rd_ccp4_map(path.c_str(), &file) != ok) return failed;
    check.points = wanted_points;
    check.largest = largest_deviation(file, terms);
    return xfree_3d_double(file.density);
  });
  return check;
}

}  // namespace qx
