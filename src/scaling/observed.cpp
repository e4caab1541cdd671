#include "scaling/observed.h"

#include "core/constants.h"
#include "core/parallel.h"
#include "core/report.h"
#include "core/require.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "scaling/cross_record.h"

#include <quorix/cell.h>
#include <quorix/engine.h>

#include <cmath>
#include <numeric>

namespace qx {

namespace {

// The members of a list that were observed, in its order.
Status pick(const qxrefdata& data, std::int32_t n, const std::int32_t* list,
            Tagged<std::int32_t>& out, std::int32_t& count) {
  count = 0;
  if (n < 1) return ok;
  out = Tagged<std::int32_t>(static_cast<std::size_t>(n), "pso_list");
  if (!out) return failed;
  for (std::int32_t i = 0; i < n; ++i) {
    if (is_observed(data, list[i])) out[static_cast<std::size_t>(count++)] = list[i];
  }
  return ok;
}

Status pick_all(const qxrefdata& data, Observed& observed) {
  Tagged<std::int32_t> all(static_cast<std::size_t>(data.nreflections), "pso_all");
  if (!all) return failed;
  std::iota(all.get(), all.get() + data.nreflections, 0);
  return pick(data, data.nreflections, all.get(), observed.work, observed.nwork);
}

}  // namespace

bool is_observed(const qxrefdata& data, std::int32_t i) {
  return std::isfinite(data.fobs[i]) && data.fobs[i] > 0.0F;
}

Status select_observed(const char* heading, const qxrefdata& data, Observed& observed) {
  if (!data.fobs) return fail(heading, "There are no observed amplitudes to scale to.");
  if (data.nreflections < 1) return fail(heading, "There is no reflection to scale to.");
  const qxcross* cross = qx_get_qxcross();
  if (!qx_exist_quorix()) return failed;
  observed.split = cross && cross->ntotal == data.nreflections && cross->nwork > 0;
  std::int32_t asked = data.nreflections;
  if (observed.split) {
    asked = cross->nwork;
    QX_TRY(pick(data, cross->nwork, cross->work, observed.work, observed.nwork));
    QX_TRY(pick(data, cross->nfree, cross->free, observed.free, observed.nfree));
  } else {
    QX_TRY(pick_all(data, observed));
  }
  if (observed.nwork > 0) return ok;
  return fail(heading, "None of the %d reflections of the working set was observed.", asked);
}

double ComplexF::amplitude(std::int32_t i) const {
  const auto at = static_cast<std::size_t>(i);
  return std::sqrt(re[at] * re[at] + im[at] * im[at]);
}

Status open_f(std::int32_t n, ComplexF& f) {
  f.re = Tagged<double>(static_cast<std::size_t>(n), "pso_re");
  if (!f.re) return failed;
  f.im = Tagged<double>(static_cast<std::size_t>(n), "pso_im");
  return f.im ? ok : failed;
}

void put_polar(const ComplexF& f, std::int32_t n, float* amplitude, float* phase) {
  const std::int32_t threads = threads_worth(100.0 * n);
  parallel(threads, threads, [&](std::int32_t part, std::int32_t) {
    const std::int64_t last = part_begin(n, threads, part + 1);
    for (std::int64_t i = part_begin(n, threads, part); i < last; ++i) {
      const auto at = static_cast<std::size_t>(i);
      const bool zero = f.re[at] == 0.0 && f.im[at] == 0.0;
      double degrees = zero ? 0.0 : std::atan2(f.im[at], f.re[at]) * 180.0 / pi;
      if (degrees < 0.0) degrees += 360.0;
      amplitude[i] = static_cast<float>(std::hypot(f.re[at], f.im[at]));
      phase[i] = static_cast<float>(degrees);
      if (phase[i] >= 360.0F) phase[i] = 0.0F;
    }
  });
}

Status scattering_vectors(const char* heading, const qxrefdata& data, Tagged<double[3]>& s) {
  const qxcell* cell = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxcell, cell,
                               "qxcell object has not been created yet "));
  s = Tagged<double[3]>(static_cast<std::size_t>(data.nreflections), "pso_s");
  if (!s) return failed;
  const double(&m)[9] = cell->standard_orth2frac;
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const double h[3] = {static_cast<double>(data.h[i]), static_cast<double>(data.k[i]),
                         static_cast<double>(data.l[i])};
    double(&out)[3] = s[static_cast<std::size_t>(i)];
    for (int j = 0; j < 3; ++j) out[j] = h[0] * m[j] + h[1] * m[3 + j] + h[2] * m[6 + j];
  }
  return ok;
}

namespace {

// R of x_orth = F x_frac: F W F^-1 of an operator's rotation W.
void cartesian_rotation(const qxcell& cell, const double (&w)[16], double (&out)[9]) {
  const double(&f)[9] = cell.standard_frac2orth;
  const double(&g)[9] = cell.standard_orth2frac;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      double sum = 0.0;
      for (int a = 0; a < 3; ++a) {
        for (int b = 0; b < 3; ++b) sum += f[3 * i + a] * w[4 * a + b] * g[3 * b + j];
      }
      out[3 * i + j] = sum;
    }
  }
}

}  // namespace

Status group_tensors(const qxspg& group, const qxcell& cell, bool isotropic_only,
                     TensorBasis& basis) {
  const Tagged<double[9]> rotations(static_cast<std::size_t>(group.nops), "pfs_rot");
  if (!rotations) return failed;
  for (std::int32_t op = 0; op < group.nops; ++op) {
    cartesian_rotation(cell, group.ops[op], rotations[static_cast<std::size_t>(op)]);
  }
  basis = invariant_tensors(group.nops, rotations.get(), isotropic_only);
  return ok;
}

}  // namespace qx
