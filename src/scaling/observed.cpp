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

namespace {

// atan(t) / t for |t| <= tan(pi / 8), by powers of t^2: within 5e-14.
double arctangent_ratio(double z) noexcept {
  double p = 0.030741235722530916 * z - 0.05879747957083784;
  p = p * z + 0.07565119421772808;
  p = p * z - 0.09078591050179419;
  p = p * z + 0.11110400526005988;
  p = p * z - 0.14285691077345133;
  p = p * z + 0.1999999961843108;
  p = p * z - 0.3333333333091035;
  return p * z + 0.9999999999999845;
}

// 1 or 0, for sums in place of branches, which would keep several from being found at once.
double indicator(bool yes) noexcept { return yes ? 1.0 : 0.0; }
// The angle, or what is left of `whole` when it is turned down.
double reflected(double yes, double whole, double angle) noexcept {
  return yes * whole + (1.0 - 2.0 * yes) * angle;
}

// Degrees from 0 to 360. By atan2 phases were a twentieth of the time that structure factors take.
double phase_of(double re, double im) noexcept {
  const double x = std::fabs(re);
  const double y = std::fabs(im);
  const double low = x < y ? x : y;
  const double high = x < y ? y : x;
  const double turned = indicator(low > 0.41421356237309503 * high);  // by pi / 4
  const double t = (low - turned * high) / (high + turned * low + indicator(high == 0.0));
  const double octant = turned * 45.0 + t * arctangent_ratio(t * t) * (180.0 / pi);
  const double quadrant = reflected(indicator(x < y), 90.0, octant);
  return reflected(indicator(im < 0.0), 360.0, reflected(indicator(re < 0.0), 180.0, quadrant));
}

void polar(const double* re, const double* im, std::int64_t n, float* amplitude,
           float* phase) noexcept {
  for (std::int64_t i = 0; i < n; ++i) {
    const auto degrees = static_cast<float>(phase_of(re[i], im[i]));
    phase[i] = degrees - (degrees >= 360.0F ? 360.0F : 0.0F);
  }
  for (std::int64_t i = 0; i < n; ++i) {
    amplitude[i] = static_cast<float>(std::sqrt(re[i] * re[i] + im[i] * im[i]));
  }
}

}  // namespace

void put_polar(const ComplexF& f, std::int32_t n, float* amplitude, float* phase) {
  const std::int32_t threads = threads_worth(20.0 * n);
  parallel(threads, threads, [&](std::int32_t part, std::int32_t) {
    const std::int64_t first = part_begin(n, threads, part);
    polar(f.re.get() + first, f.im.get() + first, part_begin(n, threads, part + 1) - first,
          amplitude + first, phase + first);
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
