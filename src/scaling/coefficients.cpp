#include "scaling/coefficients.h"

#include "core/constants.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "crystal/columns.h"
#include "scaling/cross_record.h"
#include "scaling/likelihood.h"
#include "scaling/scale.h"
#include "stats/likelihood.h"
#include "stats/phase_probability.h"

#include <quorix/engine.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double radian = qx::pi / 180.0;

}  // namespace

namespace qx {

namespace {

bool has_phases(const qxrefdata& data) { return (data.hla && data.hlb) || (data.phib && data.fom); }

// What the data say about a phase, apart from the model; nothing where a value is missing.
HendricksonLattman phases_of_data(const qxrefdata& data, std::int32_t i, bool centric) {
  HendricksonLattman p;
  if (data.hla && data.hlb) {
    p = {data.hla[i], data.hlb[i], data.hlc ? data.hlc[i] : 0.0F, data.hld ? data.hld[i] : 0.0F};
  } else {
    p = unimodal(data.phib[i] * radian, data.fom[i], centric);
  }
  const bool known =
      std::isfinite(p.a) && std::isfinite(p.b) && std::isfinite(p.c) && std::isfinite(p.d);
  return known ? p : HendricksonLattman{};
}

struct Term {
  double re, im;
};

// m exp(i phase) of model and data together.
Term combined_merit(const qxrefdata& data, std::int32_t i, const Conditional& c, double phase) {
  const HendricksonLattman p = unimodal_with(phase, c.x()) + phases_of_data(data, i, c.centric);
  const PhaseCentroid at = c.centric ? centric_centroid(p, phase) : centroid(p);
  return {at.re, at.im};
}

Term coefficient(const CoefficientChoice& choice, const qxrefdata& data, std::int32_t i,
                 const ComplexF& f, const LikelihoodValues& values, bool observed) {
  const auto at = static_cast<std::size_t>(i);
  const double amplitude = f.amplitude(i);
  const double df = values.d[at] * amplitude;
  const Term unit =
      amplitude > 0.0 ? Term{f.re[at] / amplitude, f.im[at] / amplitude} : Term{1.0, 0.0};
  const bool expected = choice.kind == CoefficientKind::expected;
  const double u = expected ? 1.0 : choice.u;
  const double v = expected ? 0.0 : choice.v;
  if (!observed) {
    const double part = choice.fill_missing ? unobserved_term(u, v) * df : 0.0;
    return {part * unit.re, part * unit.im};
  }
  const bool centric = data.centric[i] != 0;
  const MapTerms terms = map_terms(u, v, centric);
  const auto fo = static_cast<double>(data.fobs[i]);
  Term merit = {values.fom[at] * unit.re, values.fom[at] * unit.im};
  if (choice.kind == CoefficientKind::combined) {
    const Conditional c = {fo, df, values.variance[at], centric};
    merit = combined_merit(data, i, c, std::atan2(unit.im, unit.re));
  }
  return {terms.a * fo * merit.re - terms.b * df * unit.re,
          terms.a * fo * merit.im - terms.b * df * unit.im};
}

}  // namespace

Status mark_free_set(const qxrefdata& data, Tagged<std::uint8_t>& is_free) {
  is_free = Tagged<std::uint8_t>(
      allocate_zeroed<std::uint8_t>(static_cast<std::size_t>(data.nreflections), "pwc_free"));
  if (!is_free) return failed;
  const qxcross* cross = qx_get_qxcross();
  if (!qx_exist_quorix()) return failed;
  if (!cross || cross->ntotal != data.nreflections) return ok;
  for (std::int32_t i = 0; i < cross->nfree; ++i) {
    is_free[static_cast<std::size_t>(cross->free[i])] = 1;
  }
  return ok;
}

Status weighted_coefficients(const char* heading, const CoefficientChoice& choice,
                             const qxrefdata& data, const ComplexF& f, ComplexF& out) {
  if (!data.fobs) return fail(heading, "There is no observed amplitude data defined yet.");
  LikelihoodValues values;
  QX_TRY(likelihood_values(heading, data, f, values));
  return weighted_coefficients(heading, choice, data, f, values, out);
}

Status weighted_coefficients(const char* heading, const CoefficientChoice& choice,
                             const qxrefdata& data, const ComplexF& f,
                             const LikelihoodValues& values, ComplexF& out) {
  if (!data.fobs) return fail(heading, "There is no observed amplitude data defined yet.");
  if (choice.kind == CoefficientKind::combined && !has_phases(data)) {
    return fail(heading, "There are no phases to combine with: HLA and HLB, or PHIB and FOM.");
  }
  QX_TRY(open_f(data.nreflections, out));
  Tagged<std::uint8_t> is_free;
  QX_TRY(mark_free_set(data, is_free));
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const bool observed = is_observed(data, i) && !(choice.fill_free && is_free[at]);
    const Term term = coefficient(choice, data, i, f, values, observed);
    out.re[at] = term.re;
    out.im[at] = term.im;
  }
  return ok;
}

}  // namespace qx

using qx::ComplexF;
using qx::failed;
using qx::ok;
using qx::Status;
using qx::Tagged;

namespace {

Status open_column(float*& column, std::int32_t n) {
  return column ? ok : qx::open_block(column, static_cast<std::size_t>(n), "prm_col");
}

Status fetch(const char* heading, qxrefdata*& data, const qxml*& ml) {
  QX_TRY(qx::require_of_engine(heading, qx_get_qxrefdata, data,
                               "qxrefdata object has not been created yet."));
  return qx::require_of_engine(heading, qx_get_qxml, ml, "qxml object has not been created yet.");
}

// A map of full density without the terms that stand for observations.
Status put_unfilled(qxrefdata& data, bool fill_free, bool fill_missing) {
  Tagged<std::uint8_t> is_free;
  QX_TRY(qx::mark_free_set(data, is_free));
  float* amplitude = nullptr;
  float* phase = nullptr;
  QX_TRY(qx::open_derived(data, "FWT_nofill", 'F', amplitude));
  QX_TRY(qx::open_derived(data, "PHWT_nofill", 'P', phase));
  constexpr float missing = std::numeric_limits<float>::quiet_NaN();
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const bool used =
        qx::is_observed(data, i) && !(fill_free && is_free[static_cast<std::size_t>(i)]);
    amplitude[i] = used ? data.map_coeff_amplitude[i] : missing;
    phase[i] = used ? data.map_coeff_phase[i] : missing;
    if (used || fill_missing) continue;
    data.map_coeff_amplitude[i] = data.map_coeff_phase[i] = missing;
  }
  return ok;
}

}  // namespace

Status qx_replace_refdata_ml() {
  constexpr const char* here = "qx_replace_refdata_ml():";
  qxrefdata* data = nullptr;
  const qxml* ml = nullptr;
  QX_TRY(fetch(here, data, ml));
  const bool fill_free = ml->fill_free;
  const bool fill_missing = ml->fill_missing;
  const std::int32_t n = data->nreflections;
  ComplexF f;
  QX_TRY(qx::open_f(n, f));
  QX_TRY(qx_calc_total_structure_factor(f.re.get(), f.im.get()));
  qx::LikelihoodValues values;
  QX_TRY(qx::likelihood_values(here, *data, f, values));
  Tagged<double> k_tot(static_cast<std::size_t>(n), "prm_k");
  if (!k_tot) return failed;
  QX_TRY(qx_calc_total_scale(k_tot.get()));
  ComplexF full;
  QX_TRY(qx::weighted_coefficients(here, {qx::CoefficientKind::sigmaa, 2.0, 1.0, fill_free}, *data,
                                   f, values, full));
  ComplexF difference;
  QX_TRY(qx::weighted_coefficients(here, {qx::CoefficientKind::sigmaa, 1.0, 1.0, fill_free}, *data,
                                   f, values, difference));
  for (float** column :
       {&data->fom, &data->map_fom, &data->map_coeff_amplitude, &data->map_coeff_phase,
        &data->map_coeff, &data->map_phase, &data->map_scale, &data->wt}) {
    QX_TRY(open_column(*column, n));
  }
  qx::put_polar(full, n, data->map_coeff_amplitude, data->map_coeff_phase);
  qx::put_polar(difference, n, data->map_coeff, data->map_phase);
  for (std::int32_t i = 0; i < n; ++i) {
    const auto at = static_cast<std::size_t>(i);
    data->fom[i] = data->map_fom[i] = static_cast<float>(values.fom[at]);
    data->map_scale[i] = static_cast<float>(k_tot[at]);
    data->wt[i] = static_cast<float>(1.0 / values.variance[at]);
  }
  return put_unfilled(*data, fill_free, fill_missing);
}

namespace {

// F(+) - F(-); not a number where either is missing, and for what has no such difference.
double anomalous_difference(const qxrefdata& data, std::int32_t i) {
  if (data.centric[i] != 0) return std::numeric_limits<double>::quiet_NaN();
  if (data.fp && data.fm) return static_cast<double>(data.fp[i]) - static_cast<double>(data.fm[i]);
  return static_cast<double>(data.dp[i]);
}

}  // namespace

Status qx_calc_anomalous_coefficients() {
  constexpr const char* here = "qx_calc_anomalous_coefficients():";
  qxrefdata* data = nullptr;
  const qxml* ml = nullptr;
  QX_TRY(fetch(here, data, ml));
  if (!(data->fp && data->fm) && !data->dp) {
    return qx::fail(here, "There are no anomalous differences: columns FP and FM, or DP.");
  }
  const std::int32_t n = data->nreflections;
  ComplexF f;
  QX_TRY(qx::open_f(n, f));
  QX_TRY(qx_calc_total_structure_factor(f.re.get(), f.im.get()));
  qx::LikelihoodValues values;
  QX_TRY(qx::likelihood_values(here, *data, f, values));
  float* amplitude = nullptr;
  float* phase = nullptr;
  QX_TRY(qx::open_derived(*data, "FAN", 'F', amplitude));
  QX_TRY(qx::open_derived(*data, "PHAN", 'P', phase));
  std::int32_t count = 0;
  for (std::int32_t i = 0; i < n; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double term = values.fom[at] * anomalous_difference(*data, i);
    const bool known = std::isfinite(term);
    // m D exp(i phi) turned by -90 degrees.
    const double size = known ? term / std::max(f.amplitude(i), 1e-30) : 0.0;
    const double re = size * f.im[at];
    f.im[at] = -size * f.re[at];
    f.re[at] = re;
    count += known ? 1 : 0;
  }
  qx::put_polar(f, n, amplitude, phase);
  for (std::int32_t i = 0; i < n; ++i) {
    if (!std::isfinite(anomalous_difference(*data, i))) amplitude[i] = phase[i] = NAN;
  }
  qx::say("Anomalous differences       : %d\n", count);
  return ok;
}
