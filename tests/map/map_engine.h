// An engine with a crystal, a grid and a map filled in by hand.
#pragma once

#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/crystal.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "grid/grid.h"
#include "map/map.h"
#include "support/engine.h"
#include "support/random_crystal.h"

#include <quorix/crystal.h>

#include <array>
#include <vector>

namespace qx::test {

class MapEngine : public Engine {
 protected:
  void install(const RandomCrystal& crystal, const std::array<int, 3>& n) {
    ASSERT_EQ(qx_new_qxxcry(), ok);
    const Cell& c = crystal.cell();
    qxcell* cell = qx_get_qxcell();
    cell->a = c.a;
    cell->b = c.b;
    cell->c = c.c;
    cell->alpha = c.alpha;
    cell->beta = c.beta;
    cell->gamma = c.gamma;
    cell->volume = crystal.volume();
    qxspg* spg = qx_get_qxspg();
    spg->spg_id = 1;
    spg->nops = static_cast<std::int32_t>(crystal.group().size());
    spg->ops = reinterpret_cast<double(*)[16]>(
        allocate_zeroed<double>(crystal.group().size() * 16, "ops"));
    for (std::int32_t i = 0; i < spg->nops; ++i)
      set_operator(spg->ops[i], crystal.group()[static_cast<std::size_t>(i)]);
    ASSERT_EQ(qx_new_xgrid(), ok);
    set_grid(n);
    ASSERT_EQ(qx_new_qxmap(), ok);
  }

  static void set_operator(double (&matrix)[16], const Operator& op) {
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) matrix[4 * r + c] = op.r[r][c];
      matrix[4 * r + 3] = op.t24[r] / 24.0;
    }
    matrix[15] = 1.0;
  }

  static void set_grid(const std::array<int, 3>& n) {
    qxgrid* grid = qx_get_qxgrid();
    grid->nx = n[0];
    grid->ny = n[1];
    grid->nz = n[2];
  }

  // A map from rows as they are given.
  static Status generate(const std::vector<Row>& rows) {
    std::vector<std::int32_t> h, k, l;
    std::vector<double> amplitude, phase;
    for (const Row& row : rows) {
      h.push_back(row.hkl.h);
      k.push_back(row.hkl.k);
      l.push_back(row.hkl.l);
      amplitude.push_back(row.amplitude);
      phase.push_back(row.phase_deg);
    }
    return qx_generate_map_with_coef(static_cast<std::int32_t>(rows.size()), h.data(), k.data(),
                                     l.data(), amplitude.data(), phase.data());
  }
};

}  // namespace qx::test
