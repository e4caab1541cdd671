// Wilson statistics of the data set.
#include "scaling/wilson.h"

#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "crystal/reflections.h"
#include "scaling/composition.h"
#include "scaling/observed.h"
#include "stats/anisotropy.h"
#include "stats/resolution_curve.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/reflections.h>
#include <quorix/spacegroup.h>

#include <algorithm>
#include <cmath>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;
using qx::Tagged;

Status qx_new_qxwilson() {
  return qx::create_in(qx_delete_qxwilson, qx_set_qxwilson, "pnp_wilson");
}
Status qx_delete_qxwilson() { return qx::remove_from(qx_get_qxwilson(), qx_set_qxwilson); }

namespace {

constexpr int curve_members = 50;

Status fetch(const char* heading, qxwilson*& wilson, qxrefdata*& data) {
  QX_TRY(qx::require_of_engine(
      heading, qx::need(qx_get_qxwilson, wilson, "qxwilson object has not been created yet."),
      qx::need(qx_get_qxrefdata, data, "qxrefdata object has not been created yet.")));
  if (data->nreflections < 1 || !data->s_length || !data->centric || !data->epsilon) {
    return fail(heading, "There is no reflection for the Wilson statistics.");
  }
  return ok;
}

// For a missing object whose getter may have reported.
Status fail_if_there(const char* heading, const char* text) {
  return qx_exist_quorix() ? fail(heading, "%s", text) : failed;
}

// Intensities over epsilon of the reflections that have one, and where each came from.
struct Intensities {
  std::int32_t n = 0;
  Tagged<double> values, s2;
  Tagged<std::int32_t> row;
};

// The intensity of a row; not a number where it is missing.
double intensity_of(const qxrefdata& data, std::int32_t i) {
  if (data.iobs) return data.iobs[i];
  if (data.imean) return data.imean[i];
  const double f = data.fobs[i];
  return f * f;
}

Status gather(const char* heading, const qxrefdata& data, Intensities& out) {
  if (!data.iobs && !data.imean && !data.fobs) {
    return fail(heading, "There are neither intensities nor amplitudes.");
  }
  const auto size = static_cast<std::size_t>(data.nreflections);
  out.values = Tagged<double>(size, "pwi_i");
  if (!out.values) return failed;
  out.s2 = Tagged<double>(size, "pwi_s2");
  if (!out.s2) return failed;
  out.row = Tagged<std::int32_t>(size, "pwi_row");
  if (!out.row) return failed;
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const double intensity = intensity_of(data, i);
    if (!std::isfinite(intensity)) continue;
    const auto at = static_cast<std::size_t>(out.n++);
    out.values[at] = intensity / data.epsilon[i];
    out.s2[at] = data.s_length[i] * data.s_length[i];
    out.row[at] = i;
  }
  return out.n > 0 ? ok : fail(heading, "None of the %d intensities is known.", data.nreflections);
}

Status draw(const Intensities& from, qx::ResolutionCurve& curve) {
  const Tagged<std::int32_t> order(static_cast<std::size_t>(from.n), "pwi_order");
  if (!order) return failed;
  curve = qx::draw_curve(from.n, from.s2.get(), from.values.get(), curve_members, order.get());
  return ok;
}

}  // namespace

Status qx_set_qxwilson_nbin(std::int32_t nbin) {
  constexpr const char* heading = "qx_set_qxwilson_nbin():";
  qxwilson* wilson = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxwilson, wilson,
                               "qxwilson object has not been created yet."));
  if (nbin < 1 || nbin > qx::WilsonPlot::most_bins) {
    return fail(heading, "The number of bins must lie between 1 and %d: %d ",
                qx::WilsonPlot::most_bins, nbin);
  }
  wilson->nbin = nbin;
  return ok;
}

Status qx_set_qxwilson_range(double high, double low) {
  constexpr const char* heading = "qx_set_qxwilson_range():";
  qxwilson* wilson = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxwilson, wilson,
                               "qxwilson object has not been created yet."));
  if (!(high >= 0.0) || !(low > high)) {
    return fail(heading, "Invalid resolution range of the plot: %f %f ", high, low);
  }
  wilson->high = high;
  wilson->low = low;
  return ok;
}

Status qx_calc_wilson_plot() {
  constexpr const char* heading = "qx_calc_wilson_plot():";
  qxwilson* wilson = nullptr;
  qxrefdata* data = nullptr;
  QX_TRY(fetch(heading, wilson, data));
  Intensities intensities;
  QX_TRY(gather(heading, *data, intensities));
  Tagged<double> by_row;
  QX_TRY(qx::expected_intensities(heading, *data, by_row, wilson->from_model));
  Tagged<double> sum_f2(static_cast<std::size_t>(intensities.n), "pwi_f2");
  if (!sum_f2) return failed;
  for (std::size_t i = 0; i < static_cast<std::size_t>(intensities.n); ++i) {
    sum_f2[i] = by_row[static_cast<std::size_t>(intensities.row[i])];
  }
  const Tagged<std::int32_t> order(static_cast<std::size_t>(intensities.n), "pwi_order");
  if (!order) return failed;
  const double high_s2 = wilson->high > 0.0 ? 1.0 / (wilson->high * wilson->high) : 1e30;
  wilson->plot =
      qx::wilson_plot({intensities.n, intensities.values.get(), intensities.s2.get(), sum_f2.get()},
                      wilson->nbin, 1.0 / (wilson->low * wilson->low), high_s2, order.get());
  if (wilson->plot.nbins < 2) {
    return fail(heading, "Too few intensities between %.3f and %.3f A for a Wilson plot.",
                wilson->high, wilson->low);
  }
  wilson->plotted = true;
  return qx_set_hv_wilson_b(wilson->plot.b);
}

namespace {

// Intensities over the curve, of one class.
Status normalised(const qxrefdata& data, const Intensities& from, const qx::ResolutionCurve& curve,
                  bool centric, qx::Moments& out) {
  const Tagged<double> z(static_cast<std::size_t>(from.n), "pwi_z");
  if (!z) return failed;
  std::int32_t n = 0;
  for (std::size_t i = 0; i < static_cast<std::size_t>(from.n); ++i) {
    const double mean = curve.at(from.s2[i]);
    if ((data.centric[from.row[i]] != 0) != centric || !(mean > 0.0)) continue;
    z[static_cast<std::size_t>(n++)] = from.values[i] / mean;
  }
  out = qx::moments(n, z.get());
  return ok;
}

}  // namespace

Status qx_calc_wilson_moments() {
  constexpr const char* heading = "qx_calc_wilson_moments():";
  qxwilson* wilson = nullptr;
  qxrefdata* data = nullptr;
  QX_TRY(fetch(heading, wilson, data));
  Intensities intensities;
  QX_TRY(gather(heading, *data, intensities));
  qx::ResolutionCurve curve;
  QX_TRY(draw(intensities, curve));
  QX_TRY(normalised(*data, intensities, curve, false, wilson->acentric));
  return normalised(*data, intensities, curve, true, wilson->centric);
}

Status qx_calc_wilson_twin() {
  constexpr const char* heading = "qx_calc_wilson_twin():";
  qxwilson* wilson = nullptr;
  qxrefdata* data = nullptr;
  QX_TRY(fetch(heading, wilson, data));
  Intensities intensities;
  QX_TRY(gather(heading, *data, intensities));
  const Tagged<qx::LReflection> list(static_cast<std::size_t>(intensities.n), "pwi_l");
  if (!list) return failed;
  std::int32_t n = 0;
  for (std::size_t j = 0; j < static_cast<std::size_t>(intensities.n); ++j) {
    const std::int32_t i = intensities.row[j];
    if (data->centric[i] != 0 || !(intensities.values[j] > 0.0)) continue;
    list[static_cast<std::size_t>(n++)] = {data->h[i], data->k[i], data->l[i],
                                           intensities.values[j]};
  }
  wilson->twin = qx::l_test(n, list.get());
  return ok;
}

Status qx_calc_wilson_anisotropy() {
  constexpr const char* heading = "qx_calc_wilson_anisotropy():";
  qxwilson* wilson = nullptr;
  qxrefdata* data = nullptr;
  QX_TRY(fetch(heading, wilson, data));
  const qxspg* group = qx_get_qxspg();
  if (!group) return fail_if_there(heading, "qxspg object has not been created yet ");
  const qxcell* cell = qx_get_qxcell();
  if (!cell) return fail_if_there(heading, "qxcell object has not been created yet ");
  qx::TensorBasis basis;
  QX_TRY(qx::group_tensors(*group, *cell, false, basis));
  Intensities intensities;
  QX_TRY(gather(heading, *data, intensities));
  qx::ResolutionCurve curve;
  QX_TRY(draw(intensities, curve));
  Tagged<double[3]> all;
  QX_TRY(qx::scattering_vectors(heading, *data, all));
  const auto n = static_cast<std::size_t>(intensities.n);
  const Tagged<double[3]> s(n, "pwi_s");
  if (!s) return failed;
  for (std::size_t i = 0; i < n; ++i) {
    std::copy_n(all[static_cast<std::size_t>(intensities.row[i])], 3, s[i]);
    const double mean = curve.at(intensities.s2[i]);
    intensities.values[i] = mean > 0.0 ? intensities.values[i] / mean : 1.0;
  }
  qx::fit_anisotropy(intensities.n, intensities.values.get(), s.get(), basis, wilson->b_cart);
  wilson->spread = qx::principal_spread(wilson->b_cart);
  wilson->has_directions = true;
  return ok;
}

namespace {

struct Errors {
  const float* intensity;
  const float* sigma;
};

Status measured(const char* heading, const qxrefdata& data, Errors& errors) {
  errors = data.iobs ? Errors{data.iobs, data.sigi} : Errors{data.imean, data.sigimean};
  if (!errors.intensity) return fail(heading, "There are no intensities to make amplitudes of.");
  if (!errors.sigma) return fail(heading, "The intensities have no errors.");
  return ok;
}

}  // namespace

Status qx_calc_wilson_amplitudes() {
  constexpr const char* heading = "qx_calc_wilson_amplitudes():";
  qxwilson* wilson = nullptr;
  qxrefdata* data = nullptr;
  QX_TRY(fetch(heading, wilson, data));
  Errors errors = {};
  QX_TRY(measured(heading, *data, errors));
  Intensities intensities;
  QX_TRY(gather(heading, *data, intensities));
  qx::ResolutionCurve curve;
  QX_TRY(draw(intensities, curve));
  if (std::none_of(intensities.values.get(), intensities.values.get() + intensities.n,
                   [](double value) { return value > 0.0; })) {
    return fail(heading, "None of the intensities is above 0.");
  }
  const auto size = static_cast<std::size_t>(data->nreflections);
  if (!data->fobs) QX_TRY(qx::open_block(data->fobs, size, "pwa_f"));
  if (!data->sigf) QX_TRY(qx::open_block(data->sigf, size, "pwa_sf"));
  wilson->namplitudes = wilson->nleft_out = 0;
  for (std::int32_t i = 0; i < data->nreflections; ++i) {
    const auto intensity = static_cast<double>(errors.intensity[i]);
    const auto sigma = static_cast<double>(errors.sigma[i]);
    data->fobs[i] = data->sigf[i] = std::nanf("");
    if (!std::isfinite(intensity) || !std::isfinite(sigma) || !(sigma > 0.0)) {
      ++wilson->nleft_out;
      continue;
    }
    const double s = data->s_length[i];
    const qx::Amplitude a = qx::french_wilson(intensity, sigma, data->epsilon[i] * curve.at(s * s),
                                              data->centric[i] != 0);
    data->fobs[i] = static_cast<float>(a.f);
    data->sigf[i] = static_cast<float>(a.sigma);
    ++wilson->namplitudes;
  }
  qx::say("Amplitudes from intensities : %d, %d left out without an intensity or its error\n",
          wilson->namplitudes, wilson->nleft_out);
  return ok;
}

Status qx_get_wilson_view(qx_wilson_view* view) {
  const qxwilson* w = qx_get_qxwilson();
  if (!qx_exist_quorix()) return failed;
  if (!w) return fail("qx_get_wilson_view():", "qxwilson object has not been created yet.");
  *view = {w->plotted ? w->plot.nbins : 0,
           w->plot.k,
           w->plot.b,
           w->plot.correlation,
           w->acentric.n,
           w->centric.n,
           w->acentric.z2,
           w->centric.z2,
           w->acentric.e,
           w->centric.e,
           w->twin.n,
           w->twin.mean_l,
           w->twin.mean_l2,
           w->namplitudes,
           w->nleft_out,
           w->has_directions,
           {},
           w->spread};
  std::copy_n(w->b_cart, 6, view->b_cart);
  return ok;
}

std::int32_t qx_get_wilson_bin(std::int32_t i, qx_wilson_bin* bin) {
  const qxwilson* w = qx_get_qxwilson();
  if (!w || !w->plotted || i < 0 || i >= w->plot.nbins) return 0;
  const qx::WilsonBin& from = w->plot.bins[i];
  *bin = {from.n, from.s2, from.log_ratio};
  return 1;
}

namespace {

void print_moments(const char* what, const qx::Moments& m, double z2, double e) {
  if (m.n < 1) return;
  qx::say("%-28s: <Z^2> = %.3f (%.3f)  <E> = %.3f (%.3f)  (%d reflections)\n", what, m.z2, z2, m.e,
          e, m.n);
}

// No verdict of twinning: weak intensities that were overestimated lower the moments as well.
void print_twin(const qxwilson& wilson) {
  constexpr double suspicious = 0.45;
  if (wilson.twin.n < 1) return;
  qx::say(
      "L test                      : <|L|> = %.3f (0.500, twinned 0.375)  <L^2> = %.3f "
      "(0.333, 0.200)  (%d pairs)\n",
      wilson.twin.mean_l, wilson.twin.mean_l2, wilson.twin.n);
  if (wilson.twin.mean_l < suspicious) {
    qx::say("WARNING: twinned, or weak intensities overestimated.\n");
  }
}

}  // namespace

Status qx_print_wilson() {
  const qxwilson* wilson = qx_get_qxwilson();
  if (!qx_exist_quorix()) return failed;
  if (!wilson) return fail("qx_print_wilson():", "qxwilson object has not been created yet.");
  if (wilson->plotted) {
    const qx::WilsonPlot& plot = wilson->plot;
    qx::say(
        "Wilson plot                 : k = %.5f  B = %.2f  correlation = %.4f  (%s, %d "
        "bins)\n",
        plot.k, plot.b, plot.correlation,
        wilson->from_model ? "atoms of the model" : "an average protein", plot.nbins);
  }
  print_moments("Acentric moments", wilson->acentric, 2.0, 0.886);
  print_moments("Centric moments", wilson->centric, 3.0, 0.798);
  if (wilson->has_directions) {
    const double(&b)[6] = wilson->b_cart;
    qx::say(
        "Anisotropy                  : B11 = %.2f B22 = %.2f B33 = %.2f B12 = %.2f B13 = %.2f "
        "B23 = %.2f  spread = %.2f\n",
        b[0], b[1], b[2], b[3], b[4], b[5], wilson->spread);
  }
  print_twin(*wilson);
  return ok;
}
