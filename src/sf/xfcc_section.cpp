// The structure-factor section: calculate, scale to the observations, put into the data set.
#include "core/constants.h"
#include "core/cross_record.h"
#include "core/object.h"
#include "core/section.h"
#include "crystal/reflections.h"
#include "sf/scale_fit.h"
#include "sf/structfact.h"

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
Status print_bins(qxcross* cross, const qxrefdata* data, const double* fc) {
  qx::Tagged<std::int8_t> is_free;
  QX_TRY(mark_free(cross, data->nreflections, is_free));
  const bool with_free = cross->nfree > 0 && cross->ntotal == data->nreflections;
  std::printf(with_free ? "bin #  nreflection  high_res   low_res   RFree       R  CCFree      CC\n"
                        : "bin #  nreflection  high_res   low_res       R      CC\n");
  for (std::int32_t bin = 0; bin < cross->bins_built; ++bin) {
    if (cross->bin_counts[bin] == 0) continue;
    qx::Tagged<std::int32_t> scratch;
    List list = {};
    QX_TRY(pick(cross, bin, is_free.get(), false, scratch, list));
    const qx::Agreement work = qx::agreement(list.n, list.members, data->fobs, fc);
    QX_TRY(pick(cross, bin, is_free.get(), true, scratch, list));
    const qx::Agreement free = qx::agreement(list.n, list.members, data->fobs, fc);
    cross->bin_r[bin] = work.r;
    cross->bin_rfree[bin] = free.r;
    std::printf("%5d  %11d  %8.3f  %8.3f  ", bin + 1, cross->bin_counts[bin],
                resolution(cross->bin_ranges[bin][1]), resolution(cross->bin_ranges[bin][0]));
    if (with_free) {
      std::printf("%6.3f  %6.3f  %6.3f  %6.3f\n", free.r, work.r, free.correlation,
                  work.correlation);
    } else {
      std::printf("%6.3f  %6.3f\n", work.r, work.correlation);
    }
  }
  return ok;
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
  std::printf("Overall scale of Fc         : k = %.5f  B = %.3f\n", scale.k, scale.b);
  print_agreement(split ? "Working set" : "All reflections",
                  qx::agreement(work.n, work.members, data->fobs, fc.get()));
  if (split && cross->nfree > 0) {
    print_agreement("Free set", qx::agreement(cross->nfree, cross->free, data->fobs, fc.get()));
  }
  return print_bins(cross, data, fc.get());
}

Status qx_replace_refdata_fc() {
  qxrefdata* data = qx_get_qxrefdata();
  if (!data) return fail("qx_replace_refdata_fc():", "qxrefdata object has not been created yet.");
  const std::int32_t n = data->nreflections;
  if (n < 1) return ok;
  ModelF f;
  QX_TRY(calculate_model(n, f));
  for (float** column : {&data->fc, &data->phic}) {
    if (*column) continue;
    QX_TRY(qx::open_block(*column, static_cast<std::size_t>(n), "prf_fc"));
  }
  for (std::int32_t i = 0; i < n; ++i) {
    const auto at = static_cast<std::size_t>(i);
    double phase = std::atan2(f.im[at], f.re[at]) * 180.0 / qx::pi;
    if (phase < 0.0) phase += 360.0;
    data->fc[i] = static_cast<float>(f.amplitude(i));
    data->phic[i] = static_cast<float>(phase);
    if (data->phic[i] >= 360.0F) data->phic[i] = 0.0F;
  }
  return ok;
}

namespace {

constexpr qx::SectionTexts texts = {"qx_xfc_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xfc task: ", " ***"};

struct NoState {};

Status calculate(NoState&) { return qx_calc_system_struct_factor(); }
Status scale(NoState&) { return qx_scale_model_structure_factor(); }
Status replace(NoState&) { return qx_replace_refdata_fc(); }
Status finish(NoState&) { return ok; }

constexpr qx::Command<NoState> commands[] = {
    {"CALC", calculate}, {"SCAL", scale}, {"REPL", replace}, {"XEND", finish, true}};

}  // namespace

Status qx_xfc_ctrl() {
  NoState none;
  (void)qx::run_section(texts, commands, none);
  return ok;
}
