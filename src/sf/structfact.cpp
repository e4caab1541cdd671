// Structure factors by FFT: objects, prefactor, the sums over operators, the model's F.
#include "sf/structfact.h"

#include "core/constants.h"
#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"
#include "crystal/cell.h"
#include "crystal/cell_geometry.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "fft/transform_half.h"
#include "grid/grid.h"
#include "model/density.h"
#include "model/formfactors.h"
#include "model/molsys.h"
#include "sf/assemble.h"
#include "sf/partition.h"

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
  QX_TRY(qx::create_in(qx_delete_qxstructfact, qx_set_qxstructfact, "pns_sf"));
  qxstructfact* sf = qx_get_qxstructfact();
  return sf ? qx::open_parts(*sf) : failed;
}
Status qx_new_qxsincostab() {
  return qx::create_in(qx_delete_qxsincostab, qx_set_qxsincostab, "pns_sincos");
}

namespace {

Status release_sums(PartSums& sums) {
  QX_TRY(release(sums.re));
  return release(sums.im);
}

}  // namespace

Status qx::release_all_sums(qxstructfact* sf) {
  sf->nref = 0;
  for (std::int32_t i = 0; i < sf->nparts; ++i) QX_TRY(release_sums(sf->parts[i]));
  return release_sums(sf->separate);
}

Status qx::open_sums(qxstructfact* sf, std::int32_t part, std::int32_t nref) {
  if (sf->nref != nref) QX_TRY(release_all_sums(sf));
  PartSums& sums = part < 0 ? sf->separate : sf->parts[part];
  sf->nref = nref;
  if (sums.re) return ok;
  QX_TRY(open_zeroed(sums.re, static_cast<std::size_t>(nref), "pcs_re"));
  return open_zeroed(sums.im, static_cast<std::size_t>(nref), "pcs_im");
}

Status qx_delete_qxstructfact() {
  qxstructfact* sf = qx_get_qxstructfact();
  if (!sf) return ok;
  QX_TRY(qx::release_all_sums(sf));
  sf->nparts = 0;
  QX_TRY(release(sf->parts));
  QX_TRY(release(sf->prefactor));
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
  qxsincostab* table = nullptr;
  QX_TRY(qx::require_of_engine("qx_init_qxsincostab():", qx_get_qxsincostab, table,
                               " qxsincostab object has not been created yet "));
  QX_TRY(release(table->sine));
  QX_TRY(release(table->cosine));
  QX_TRY(qx::open_block(table->sine, qxsincostab::n, "pis_sin"));
  QX_TRY(qx::open_block(table->cosine, qxsincostab::n, "pis_cos"));
  fill_sincos(table);
  return ok;
}

Status qx_set_pre_factor() {
  constexpr const char* heading = "qx_set_pre_factor()";  // Kept: without the colon
  qxstructfact* sf = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(qx::require(
      heading, qx::need(qx_get_qxstructfact, sf, " qxstructfact object has not been created yet."),
      qx::need(qx_get_qxrefdata, data, "qxrefdata object has not been created yet.")));
  if (sf->prefactor && data->nreflections == sf->nprefactor) return ok;
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxcell, cell, "qxcell object has not been created yet."));
  const qxgrid* grid = qx_get_qxgrid();
  if (!grid || grid->nx < 1) return fail(heading, "qxgrid object has not been created yet.");
  const qxatomb* atomb = nullptr;
  const qxrecicell* reciprocal = nullptr;
  QX_TRY(qx::require(
      heading, qx::need(qx_get_qxatomb, atomb, "qxatomb object has not been created yet."),
      qx::need(qx_get_qxrecicell, reciprocal, "qxrecicell object has not been created yet.")));
  if (data->nreflections < 1) return ok;
  QX_TRY(release(sf->prefactor));
  QX_TRY(qx::open_block(sf->prefactor, static_cast<std::size_t>(data->nreflections), "pss_pre"));
  sf->nprefactor = data->nreflections;
  double* prefactor = sf->prefactor;
  const bool debug = qx_get_qxverbsys_verb_debug() != 0;
  if (!qx_exist_quorix()) return failed;
  const double sampling = (cell->a / grid->nx) * (cell->b / grid->ny) * (cell->c / grid->nz);
  for (std::int32_t i = 0; i < data->nreflections; ++i) {
    const double h = data->h[i];
    const double k = data->k[i];
    const double l = data->l[i];
    const double s2 = qx::inverse_d2(reciprocal->resolution, h, k, l);
    prefactor[i] = std::exp(0.25 * atomb->b0 * s2) * sampling;
    if (debug && i % 50 == 0) {
      qx::say("DEBUG PREFACT: %8d %14.7e %14.7e %14.7e %14.7e %14.7e\n", i, h, k, l, s2,
              prefactor[i]);
    }
  }
  return ok;
}

namespace {

// Those from `first` on, `n` of them, onto re and im.
void add_range(const qxrefdata& data, const double* prefactor, const PartSums& part,
               const PartSums& sums, double ratio, std::int32_t first, std::int32_t n, double* re,
               double* im) {
  for (std::int32_t j = 0; j < n; ++j) {
    const std::int32_t i = first + j;
    const double s = data.s_length[i];
    const double factor = part.scale * std::exp(-0.25 * part.b * s * s) * prefactor[i] * ratio;
    re[j] += factor * sums.re[i];
    im[j] += factor * sums.im[i];
  }
}

}  // namespace

Status qx::model_factors(const char* heading, std::int32_t first, std::int32_t n, double* re,
                         double* im) {
  const qxstructfact* sf = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(qx::require(
      heading, qx::need(qx_get_qxstructfact, sf, "qxstructfact object has not been created yet "),
      qx::need(qx_get_qxrefdata, data, "qxrefdata object has not been created yet.")));
  if (!qx_get_qxcell()) return fail(heading, "qxcell object has not been created yet.");
  const bool calculated = std::all_of(sf->parts, sf->parts + sf->nparts,
                                      [](const PartSums& part) { return part.re != nullptr; });
  const std::int32_t all = data->nreflections;
  if (sf->nref != all || (all > 0 && (sf->nprefactor != all || !calculated))) {
    return fail(heading, "The structure factors have not been calculated for these reflections.");
  }
  if (n == to_the_last) n = all - first;
  double ratio = 1.0;
  QX_TRY(sampling_ratio(heading, ratio));
  std::fill_n(re, n, 0.0);
  std::fill_n(im, n, 0.0);
  for (std::int32_t i = 0; i < sf->nparts; ++i) {
    add_range(*data, sf->prefactor, sf->parts[i], sf->parts[i], ratio, first, n, re, im);
  }
  return ok;
}

Status qx_calc_model_structure_factor(double* re, double* im) {
  return qx::model_factors("qx_calc_model_structure_factor():", 0, qx::to_the_last, re, im);
}

Status qx::add_scaled(const char* heading, const qxstructfact& sf, const qxrefdata& data,
                      const PartSums& part, const PartSums& sums, double* re, double* im) {
  double ratio = 1.0;
  QX_TRY(sampling_ratio(heading, ratio));
  add_range(data, sf.prefactor, part, sums, ratio, 0, data.nreflections, re, im);
  return ok;
}

Status qx::sampling_ratio(const char* heading, double& ratio) {
  const qxcell* cell = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxcell, cell,
                               "qxcell object has not been created yet."));
  ratio = cell->volume / (cell->a * cell->b * cell->c);
  return ok;
}
