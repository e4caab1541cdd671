#include "driver/commands/map/check.h"

#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "crystal/symop.h"
#include "map/map.h"

#include <quorix/engine.h>
#include <quorix/memory.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <set>
#include <vector>

namespace qx {

namespace {

constexpr int wanted_points = 100;

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
void add_terms(const qxspg& spg, const Index& hkl, std::complex<double> f, double weight,
               Orbits& orbits, bool opposites_too, std::vector<Term>& terms) {
  std::vector<Index> mates;
  for (std::int32_t i = 0; i < spg.nops; ++i) {
    Index mate = {};
    int rotated[3] = {};
    const int index[3] = {hkl[0], hkl[1], hkl[2]};
    rotate_index(index, spg.ops[i], rotated);
    std::copy_n(rotated, 3, mate.begin());
    mates.push_back(mate);
  }
  if (!orbits.insert(hkl, mates, opposites_too)) return;
  const Index opposite = {-hkl[0], -hkl[1], -hkl[2]};
  const auto times = std::count(mates.begin(), mates.end(), hkl);
  const bool centric = std::find(mates.begin(), mates.end(), opposite) != mates.end();
  weight /= static_cast<double>(times) * (centric && opposites_too ? 2.0 : 1.0);
  for (std::int32_t i = 0; i < spg.nops; ++i) {
    const double* op = spg.ops[i];
    const double cycles = hkl[0] * op[3] + hkl[1] * op[7] + hkl[2] * op[11];
    terms.push_back({mates[static_cast<std::size_t>(i)],
                     weight * f * std::polar(1.0, -2.0 * pi * (cycles - std::floor(cycles)))});
  }
}

Status collect_terms(std::vector<Term>& terms) {
  const qxrefdata* set = map_refdata();
  const qxspg* spg = set ? qx_get_qxspg() : nullptr;
  if (!spg) return failed;
  const auto n = static_cast<std::size_t>(set->nreflections);
  std::vector<double> amplitude(n);
  std::vector<double> phase(n);
  if (qx_assemble_input_map_coeff(amplitude.data(), phase.data()) != ok) return failed;
  const bool opposites_too = set->friedel_flag == 0;
  Orbits orbits;
  for (std::size_t row = 0; row < n; ++row) {
    add_terms(*spg, {set->h[row], set->k[row], set->l[row]},
              std::polar(amplitude[row], phase[row] * pi / 180.0), opposites_too ? 2.0 : 1.0,
              orbits, opposites_too, terms);
  }
  return ok;
}

double largest_deviation(const qx_ccp4_map& file, const std::vector<Term>& terms) {
  const qxmap* map = qx_get_qxmap();
  const qxcell* cell = map ? qx_get_qxcell() : nullptr;
  if (!cell) return INFINITY;
  const bool scaled = map->scale != 0 && map->rms > 0.0;
  const double unit = (scaled ? map->rms : 1.0) * cell->volume;
  const double rms = scaled ? 1.0 : map->rms;
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
