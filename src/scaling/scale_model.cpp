// Scaling the atoms' structure factors alone to the observations: k and B, agreement overall and by
// bin.
#include "core/constants.h"
#include "core/object.h"
#include "core/report.h"
#include "crystal/reflections.h"
#include "scaling/cross_record.h"
#include "sf/structfact.h"
#include "stats/scale_fit.h"

#include <quorix/cross.h>
#include <quorix/engine.h>
#include <quorix/reflections.h>

#include <cmath>
#include <cstdio>
#include <numeric>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

// F of the model per reflection, in scratch.
struct ModelF {
  qx::Tagged<double> re;
  qx::Tagged<double> im;

  [[nodiscard]] double amplitude(std::int32_t i) const {
    const auto at = static_cast<std::size_t>(i);
    return std::hypot(re[at], im[at]);
  }
};

Status calculate_model(std::int32_t n, ModelF& f) {
  f.re = qx::Tagged<double>(static_cast<std::size_t>(n), "pxf_re");
  if (!f.re) return failed;
  f.im = qx::Tagged<double>(static_cast<std::size_t>(n), "pxf_im");
  if (!f.im) return failed;
  return qx_calc_model_structure_factor(f.re.get(), f.im.get());
}

Status amplitudes(const ModelF& f, std::int32_t n, qx::Tagged<double>& fc) {
  fc = qx::Tagged<double>(static_cast<std::size_t>(n), "pxf_fc");
  if (!fc) return failed;
  for (std::int32_t i = 0; i < n; ++i) fc[static_cast<std::size_t>(i)] = f.amplitude(i);
  return ok;
}

// A list of reflections: one of the cross-validation's, or all.
struct List {
  std::int32_t n;
  const std::int32_t* members;
};

Status list_all(std::int32_t n, qx::Tagged<std::int32_t>& all) {
  all = qx::Tagged<std::int32_t>(static_cast<std::size_t>(n), "pxf_all");
  if (!all) return failed;
  std::iota(all.get(), all.get() + n, 0);
  return ok;
}

// The members of a bin that are free, or that are not.
Status pick(const qxcross* cross, std::int32_t bin, const std::int8_t* is_free, bool free,
            qx::Tagged<std::int32_t>& out, List& list) {
  const std::int32_t n = cross->bin_counts[bin];
  out = qx::Tagged<std::int32_t>(static_cast<std::size_t>(n), "pxf_bin");
  if (!out) return failed;
  list = {0, out.get()};
  for (std::int32_t i = 0; i < n; ++i) {
    const std::int32_t reflection = cross->bin_members[bin][i];
    if ((is_free[reflection] != 0) == free) out[static_cast<std::size_t>(list.n++)] = reflection;
  }
  return ok;
}

Status mark_free(const qxcross* cross, std::int32_t n, qx::Tagged<std::int8_t>& is_free) {
  is_free = qx::Tagged<std::int8_t>(
      qx::allocate_zeroed<std::int8_t>(static_cast<std::size_t>(n), "pxf_free"));
  if (!is_free) return failed;
  if (cross->ntotal != n) return ok;  // a split of another data set
  for (std::int32_t i = 0; i < cross->nfree; ++i) {
    is_free[static_cast<std::size_t>(cross->free[i])] = 1;
  }
  return ok;
}

void print_agreement(const char* what, const qx::Agreement& a) {
  std::printf("%-28s: R = %7.4f  correlation = %7.4f  (%d reflections)\n", what, a.r, a.correlation,
              a.n);
}

// d in Angstrom; 0 for (0, 0, 0), which has none.
double resolution(double s_length) { return s_length > 0.0 ? 1.0 / s_length : 0.0; }

// R and correlation bin by bin, of the working set (or all) and of the free set; the R values go to
// the cross-validation object as well.
Status measure_bins(qxcross* cross, const qxrefdata* data, const double* fc,
                    qx::ScaleResult& result) {
  qx::Tagged<std::int8_t> is_free;
  QX_TRY(mark_free(cross, data->nreflections, is_free));
  QX_TRY(qx::open_list(result.bins, cross->bins_built, "pxf_bins"));
  for (std::int32_t bin = 0; bin < cross->bins_built; ++bin) {
    qx::BinAgreement& found = result.bins[bin];
    found = {};
    if (cross->bin_counts[bin] == 0) continue;
    qx::Tagged<std::int32_t> scratch;
    List list = {};
    QX_TRY(pick(cross, bin, is_free.get(), false, scratch, list));
    found.work = qx::agreement(list.n, list.members, data->fobs, fc);
    QX_TRY(pick(cross, bin, is_free.get(), true, scratch, list));
    found.free = qx::agreement(list.n, list.members, data->fobs, fc);
    cross->bin_r[bin] = found.work.r;
    cross->bin_rfree[bin] = found.free.r;
  }
  result.nbins = cross->bins_built;
  return ok;
}

// A set without a reflection has no R: a 0 would look like the best there is.
void print_value(const qx::Agreement& set, double value) {
  if (set.n > 0) {
    std::printf("  %6.3f", value);
  } else {
    std::printf("  %6s", "-");
  }
}

void print_bins(const qxcross* cross, const qx::ScaleResult& result, bool with_free) {
  std::printf(with_free ? "bin #  nreflection  high_res   low_res   RFree       R  CCFree      CC\n"
                        : "bin #  nreflection  high_res   low_res       R      CC\n");
  for (std::int32_t bin = 0; bin < result.nbins; ++bin) {
    if (cross->bin_counts[bin] == 0) continue;
    const auto& [work, free] = result.bins[bin];
    std::printf("%5d  %11d  %8.3f  %8.3f", bin + 1, cross->bin_counts[bin],
                resolution(cross->bin_ranges[bin][1]), resolution(cross->bin_ranges[bin][0]));
    if (with_free) print_value(free, free.r);
    print_value(work, work.r);
    if (with_free) print_value(free, free.correlation);
    print_value(work, work.correlation);
    std::printf("\n");
  }
}

void print_scaling(const qxcross* cross, const qx::ScaleResult& result) {
  std::printf("Overall scale of Fc         : k = %.5f  B = %.3f\n", result.scale.k, result.scale.b);
  print_agreement(result.split ? "Working set" : "All reflections", result.work);
  const bool with_free = result.split && cross->nfree > 0;
  if (with_free) print_agreement("Free set", result.free);
  print_bins(cross, result, with_free);
}

// Bins over all reflections when no cross-validation section has made any.
Status ensure_bins(qxcross*& cross, std::int32_t n) {
  if (!qx_get_qxcross()) QX_TRY(qx_new_qxcross());
  cross = qx_get_qxcross();
  if (!cross) return failed;
  if (cross->bins_built == 0 || cross->binned != n) QX_TRY(qx_set_rfactor_bins());
  return ok;
}

}  // namespace

Status qx_scale_model_structure_factor() {
  constexpr const char* heading = "qx_scale_model_structure_factor():";
  const qxrefdata* data = qx_get_qxrefdata();
  if (!data) return fail(heading, "qxrefdata object has not been created yet.");
  qxstructfact* sf = qx_get_qxstructfact();
  if (!sf) return fail(heading, "qxstructfact object has not been created yet ");
  if (!data->fobs) return fail(heading, "There are no observed amplitudes to scale to.");
  const std::int32_t n = data->nreflections;
  if (n < 1) return fail(heading, "There is no reflection to scale to.");
  sf->parts[0].scale = 1.0;
  sf->parts[0].b = 0.0;
  ModelF f;
  QX_TRY(calculate_model(n, f));
  qx::Tagged<double> fc;
  QX_TRY(amplitudes(f, n, fc));
  qxcross* cross = nullptr;
  QX_TRY(ensure_bins(cross, n));
  qx::Tagged<std::int32_t> all;
  QX_TRY(list_all(n, all));
  const bool split = cross->nwork > 0 && cross->ntotal == n;
  const List work = split ? List{cross->nwork, cross->work} : List{n, all.get()};
  const qx::OverallScale scale =
      qx::fit_scale(work.n, work.members, data->fobs, fc.get(), data->s_length);
  sf->parts[0].scale = scale.k;
  sf->parts[0].b = scale.b;
  for (std::int32_t i = 0; i < n; ++i) {
    const double s = data->s_length[i];
    fc[static_cast<std::size_t>(i)] *= scale.k * std::exp(-0.25 * scale.b * s * s);
  }
  qx::ScaleResult& result = sf->scaling;
  QX_TRY(qx::release(result.bins));
  result = {};
  result.scale = scale;
  result.split = split;
  result.work = qx::agreement(work.n, work.members, data->fobs, fc.get());
  if (split) result.free = qx::agreement(cross->nfree, cross->free, data->fobs, fc.get());
  QX_TRY(measure_bins(cross, data, fc.get(), result));
  result.done = true;
  print_scaling(cross, result);
  return ok;
}
