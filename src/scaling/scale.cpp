// The overall scale: its object, the fit, the scaled structure factors.
#include "scaling/scale.h"

#include "core/harvest.h"
#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "scaling/observed.h"
#include "solvent/solvent.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/reflections.h>
#include <quorix/solvent.h>
#include <quorix/spacegroup.h>
#include <quorix/structfact.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

using qx::ComplexF;
using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;
using qx::Tagged;

qxscale* qx_get_qxscale() { return qx::slot(qx_get_refsys(), &refsys::scale); }
Status qx_set_qxscale(qxscale* object) {
  return qx::install(qx_get_refsys(), &refsys::scale, object);
}
Status qx_new_qxscale() { return qx::create_in(qx_delete_qxscale, qx_set_qxscale, "pns_scale"); }
Status qx_delete_qxscale() { return qx::remove_from(qx_get_qxscale(), qx_set_qxscale); }

namespace {

constexpr const char* here = "qx_fit_overall_scale():";

// Below this many working reflections the bins have too few members to say more than two numbers.
constexpr std::int32_t least_for_bins = 2000;

struct Needs {
  qxscale* scale = nullptr;
  const qxrefdata* data = nullptr;
  const qxspg* group = nullptr;
  const qxcell* cell = nullptr;
};

Status fetch(Needs& needs) {
  QX_TRY(qx::require_of_engine(
      here, qx::need(qx_get_qxscale, needs.scale, "qxscale object has not been created "),
      qx::need(qx_get_qxrefdata, needs.data, "qxrefdata object has not been created yet.")));
  if (!qx_get_qxstructfact()) return fail(here, "qxstructfact object has not been created yet ");
  QX_TRY(qx::require_of_engine(
      here, qx::need(qx_get_qxspg, needs.group, "qxspg object has not been created yet "),
      qx::need(qx_get_qxcell, needs.cell, "qxcell object has not been created yet ")));
  return ok;
}

// The solvent's structure factors for this data set, made when they are not there.
Status solvent_factors(const char* heading, const qxrefdata& data, const qxsolvent*& solvent) {
  QX_TRY(qx::require_of_engine(heading, qx_get_qxsolvent, solvent,
                               " qxsolvent object has not been created yet "));
  if (solvent->re && solvent->nref == data.nreflections) return ok;
  QX_TRY(qx_calc_solvent_structure_factor());
  solvent = qx_get_qxsolvent();
  return solvent ? ok : failed;
}

// Values of the working reflections side by side, in one block.
class Packed {
 public:
  Status fill(const Needs& needs, const qx::Observed& observed, const ComplexF& atoms,
              const qxsolvent* solvent, const Tagged<double[3]>& s) {
    const auto n = static_cast<std::size_t>(observed.nwork);
    values_ = Tagged<double>(6 * n, "pfs_pack");
    if (!values_) return failed;
    vectors_ = Tagged<double[3]>(n, "pfs_s");
    if (!vectors_) return failed;
    double* column[6];
    for (std::size_t c = 0; c < 6; ++c) column[c] = values_.get() + c * n;
    for (std::size_t j = 0; j < n; ++j) {
      const auto i = static_cast<std::size_t>(observed.work[j]);
      const double length = needs.data->s_length[i];
      column[0][j] = static_cast<double>(needs.data->fobs[i]);
      column[1][j] = atoms.re[i];
      column[2][j] = atoms.im[i];
      column[3][j] = solvent ? solvent->re[i] : 0.0;
      column[4][j] = solvent ? solvent->im[i] : 0.0;
      column[5][j] = length * length;
      std::copy_n(s[i], 3, vectors_[j]);
    }
    data_ = {observed.nwork, column[0], column[1], column[2],
             column[3],      column[4], column[5], vectors_.get()};
    return ok;
  }
  [[nodiscard]] const qx::ScaleData& data() const { return data_; }

 private:
  Tagged<double> values_;
  Tagged<double[3]> vectors_;
  qx::ScaleData data_;
};

void choose_mode(qxscale* scale, const qx::Observed& observed) {
  if (scale->mode_chosen) return;
  scale->mode = observed.nwork < least_for_bins ? qx::exponential_solvent : qx::binned_solvent;
}

bool all_zero(const qx::ScaleData& data) {
  double sum = 0.0;
  for (std::int32_t i = 0; i < data.n; ++i) sum += std::fabs(data.re[i]) + std::fabs(data.im[i]);
  return !(sum > 0.0) || !std::isfinite(sum);
}

Status fit(const Needs& needs, const qx::ScaleData& data) {
  if (all_zero(data)) return fail(here, "The model's structure factors are zero throughout.");
  qx::ScaleSettings settings;
  settings.mode = needs.scale->mode;
  settings.k_sol = needs.scale->k_sol;
  settings.b_sol = needs.scale->b_sol;
  QX_TRY(qx::group_tensors(*needs.group, *needs.cell, !needs.scale->anisotropic, settings.basis));
  const Tagged<double> scratch(qx::scale_scratch_size(data.n), "pfs_scratch");
  if (!scratch) return failed;
  const qx::ScaleFit result = qx::fit_model_scale(data, settings, scratch.get());
  needs.scale->fit = result;
  needs.scale->nref = needs.data->nreflections;
  needs.scale->fitted = true;
  needs.scale->compared = false;
  return ok;
}

Status tell(std::int32_t nref) {
  const bool wanted = qx_get_qxverbsys_verb_ls() >= 1;
  if (!qx_exist_quorix()) return failed;
  const qxscale* scale = qx_get_qxscale();
  if (!scale) return failed;
  if (!wanted) return ok;
  qx::say("Least squares               : %d reflections, %d steps, %d rounds, sum = %.6g\n", nref,
          scale->fit.steps, scale->fit.rounds, scale->fit.sum);
  return ok;
}

}  // namespace

Status qx_fit_overall_scale() {
  Needs needs;
  QX_TRY(fetch(needs));
  qx::Observed observed;
  QX_TRY(qx::select_observed(here, *needs.data, observed));
  if (!observed.split) {
    qx::say("WARNING: there is no free set: the scale is fitted to all reflections.\n");
  }
  choose_mode(needs.scale, observed);
  ComplexF atoms;
  QX_TRY(qx::open_f(needs.data->nreflections, atoms));
  QX_TRY(qx_calc_model_structure_factor(atoms.re.get(), atoms.im.get()));
  const qxsolvent* solvent = nullptr;
  if (needs.scale->mode != qx::no_solvent) {
    QX_TRY(solvent_factors(here, *needs.data, solvent));
  }
  Tagged<double[3]> s;
  QX_TRY(qx::scattering_vectors(here, *needs.data, s));
  Packed packed;
  QX_TRY(packed.fill(needs, observed, atoms, solvent, s));
  QX_TRY(fit(needs, packed.data()));
  QX_TRY(tell(observed.nwork));
  const qx::ScaleModel& model = needs.scale->fit.model;
  QX_TRY(qx_set_hv_k_sol(model.k_sol));
  return qx_set_hv_b_sol(model.b_sol);
}

namespace {

Status fetch_fitted(const char* heading, const qxscale*& scale, const qxrefdata*& data) {
  QX_TRY(qx::require_of_engine(
      heading, qx::need(qx_get_qxscale, scale, "qxscale object has not been created "),
      qx::need(qx_get_qxrefdata, data, "qxrefdata object has not been created yet.")));
  if (scale->fitted && scale->nref == data->nreflections) return ok;
  return fail(heading, "The scale has not been fitted to these reflections.");
}

const char* mode_name(qx::SolventMode mode) {
  constexpr const char* names[] = {"none", "exp", "bins", "smooth"};
  return names[mode];
}

void print_bins(const qx::ScaleModel& model) {
  qx::say("bin #         d    k_mask       k_iso\n");
  for (int i = 0; i < model.nbins; ++i) {
    qx::say("%5d  %8.3f  %8.4f  %10.5f\n", i + 1, 1.0 / std::sqrt(model.centre[i]), model.k_mask[i],
            model.k_iso[i]);
  }
}

}  // namespace

Status qx_print_overall_scale(std::int32_t bins) {
  const qxscale* scale = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(fetch_fitted("qx_print_overall_scale():", scale, data));
  const qx::ScaleModel& model = scale->fit.model;
  qx::say("Overall scale               : k = %.5f\n", model.k);
  qx::say(
      "B of the scale              : B11 = %.3f B22 = %.3f B33 = %.3f B12 = %.3f B13 = %.3f "
      "B23 = %.3f\n",
      model.b[0], model.b[1], model.b[2], model.b[3], model.b[4], model.b[5]);
  qx::say("Bulk solvent (%s)%*s: k_sol = %.4f  B_sol = %.2f  fraction = %.3f\n",
          mode_name(scale->mode), static_cast<int>(13 - std::strlen(mode_name(scale->mode))), "",
          model.k_sol, model.b_sol, qx_get_solvent_fraction());
  if (model.mode == qx::smooth_solvent) {
    qx::say("Smooth solvent              : k_sol = %.4f  d_half = %.3f  power = %.3f\n",
            model.smooth_k, 1.0 / std::sqrt(model.half_s2), model.power);
  }
  if (bins != 0 && model.mode == qx::binned_solvent) print_bins(model);
  return ok;
}

Status qx_get_scale_view(qx_scale_view* view) {
  const qxscale* scale = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(fetch_fitted("qx_get_scale_view():", scale, data));
  const double fraction = qx_get_solvent_fraction();
  const qxml* ml = qx_get_qxml();
  if (!qx_exist_quorix()) return failed;
  const qx::ScaleModel& m = scale->fit.model;
  *view = {m.mode,  m.k,      {},       m.k_sol, m.b_sol, fraction,
           m.nbins, m.centre, m.k_mask, m.k_iso, 0,       0.0};
  std::copy_n(m.b, 6, view->b);
  if (ml && ml->fitted) {
    view->likelihood_used = ml->used;
    view->mean_fom = ml->mean_fom;
  }
  return ok;
}

Status qx_calc_total_structure_factor(double* re, double* im) {
  constexpr const char* heading = "qx_calc_total_structure_factor():";
  const qxscale* scale = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(fetch_fitted(heading, scale, data));
  QX_TRY(qx_calc_model_structure_factor(re, im));
  const qxsolvent* solvent = nullptr;
  if (scale->fit.model.mode != qx::no_solvent) QX_TRY(solvent_factors(heading, *data, solvent));
  Tagged<double[3]> s;
  QX_TRY(qx::scattering_vectors(heading, *data, s));
  for (std::int32_t i = 0; i < data->nreflections; ++i) {
    const double s2 = data->s_length[i] * data->s_length[i];
    const double k = qx::total_scale(scale->fit.model, s2, s[static_cast<std::size_t>(i)]);
    const double k_mask = solvent ? qx::solvent_scale(scale->fit.model, s2) : 0.0;
    re[i] = k * (re[i] + (solvent ? k_mask * solvent->re[i] : 0.0));
    im[i] = k * (im[i] + (solvent ? k_mask * solvent->im[i] : 0.0));
  }
  return ok;
}

Status qx_calc_total_scale(double* k_tot) {
  constexpr const char* heading = "qx_calc_total_scale():";
  const qxscale* scale = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(fetch_fitted(heading, scale, data));
  Tagged<double[3]> s;
  QX_TRY(qx::scattering_vectors(heading, *data, s));
  for (std::int32_t i = 0; i < data->nreflections; ++i) {
    const double s2 = data->s_length[i] * data->s_length[i];
    k_tot[i] = qx::total_scale(scale->fit.model, s2, s[static_cast<std::size_t>(i)]);
  }
  return ok;
}
