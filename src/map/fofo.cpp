// Differences of two sets of observations: their object, scale, weights and maps.
#include "map/fofo.h"

#include "core/constants.h"
#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "map/coefficients.h"
#include "map/fofo_pairs.h"
#include "map/map.h"
#include "scaling/observed.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/map.h>
#include <quorix/model.h>
#include <quorix/reflections.h>
#include <quorix/spacegroup.h>
#include <quorix/structfact.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

using qx::ComplexF;
using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;
using qx::Tagged;

qxfofo* qx_get_qxfofo() { return qx::slot(qx_get_refsys(), &refsys::fofo); }
Status qx_set_qxfofo(qxfofo* object) { return qx::install(qx_get_refsys(), &refsys::fofo, object); }
Status qx_new_qxfofo() { return qx::create_in(qx_delete_qxfofo, qx_set_qxfofo, "pnf_fofo"); }

Status qx_delete_qxfofo() {
  qxfofo* fofo = qx_get_qxfofo();
  if (!fofo) return ok;
  QX_TRY(qx::drop_differences(*fofo));
  if (qxrefdata* set = std::exchange(fofo->second, nullptr)) {
    QX_TRY(qx_delete_qxrefdata_obj(set));
  }
  return qx::remove_from(fofo, qx_set_qxfofo);
}

Status qx::drop_differences(qxfofo& fofo) {
  fofo.known = false;
  QX_TRY(release(fofo.difference));
  QX_TRY(release(fofo.error));
  return release(fofo.weights);
}

namespace {

constexpr const char* here = "qx_calc_fofo_differences():";

struct Needs {
  qxfofo* fofo = nullptr;
  qxrefdata* data = nullptr;
  const qxspg* group = nullptr;
  const qxcell* cell = nullptr;
};

Status fetch(const char* heading, Needs& needs) {
  QX_TRY(qx::require_of_engine(
      heading, qx::need(qx_get_qxfofo, needs.fofo, "qxfofo object has not been created yet."),
      qx::need(qx_get_qxrefdata, needs.data, "qxrefdata object has not been created yet."),
      qx::need(qx_get_qxspg, needs.group, "qxspg object has not been created yet "),
      qx::need(qx_get_qxcell, needs.cell, "qxcell object has not been created yet ")));
  return ok;
}

// The pairs side by side, and where in the first set each is.
class Pairs {
 public:
  Status fill(const Needs& needs, const qx::Partners& partners) {
    const auto n = static_cast<std::size_t>(partners.pairs);
    values_ = Tagged<double>(7 * n, "pfd_pack");
    if (!values_) return failed;
    vectors_ = Tagged<double[3]>(n, "pfd_s");
    if (!vectors_) return failed;
    rows_ = Tagged<std::int32_t>(n, "pfd_row");
    if (!rows_) return failed;
    Tagged<double[3]> all;
    QX_TRY(qx::scattering_vectors(here, *needs.data, all));
    const auto column = [&](std::size_t c) { return values_.get() + c * n; };
    std::size_t j = 0;
    for (std::int32_t i = 0; i < needs.data->nreflections; ++i) {
      const auto at = static_cast<std::size_t>(i);
      if (!std::isfinite(partners.f[at])) continue;
      const double sigma = needs.data->sigf ? static_cast<double>(needs.data->sigf[i]) : 0.0;
      const double length = needs.data->s_length[i];
      column(0)[j] = static_cast<double>(needs.data->fobs[i]);
      column(1)[j] = partners.f[at];
      column(2)[j] = sigma > 0.0 ? sigma : 0.0;
      column(3)[j] = partners.sigma[at];
      column(4)[j] = length * length;
      std::copy_n(all[at], 3, vectors_[j]);
      rows_[j++] = i;
    }
    pairs_ = {partners.pairs, column(0), column(1),     column(2),
              column(3),      column(4), vectors_.get()};
    return ok;
  }
  [[nodiscard]] const qx::AmplitudePairs& data() const { return pairs_; }
  [[nodiscard]] std::int32_t row(std::size_t j) const { return rows_[j]; }
  [[nodiscard]] double* differences() const { return values_.get() + 5 * size(); }
  [[nodiscard]] double* errors() const { return values_.get() + 6 * size(); }

 private:
  [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(pairs_.n); }

  Tagged<double> values_;
  Tagged<double[3]> vectors_;
  Tagged<std::int32_t> rows_;
  qx::AmplitudePairs pairs_;
};

Status fit(const Needs& needs, const qx::AmplitudePairs& pairs) {
  needs.fofo->fit = {};
  if (needs.fofo->scale == qx::fofo_unscaled) return ok;
  qx::TensorBasis basis;
  const bool isotropic = needs.fofo->scale == qx::fofo_isotropic;
  QX_TRY(qx::group_tensors(*needs.group, *needs.cell, isotropic, basis));
  const Tagged<double> scratch(qx::pair_scale_scratch(pairs.n), "pfd_scratch");
  if (!scratch) return failed;
  const qx::PairScale result = qx::fit_pair_scale(pairs, basis, scratch.get());
  needs.fofo->fit = result;
  return ok;
}

Status open_columns(qxfofo& fofo, std::size_t n) {
  for (float** column : {&fofo.difference, &fofo.error, &fofo.weights}) {
    QX_TRY(qx::open_block(*column, n, "pfd_col"));
    std::fill_n(*column, n, std::numeric_limits<float>::quiet_NaN());
  }
  return ok;
}

void store(const Needs& needs, const Pairs& pairs) {
  qxfofo& fofo = *needs.fofo;
  const double most = fofo.reject > 0.0 ? fofo.reject * std::sqrt(fofo.means.mean_d2) : INFINITY;
  double sum = 0.0;
  for (std::size_t j = 0; j < static_cast<std::size_t>(pairs.data().n); ++j) {
    const double d = pairs.differences()[j];
    const double sigma = pairs.errors()[j];
    const std::int32_t row = pairs.row(j);
    if (std::fabs(d) > most) {
      ++fofo.rejected;
      continue;
    }
    const double w =
        fofo.weight == qx::fofo_q ? qx::difference_weight(fofo.means, d, sigma, fofo.alpha) : 1.0;
    fofo.negative += d < 0.0 ? 1 : 0;
    fofo.difference[row] = static_cast<float>(d);
    fofo.error[row] = sigma > 0.0 ? static_cast<float>(sigma) : std::nanf("");
    fofo.weights[row] = static_cast<float>(w);
    sum += w;
  }
  const std::int32_t used = fofo.pairs - fofo.rejected;
  fofo.mean_weight = used > 0 ? sum / used : 0.0;
}

void warn_of_strangers(const qxfofo& fofo) {
  constexpr double strange = 0.4;
  if (fofo.means.r > strange) {
    qx::say(
        "WARNING: the sets differ by R = %.2f: are both of one crystal form and indexed alike?\n",
        fofo.means.r);
  }
  if (fofo.weight == qx::fofo_q && fofo.means.without_error == fofo.pairs) {
    qx::say("WARNING: errors are not known: the weights rest on the differences alone.\n");
  }
}

}  // namespace

Status qx_calc_fofo_differences() {
  Needs needs;
  QX_TRY(fetch(here, needs));
  qxfofo& fofo = *needs.fofo;
  if (!fofo.second) return fail(here, "There is no second set of reflections: read one.");
  QX_TRY(qx::drop_differences(fofo));
  qx::Partners partners;
  QX_TRY(qx::find_partners(here, *needs.data, *fofo.second, *needs.group, partners));
  Pairs pairs;
  QX_TRY(pairs.fill(needs, partners));
  QX_TRY(fit(needs, pairs.data()));
  fofo.pairs = partners.pairs;
  fofo.first_only = partners.first_only;
  fofo.second_only = partners.second_only;
  fofo.negative = fofo.rejected = 0;
  fofo.means = qx::pair_differences(pairs.data(), fofo.fit, pairs.differences(), pairs.errors());
  QX_TRY(open_columns(fofo, static_cast<std::size_t>(needs.data->nreflections)));
  store(needs, pairs);
  fofo.nref = needs.data->nreflections;
  fofo.known = true;
  warn_of_strangers(fofo);
  return ok;
}

namespace {

// Cosine and sine of every reflection's phase.
Status phases(const char* heading, const qxrefdata& data, ComplexF& out) {
  if (qx_get_qxstructfact()) {
    const molsys* system = qx_get_molsys();
    if (!qx_exist_quorix()) return failed;
    if (system) return qx::calculated_factors(data, out);
  }
  if (!qx_exist_quorix()) return failed;
  if (!data.phic) return fail(heading, "There are no phases: neither a model's nor PHIC.");
  QX_TRY(qx::open_f(data.nreflections, out));
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double phase = static_cast<double>(data.phic[i]) * qx::pi / 180.0;
    out.re[at] = std::isfinite(phase) ? std::cos(phase) : 0.0;
    out.im[at] = std::isfinite(phase) ? std::sin(phase) : 0.0;
  }
  return ok;
}

// Weighted differences along the phases; one below 0 points the other way. 0 where there is none.
Status coefficients(const char* heading, const qxfofo& fofo, const qxrefdata& data, ComplexF& out) {
  QX_TRY(phases(heading, data, out));
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double amplitude = out.amplitude(i);
    const bool used = std::isfinite(fofo.difference[i]) && amplitude > 0.0;
    const double scale = used ? static_cast<double>(fofo.weights[i]) *
                                    static_cast<double>(fofo.difference[i]) / amplitude
                              : 0.0;
    out.re[at] = scale == 0.0 ? 0.0 : out.re[at] * scale;
    out.im[at] = scale == 0.0 ? 0.0 : out.im[at] * scale;
  }
  return ok;
}

Status fetch_known(const char* heading, Needs& needs) {
  QX_TRY(fetch(heading, needs));
  if (needs.fofo->known && needs.fofo->nref == needs.data->nreflections) return ok;
  QX_TRY(qx_calc_fofo_differences());
  return qx_print_fofo();
}

}  // namespace

Status qx_generate_fofo_map() {
  constexpr const char* heading = "qx_generate_fofo_map():";
  Needs needs;
  QX_TRY(fetch_known(heading, needs));
  const auto n = static_cast<std::size_t>(needs.data->nreflections);
  ComplexF f;
  QX_TRY(coefficients(heading, *needs.fofo, *needs.data, f));
  const Tagged<double> amplitude(n, "pfg_a");
  if (!amplitude) return failed;
  const Tagged<double> phase(n, "pfg_p");
  if (!phase) return failed;
  for (std::size_t i = 0; i < n; ++i) {
    amplitude[i] = std::hypot(f.re[i], f.im[i]);
    phase[i] = amplitude[i] > 0.0 ? std::atan2(f.im[i], f.re[i]) * 180.0 / qx::pi : 0.0;
  }
  return qx_generate_map_core(amplitude.get(), phase.get());
}

Status qx_replace_refdata_fofo() {
  constexpr const char* heading = "qx_replace_refdata_fofo():";
  Needs needs;
  QX_TRY(fetch_known(heading, needs));
  qxrefdata& data = *needs.data;
  const qxfofo& fofo = *needs.fofo;
  const auto n = static_cast<std::size_t>(data.nreflections);
  ComplexF f;
  QX_TRY(coefficients(heading, fofo, data, f));
  for (float** column : {&data.dp, &data.sigdp, &data.wt, &data.map_coeff, &data.map_phase}) {
    if (!*column) QX_TRY(qx::open_block(*column, n, "pfr_col"));
  }
  std::copy_n(fofo.difference, n, data.dp);
  std::copy_n(fofo.error, n, data.sigdp);
  std::copy_n(fofo.weights, n, data.wt);
  qx::put_polar(f, data.nreflections, data.map_coeff, data.map_phase);
  for (std::size_t i = 0; i < n; ++i) {
    if (std::isfinite(fofo.difference[i])) continue;
    data.map_coeff[i] = data.map_phase[i] = std::nanf("");
  }
  return ok;
}

Status qx_get_fofo_view(qx_fofo_view* view) {
  constexpr const char* heading = "qx_get_fofo_view():";
  const qxfofo* fofo = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxfofo, fofo,
                               "qxfofo object has not been created yet."));
  if (!fofo->known) return fail(heading, "The differences have not been calculated.");
  *view = {fofo->pairs,
           fofo->first_only,
           fofo->second_only,
           fofo->fit.k,
           {},
           fofo->fit.nbins,
           fofo->fit.centre,
           fofo->fit.curve,
           fofo->means.correlation,
           fofo->means.r,
           std::sqrt(fofo->means.mean_d2),
           std::sqrt(fofo->means.mean_variance),
           fofo->mean_weight,
           fofo->means.without_error,
           fofo->negative,
           fofo->rejected};
  std::copy_n(fofo->fit.b, 6, view->b);
  return ok;
}

Status qx_print_fofo() {
  qx_fofo_view v = {};
  QX_TRY(qx_get_fofo_view(&v));
  qx::say("Difference                  : second set minus first\n");
  qx::say("Reflections in both         : %d, only in the first %d, only in the second %d\n",
          v.pairs, v.first_only, v.second_only);
  qx::say(
      "Scale of the second set     : k = %.5f  B11 = %.3f B22 = %.3f B33 = %.3f B12 = %.3f "
      "B13 = %.3f B23 = %.3f, %d bins\n",
      v.k, v.b[0], v.b[1], v.b[2], v.b[3], v.b[4], v.b[5], v.nbins);
  qx::say("Agreement of the sets       : R = %.4f  correlation = %.4f\n", v.r, v.correlation);
  qx::say(
      "Differences                 : rms = %.4g  rms error = %.4g  %d below 0, %d rejected, mean "
      "weight = %.3f\n",
      v.rms_difference, v.rms_error, v.negative, v.rejected, v.mean_weight);
  return ok;
}
