// Structure factors by FFT: objects, prefactor, the sums over operators, the model's F.
#include "sf/structfact.h"

#include "core/constants.h"
#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/slot.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "fft/transform_half.h"
#include "grid/grid.h"
#include "model/density.h"
#include "model/formfactors.h"
#include "model/molsys.h"
#include "sf/assemble.h"

#include <quorix/cell.h>
#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/fft.h>
#include <quorix/formfactors.h>
#include <quorix/grid.h>
#include <quorix/memory.h>
#include <quorix/model.h>
#include <quorix/reflections.h>
#include <quorix/spacegroup.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::PartSums;
using qx::release;
using qx::Status;

qxstructfact* qx_get_qxstructfact() { return qx::slot(qx_get_refsys(), &refsys::structfact); }
Status qx_set_qxstructfact(qxstructfact* object) {
  return qx::install(qx_get_refsys(), &refsys::structfact, object);
}
qxsincostab* qx_get_qxsincostab() { return qx::slot(qx_get_refsys(), &refsys::sincostab); }
Status qx_set_qxsincostab(qxsincostab* object) {
  return qx::install(qx_get_refsys(), &refsys::sincostab, object);
}

Status qx_new_qxstructfact() {
  return qx::create_in(qx_delete_qxstructfact, qx_set_qxstructfact, "pns_sf");
}
Status qx_new_qxsincostab() {
  return qx::create_in(qx_delete_qxsincostab, qx_set_qxsincostab, "pns_sincos");
}

namespace {

Status release_sums(PartSums& sums) {
  QX_TRY(release(sums.re));
  return release(sums.im);
}

Status release_all_sums(qxstructfact* sf) {
  sf->nref = 0;
  for (PartSums& sums : sf->parts) QX_TRY(release_sums(sums));
  return release_sums(sf->separate);
}

}  // namespace

Status qx_delete_qxstructfact() {
  qxstructfact* sf = qx_get_qxstructfact();
  if (!sf) return ok;
  QX_TRY(release_all_sums(sf));
  QX_TRY(release(sf->prefactor));
  QX_TRY(release(sf->scaling.bins));
  return qx::remove_from(sf, qx_set_qxstructfact);
}

Status qx_delete_qxsincostab() {
  qxsincostab* table = qx_get_qxsincostab();
  if (!table) return ok;
  QX_TRY(release(table->sine));
  QX_TRY(release(table->cosine));
  return qx::remove_from(table, qx_set_qxsincostab);
}

namespace {

// Angles as sums of a block's first and a place in it: the table costs a few hundred sines.
void fill_sincos(qxsincostab* table) {
  constexpr std::int32_t block = 400;
  static_assert(qxsincostab::n % block == 0);
  constexpr double step = qx::two_pi_single / qxsincostab::n;
  double s[block];
  double c[block];
  for (std::int32_t j = 0; j < block; ++j) {
    s[j] = std::sin(j * step);
    c[j] = std::cos(j * step);
  }
  for (std::int32_t start = 0; start < qxsincostab::n; start += block) {
    const double s0 = std::sin(start * step);
    const double c0 = std::cos(start * step);
    for (std::int32_t j = 0; j < block; ++j) {
      table->sine[start + j] = s0 * c[j] + c0 * s[j];
      table->cosine[start + j] = c0 * c[j] - s0 * s[j];
    }
  }
}

}  // namespace

Status qx_init_qxsincostab() {
  qxsincostab* table = qx_get_qxsincostab();
  if (!table) {
    return qx_exist_quorix()
               ? fail("qx_init_qxsincostab():", " qxsincostab object has not been created yet ")
               : failed;
  }
  QX_TRY(release(table->sine));
  QX_TRY(release(table->cosine));
  QX_TRY(qx::open_block(table->sine, qxsincostab::n, "pis_sin"));
  QX_TRY(qx::open_block(table->cosine, qxsincostab::n, "pis_cos"));
  fill_sincos(table);
  return ok;
}

Status qx_set_pre_factor() {
  constexpr const char* heading = "qx_set_pre_factor()";  // Kept: without the colon
  qxstructfact* sf = qx_get_qxstructfact();
  if (!sf) return fail(heading, " qxstructfact object has not been created yet.");
  const qxrefdata* data = qx_get_qxrefdata();
  if (!data) return fail(heading, "qxrefdata object has not been created yet.");
  if (sf->prefactor && data->nreflections == sf->nprefactor) return ok;
  const qxcell* cell = qx_get_qxcell();
  if (!cell) return fail(heading, "qxcell object has not been created yet.");
  const qxgrid* grid = qx_get_qxgrid();
  if (!grid || grid->nx < 1) return fail(heading, "qxgrid object has not been created yet.");
  const qxatomb* atomb = qx_get_qxatomb();
  if (!atomb) return fail(heading, "qxatomb object has not been created yet.");
  const qxrecicell* reciprocal = qx_get_qxrecicell();
  if (!reciprocal) return fail(heading, "qxrecicell object has not been created yet.");
  if (data->nreflections < 1) return ok;
  QX_TRY(release(sf->prefactor));
  QX_TRY(qx::open_block(sf->prefactor, static_cast<std::size_t>(data->nreflections), "pss_pre"));
  sf->nprefactor = data->nreflections;
  double* prefactor = sf->prefactor;
  const bool debug = qx_get_qxverbsys_verb_debug() != 0;
  const double sampling = (cell->a / grid->nx) * (cell->b / grid->ny) * (cell->c / grid->nz);
  const double(&r)[6] = reciprocal->resolution;
  for (std::int32_t i = 0; i < data->nreflections; ++i) {
    const double h = data->h[i];
    const double k = data->k[i];
    const double l = data->l[i];
    const double s2 =
        h * h * r[0] + k * k * r[1] + l * l * r[2] + h * k * r[3] + h * l * r[4] + k * l * r[5];
    prefactor[i] = std::exp(0.25 * atomb->b0 * s2) * sampling;
    if (debug && i % 50 == 0) {
      std::printf("DEBUG PREFACT: %8d %14.7e %14.7e %14.7e %14.7e %14.7e\n", i, h, k, l, s2,
                  prefactor[i]);
    }
  }
  return ok;
}

namespace {

// Everything one box of density needs to become structure factors.
struct Needs {
  qxsubgrid* box = nullptr;
  qxrefdata* data = nullptr;
  qxgrid* grid = nullptr;
  qxspg* group = nullptr;
  qxstructfact* sf = nullptr;
  const qxsincostab* table = nullptr;
};

constexpr const char* heading_fft = "qx_calc_sf_by_fft_eden():";

Status fetch(Needs& needs) {
  needs.box = qx_get_qxsubgrid();
  if (!needs.box) return fail(heading_fft, "qxsubgrid object has not been created yet.");
  needs.data = qx_get_qxrefdata();
  if (!needs.data) return fail(heading_fft, "qxrefdata object has not been created yet.");
  if (!qx_get_qxelecden()) return fail(heading_fft, "qxelecden object has not been created yet.");
  needs.grid = qx_get_qxgrid();
  if (!needs.grid) return fail(heading_fft, "qxgrid object has not been created yet.");
  needs.group = qx_get_qxspg();
  if (!needs.group) return fail(heading_fft, "qxspg object has not been created yet.");
  needs.sf = qx_get_qxstructfact();
  if (!needs.sf) return fail(heading_fft, "qxstructfact object has not been created yet.");
  if (!qx_get_qxsincostab()) QX_TRY(qx_new_qxsincostab());
  needs.table = qx_get_qxsincostab();
  if (!needs.table) return failed;
  if (!needs.table->sine) QX_TRY(qx_init_qxsincostab());
  const bool fitting = needs.grid->ref_ix && needs.grid->ref_nops == needs.group->nops &&
                       needs.grid->ref_count == needs.data->nreflections;
  if (!fitting) QX_TRY(qx_calc_ref2gind());
  return ok;
}

Status open_sums(PartSums& sums, std::int32_t nref) {
  if (sums.re) return ok;
  QX_TRY(qx::open_zeroed(sums.re, static_cast<std::size_t>(nref), "pcs_re"));
  return qx::open_zeroed(sums.im, static_cast<std::size_t>(nref), "pcs_im");
}

// Phase factors of one operator for one box.
struct PhaseFactors {
  const double* c;
  const double* s;
};

// exp(2 pi i h.t): translations are multiples of 1/24 but for operators that a user made up.
void translation_phase(const qx::SinCosTable& table, double cycles, double& c, double& s) {
  const double parts = cycles * qx::TwentyFourths::n;
  const double whole = std::nearbyint(parts);
  if (std::fabs(parts - whole) < 1e-6) {
    static const qx::TwentyFourths exact;
    const auto at = static_cast<std::int64_t>(whole) % qx::TwentyFourths::n;
    const auto index = static_cast<std::size_t>(at < 0 ? at + qx::TwentyFourths::n : at);
    c = exact.cosine[index];
    s = exact.sine[index];
  } else {
    const std::int32_t at = table.index(cycles);
    c = table.cosine[at];
    s = table.sine[at];
  }
}

// The planes of a sub-box start at `shift`: each term turns by l shift / nz on top of its
// translation.
void sub_box_phases(const Needs& needs, std::int32_t op, std::int32_t shift,
                    const double* turn_cosine, const double* turn_sine, double* c, double* s) {
  const qxgrid& grid = *needs.grid;
  const qx::SinCosTable table = {qxsincostab::n, needs.table->sine, needs.table->cosine};
  for (std::int32_t i = 0; i < needs.data->nreflections; ++i) {
    double tc = 1.0;
    double ts = 0.0;
    translation_phase(table, grid.ref_shift[op][i], tc, ts);
    const std::int64_t turn = static_cast<std::int64_t>(grid.ref_l[op][i]) * shift % grid.nz;
    const std::int64_t at = turn < 0 ? turn + grid.nz : turn;
    c[i] = tc * turn_cosine[at] - ts * turn_sine[at];
    s[i] = ts * turn_cosine[at] + tc * turn_sine[at];
  }
}

// Cosines and sines of k 2 pi / nz.
Status open_turns(std::int32_t nz, qx::Tagged<double>& cosine, qx::Tagged<double>& sine) {
  const auto n = static_cast<std::size_t>(nz);
  cosine = qx::Tagged<double>(n, "pcs_turn");
  if (!cosine) return failed;
  sine = qx::Tagged<double>(n, "pcs_turn");
  if (!sine) return failed;
  for (std::size_t k = 0; k < n; ++k) {
    const double angle = qx::two_pi * static_cast<double>(k) / nz;
    cosine[k] = std::cos(angle);
    sine[k] = std::sin(angle);
  }
  return ok;
}

Status add_operators(const Needs& needs, const qx::Transform& transform, std::int32_t shift,
                     PartSums& sums) {
  const auto n = static_cast<std::size_t>(needs.data->nreflections);
  qx::Tagged<double> c(n, "pcs_c");
  if (!c) return failed;
  qx::Tagged<double> s(n, "pcs_s");
  if (!s) return failed;
  const qxgrid& grid = *needs.grid;
  qx::Tagged<double> turn_cosine;
  qx::Tagged<double> turn_sine;
  QX_TRY(open_turns(grid.nz, turn_cosine, turn_sine));
  for (std::int32_t op = 0; op < needs.group->nops; ++op) {
    PhaseFactors factors = {c.get(), s.get()};
    if (needs.box->one_box && grid.sine && shift == 0) {
      factors = {grid.cosine[0][op], grid.sine[0][op]};
    } else {
      sub_box_phases(needs, op, shift, turn_cosine.get(), turn_sine.get(), c.get(), s.get());
    }
    const qx::MateIndices mates = {needs.data->nreflections, grid.ref_ix[op], grid.ref_iy[op],
                                   grid.ref_iz[op]};
    qx::add_mates(transform, mates, factors.c, factors.s, sums.re, sums.im);
  }
  return ok;
}

// Largest |h| of any mate.
std::int32_t largest_h(const Needs& needs) {
  const qxgrid& grid = *needs.grid;
  std::int32_t largest = 0;
  for (std::int32_t op = 0; op < needs.group->nops; ++op) {
    for (std::int32_t i = 0; i < needs.data->nreflections; ++i) {
      const std::int32_t ix = grid.ref_ix[op][i];
      largest = std::max(largest, std::min(ix, grid.nx - ix));
    }
  }
  return largest;
}

// How many h of each k any mate, or its Friedel opposite, lies at.
void count_columns(const Needs& needs, std::int32_t hmax, std::int32_t* columns) {
  const qxgrid& grid = *needs.grid;
  std::fill_n(columns, grid.ny, 0);
  for (std::int32_t op = 0; op < needs.group->nops; ++op) {
    for (std::int32_t i = 0; i < needs.data->nreflections; ++i) {
      const std::int32_t ix = grid.ref_ix[op][i];
      const std::int32_t iy = grid.ref_iy[op][i];
      const bool stored = ix <= hmax;
      std::int32_t& count = columns[stored || iy == 0 ? iy : grid.ny - iy];
      count = std::max(count, (stored ? ix : grid.nx - ix) + 1);
    }
  }
}

// The usual road: only the columns that reflections lie on, in the density's own block.
Status transform_half(const Needs& needs, std::int32_t nz, std::int32_t shift, std::int32_t hmax,
                      double*** density, PartSums& sums) {
  const qxgrid& grid = *needs.grid;
  qx::Tagged<std::int32_t> columns(static_cast<std::size_t>(grid.ny), "pcs_columns");
  if (!columns) return failed;
  count_columns(needs, hmax, columns.get());
  double* block = density[0][0];
  QX_TRY(qx::forward_half_3d({grid.nx, grid.ny, nz, hmax, columns.get()}, block));
  return add_operators(needs, {grid.nx, grid.ny, nz, hmax, block, nullptr}, shift, sums);
}

// The general road: the whole spectrum in two further arrays.
Status transform_whole(const Needs& needs, std::int32_t nz, std::int32_t shift, double*** density,
                       PartSums& sums) {
  const qxgrid& grid = *needs.grid;
  double*** re = xopen_3d_double(nz, grid.ny, grid.nx, "pcs_fr");
  if (!re) return failed;
  double*** im = xopen_3d_double(nz, grid.ny, grid.nx, "pcs_fi");
  if (!im) return failed;
  QX_TRY(qx_forward_rfft_3D(nz, grid.ny, grid.nx, density, re, im));
  const qx::Transform transform = {grid.nx, grid.ny, nz, -1, re[0][0], im[0][0]};
  QX_TRY(add_operators(needs, transform, shift, sums));
  QX_TRY(xfree_3d_double(re));
  return xfree_3d_double(im);
}

}  // namespace

Status qx_calc_sf_by_fft_eden(std::int32_t part, std::int32_t /*set*/, std::int32_t shift,
                              double*** density) {
  Needs needs;
  QX_TRY(fetch(needs));
  if (!needs.data || !needs.sf) return failed;
  if (part < -1 || part >= qxstructfact::nparts) {
    return fail(heading_fft, "There is no part %d of the system.", part);
  }
  if (needs.data->nreflections < 1) return ok;
  // Sums of another data set are of no use, nor of the right size.
  if (needs.sf->nref != needs.data->nreflections) QX_TRY(release_all_sums(needs.sf));
  PartSums& sums = part < 0 ? needs.sf->separate : needs.sf->parts[part];
  QX_TRY(open_sums(sums, needs.data->nreflections));
  needs.sf->nref = needs.data->nreflections;
  const std::int32_t nz = needs.box->one_box ? needs.grid->nz : needs.box->points[2];
  const std::int32_t hmax = largest_h(needs);
  return 2 * (std::int64_t{hmax} + 1) <= needs.grid->nx
             ? transform_half(needs, nz, shift, hmax, density, sums)
             : transform_whole(needs, nz, shift, density, sums);
}

namespace {

// Form factors, radii and tables, made when they are not there yet.
Status make_ready() {
  const molsys* system = qx_get_molsys();
  if (!qx_exist_quorix()) return failed;
  if (!system) {
    return fail("qx_calc_system_struct_factor():", "molsys object has not been created yet ");
  }
  if (!qx_get_xmolformfact()) QX_TRY(qx_new_xmolformfact());
  QX_TRY(qx_make_molformfact());
  if (!qx_get_qxexptab()) QX_TRY(qx_new_qxexptab());
  if (!qx_get_qxradcut()) QX_TRY(qx_new_qxradcut());
  QX_TRY(qx_update_qxradcut());
  QX_TRY(qx_new_qxstructfact());
  QX_TRY(qx_set_pre_factor());
  // Grid, boxes or reflections may have changed since the tables were made.
  return qx_calc_ref2gind();
}

}  // namespace

Status qx_calc_system_struct_factor() {
  QX_TRY(make_ready());
  double*** density = qx_open_qxelecden_box();
  if (!density) return failed;
  const qxsubgrid* box = qx_get_qxsubgrid();
  if (!box) return failed;
  const std::int32_t nboxes = box->one_box ? 1 : box->boxes[2];
  for (std::int32_t shift = 0; shift < nboxes; ++shift) {
    QX_TRY(qx_calc_elec_den_map(shift, density));
    QX_TRY(qx_calc_sf_by_fft_eden(0, 0, shift, density));
  }
  return qx_delete_qxelecden();
}

Status qx_calc_model_structure_factor(double* re, double* im) {
  constexpr const char* heading = "qx_calc_model_structure_factor():";
  const qxstructfact* sf = qx_get_qxstructfact();
  if (!sf) return fail(heading, "qxstructfact object has not been created yet ");
  const qxrefdata* data = qx_get_qxrefdata();
  if (!data) return fail(heading, "qxrefdata object has not been created yet.");
  const qxcell* cell = qx_get_qxcell();
  if (!cell) return fail(heading, "qxcell object has not been created yet.");
  const std::int32_t n = data->nreflections;
  if (sf->nref != n || (n > 0 && (sf->nprefactor != n || !sf->parts[0].re))) {
    return fail(heading, "The structure factors have not been calculated for these reflections.");
  }
  std::fill_n(re, n, 0.0);
  std::fill_n(im, n, 0.0);
  // The prefactor's sampling volume is that of a cell with right angles.
  const double volume_ratio = cell->volume / (cell->a * cell->b * cell->c);
  for (const PartSums& part : sf->parts) {
    for (std::int32_t i = 0; i < n; ++i) {
      const double s = data->s_length[i];
      const double factor =
          part.scale * std::exp(-0.25 * part.b * s * s) * sf->prefactor[i] * volume_ratio;
      re[i] += factor * part.re[i];
      im[i] += factor * part.im[i];
    }
  }
  return ok;
}
