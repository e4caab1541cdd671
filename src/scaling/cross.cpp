// The cross-validation object: the split into working and free reflections, and the bins.
#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"
#include "scaling/cross_record.h"
#include "stats/cross_split.h"

#include <quorix/cross.h>
#include <quorix/engine.h>
#include <quorix/reflection_view.h>

#include <algorithm>
#include <cstdio>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::release;
using qx::Status;

namespace {

// Object and data set of one routine; both are reported under its heading when absent.
struct Subjects {
  qxcross* cross = nullptr;
  qx_reflection_view data = {};
};

Status fetch(const char* heading, Subjects& subjects) {
  QX_TRY(qx::require_of_engine(heading, qx_get_qxcross, subjects.cross,
                               "qxcross object has not been created yet"));
  if (!qx_get_reflection_view(&subjects.data)) {
    return fail(heading, "qxrefdata object has not been created yet");
  }
  return ok;
}

template <class T>
Status set_field(const char* heading, T qxcross::*field, T value) {
  qxcross* cross = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxcross, cross,
                               "qxcross object has not been created yet"));
  cross->*field = value;
  return ok;
}

Status clear_split(qxcross* cross) {
  cross->ntotal = cross->nwork = cross->nfree = 0;
  QX_TRY(release(cross->order));
  QX_TRY(release(cross->work));
  return release(cross->free);
}

Status clear_bins(qxcross* cross) {
  if (cross->bin_members) {
    for (std::int32_t b = 0; b < cross->bins_built; ++b) QX_TRY(release(cross->bin_members[b]));
  }
  cross->bins_built = cross->binned = 0;
  QX_TRY(release(cross->bin_members));
  QX_TRY(release(cross->bin_ranges));
  QX_TRY(release(cross->bin_counts));
  QX_TRY(release(cross->bin_of));
  QX_TRY(release(cross->bin_r));
  QX_TRY(release(cross->bin_rfree));
  QX_TRY(release(cross->bin_cc));
  QX_TRY(release(cross->bin_ccfree));
  QX_TRY(release(cross->bin_nwork));
  return release(cross->bin_nfree);
}

struct Tags {
  const char* order;
  const char* free;
  const char* work;
};

// Deals the ordered reflections out to the two lists, in that order.
template <class IsFree>
Status deal_out(qxcross* cross, const Tags& tags, IsFree is_free) {
  QX_TRY(qx::open_list(cross->free, cross->nfree, tags.free));
  QX_TRY(qx::open_list(cross->work, cross->nwork, tags.work));
  std::int32_t free = 0;
  std::int32_t work = 0;
  for (std::int32_t i = 0; i < cross->ntotal; ++i) {
    const std::int32_t reflection = cross->order[i];
    if (is_free(i)) {
      cross->free[free++] = reflection;
    } else {
      cross->work[work++] = reflection;
    }
  }
  return ok;
}

bool flag_occurs(const qx_reflection_view& data, std::int32_t value) {
  return std::any_of(data.test, data.test + data.n, [value](auto flag) { return flag == value; });
}

}  // namespace

Status qx_new_qxcross() { return qx::create_in(qx_delete_qxcross, qx_set_qxcross, "pnp_cr"); }

Status qx_delete_qxcross() {
  qxcross* cross = qx_get_qxcross();
  if (!cross) return ok;
  QX_TRY(clear_split(cross));
  QX_TRY(clear_bins(cross));
  return qx::remove_from(cross, qx_set_qxcross);
}

qxcross* qx_get_qxcross() { return qx::slot(qx_get_refsys(), &refsys::cross); }
Status qx_set_qxcross(qxcross* object) {
  return qx::install(qx_get_refsys(), &refsys::cross, object);
}

Status qx_set_qxcross_percent(double percent) {
  return set_field("qx_set_qxcross_percent():", &qxcross::percent, percent);
}
Status qx_set_qxcross_seed(std::int32_t seed) {
  return set_field("qx_set_qxcross_seed():", &qxcross::seed, seed);
}
Status qx_set_qxcross_nbin(std::int32_t nbin) {
  return set_field("qx_set_qxcross_nbin():", &qxcross::nbin, nbin);
}

Status qx_set_work_free_reflection(std::int32_t use_flags, std::int32_t flag_value) {
  constexpr const char* heading = "qx_set_work_free_reflection():";
  Subjects subjects;
  QX_TRY(fetch(heading, subjects));
  const bool by_flags = use_flags == 1 && subjects.data.test;
  if (use_flags == 1 && !subjects.data.test) {
    qx::say("Free and working sets will be set by Quorix with \n");
    qx::say("seed = %d, percentage = %5.2f \n", subjects.cross->seed, subjects.cross->percent);
  }
  if (by_flags && !flag_occurs(subjects.data, flag_value)) {
    return fail(heading, "There is no flag value \"%d\" for free testing set.", flag_value);
  }
  QX_TRY(by_flags ? qx_set_work_free_reflection_by_read(flag_value)
                  : qx_set_work_free_reflection_by_seed());
  QX_TRY(qx_set_rfactor_bins());
  const qxcross* cross = subjects.cross;
  QX_TRY(qx_set_hv_rfree_nrefl(cross->nfree));
  // Kept: a fraction goes where the name says percent.
  return qx_set_hv_rfree_percent(
      cross->ntotal > 0 ? cross->nfree / static_cast<double>(cross->ntotal) : 0.0);
}

Status qx_set_work_free_reflection_by_read(std::int32_t flag_value) {
  constexpr const char* heading = "qx_set_work_free_reflection_by_read():";
  constexpr Tags tags = {"pswfrr_wf", "pswfrr_pf", "pswfrr_pw"};
  Subjects subjects;
  QX_TRY(fetch(heading, subjects));
  auto [cross, data] = subjects;
  if (!data.test) {
    return fail(heading, "There is no flag value \"%d\" for free testing set.", flag_value);
  }
  QX_TRY(clear_split(cross));
  cross->ntotal = data.n;
  cross->nfree = static_cast<std::int32_t>(std::count_if(
      data.test, data.test + data.n, [flag_value](auto flag) { return flag == flag_value; }));
  cross->nwork = data.n - cross->nfree;
  QX_TRY(qx::open_list(cross->order, data.n, tags.order));
  for (std::int32_t i = 0; i < data.n; ++i) cross->order[i] = i;
  const std::int16_t* test = data.test;
  return deal_out(cross, tags, [=](std::int32_t i) { return test[i] == flag_value; });
}

namespace {

// Marks one position in each of nfree consecutive groups of the order.
Status draw(const qxcross* cross, qx::Tagged<char>& marked) {
  std::int32_t seed = cross->seed;
  std::fill_n(marked.get(), cross->ntotal, char{0});
  for (std::int32_t group = 0; group < cross->nfree; ++group) {
    const std::int32_t start = qx::group_start(cross->ntotal, cross->nfree, group);
    const std::int32_t end = qx::group_start(cross->ntotal, cross->nfree, group + 1);
    marked[static_cast<std::size_t>(qx_get_random_int(&seed, start, end))] = 1;
  }
  return ok;
}

}  // namespace

Status qx_set_work_free_reflection_by_seed() {
  constexpr const char* heading = "qx_set_work_free_reflection_by_seed():";
  constexpr Tags tags = {"pswfr_wf", "pswfr_pf", "pswfr_pw"};
  Subjects subjects;
  QX_TRY(fetch(heading, subjects));
  auto [cross, data] = subjects;
  QX_TRY(clear_split(cross));
  cross->ntotal = data.n;
  QX_TRY(qx::open_list(cross->order, data.n, tags.order));
  if (data.n > 0) qx::order_by_length(data.n, data.s_length, cross->order);
  if (!(cross->percent > 0.0)) return ok;
  const std::int32_t nfree = qx::free_count(data.n, cross->percent);
  if (nfree == 0) {
    return fail(heading, "There is no reflection left for Rfree based on Rfree-percentage: %f ",
                cross->percent);
  }
  if (nfree >= data.n) {
    return fail(heading,
                "There is no reflection left for working set based on Rfree-percentage: %f ",
                cross->percent);
  }
  cross->nfree = nfree;
  cross->nwork = data.n - nfree;
  qx::Tagged<char> marked(static_cast<std::size_t>(data.n), "pswfr_ifr");
  if (!marked) return failed;
  QX_TRY(draw(cross, marked));
  return deal_out(cross, tags,
                  [&](std::int32_t i) { return marked[static_cast<std::size_t>(i)] != 0; });
}

namespace {

Status open_bins(qxcross* cross, std::int32_t n) {
  const auto nbin = static_cast<std::size_t>(cross->nbin);
  QX_TRY(qx::open_zeroed(cross->bin_ranges, nbin, "psrb_sr"));
  QX_TRY(qx::open_zeroed(cross->bin_counts, nbin, "psrb_nb"));
  QX_TRY(qx::open_zeroed(cross->bin_members, nbin, "psrb_rb"));
  cross->bins_built = cross->nbin;
  QX_TRY(qx::open_list(cross->bin_of, n, "psrb_br"));
  QX_TRY(qx::open_zeroed(cross->bin_r, nbin, "psrb_rfa"));
  QX_TRY(qx::open_zeroed(cross->bin_rfree, nbin, "psrb_rfr"));
  QX_TRY(qx::open_zeroed(cross->bin_cc, nbin, "psrb_cca"));
  QX_TRY(qx::open_zeroed(cross->bin_ccfree, nbin, "psrb_ccr"));
  QX_TRY(qx::open_zeroed(cross->bin_nwork, nbin, "psrb_nwa"));
  return qx::open_zeroed(cross->bin_nfree, nbin, "psrb_nfr");
}

Status fill_bin(qxcross* cross, std::int32_t bin, const std::int32_t* order, std::int32_t count,
                const double* s_length) {
  cross->bin_counts[bin] = count;
  if (count == 0) return ok;
  QX_TRY(qx::open_list(cross->bin_members[bin], count, "psrb_br2"));
  std::copy_n(order, count, cross->bin_members[bin]);
  for (std::int32_t i = 0; i < count; ++i) cross->bin_of[order[i]] = bin;
  cross->bin_ranges[bin][0] = s_length[order[0]];
  cross->bin_ranges[bin][1] = s_length[order[count - 1]];
  return ok;
}

}  // namespace

Status qx_set_rfactor_bins() {
  constexpr const char* heading = "qx_set_rfactor_bins():";
  Subjects subjects;
  QX_TRY(fetch(heading, subjects));
  auto [cross, data] = subjects;
  QX_TRY(clear_bins(cross));
  if (cross->nbin < 1) return ok;
  constexpr std::int32_t most_bins = 1000000;
  if (cross->nbin > most_bins) return fail(heading, "not a valid nbin value %d", cross->nbin);
  QX_TRY(open_bins(cross, data.n));
  if (data.n < 1) return ok;
  qx::Tagged<std::int32_t> order(static_cast<std::size_t>(data.n), "psrb_si");
  if (!order) return failed;
  qx::order_by_length(data.n, data.s_length, order.get());
  for (std::int32_t bin = 0; bin < cross->nbin; ++bin) {
    const std::int32_t start = qx::group_start(data.n, cross->nbin, bin);
    const std::int32_t end = qx::group_start(data.n, cross->nbin, bin + 1);
    QX_TRY(fill_bin(cross, bin, order.get() + start, end - start, data.s_length));
  }
  cross->binned = data.n;
  return ok;
}

const std::int32_t* qx_get_qxcross_free(std::int32_t* n) {
  const qxcross* cross = qx_get_qxcross();
  *n = cross ? cross->nfree : 0;
  return cross ? cross->free : nullptr;
}

namespace {

double resolution(double s_length) { return s_length > 0.0 ? 1.0 / s_length : 0.0; }

}  // namespace

void qx_print_bin_rfactor() {
  const qxcross* cross = qx_get_qxcross();
  if (!cross) {
    if (qx_exist_quorix()) {
      (void)fail("qx_print_bin_rfactor():", "qxcross object has not been created yet");
    }
    return;
  }
  const bool with_free = cross->nfree > 0;
  qx::say(with_free ? "bin #  nreflection  high_res   low_res   RFree       R\n"
                    : "bin #  nreflection  high_res   low_res       R\n");
  for (std::int32_t b = 0; b < cross->bins_built; ++b) {
    qx::say("%5d  %11d  %8.3f  %8.3f  ", b + 1, cross->bin_counts[b],
            resolution(cross->bin_ranges[b][1]), resolution(cross->bin_ranges[b][0]));
    if (with_free) qx::say("%6.3f  ", cross->bin_rfree[b]);
    qx::say("%6.3f\n", cross->bin_r[b]);
  }
}

void qx_fprint_bin_rfactor_() { qx_print_bin_rfactor(); }

void qx_fprint_bin_rfactor_mid_() {
  if (qx_get_qxverbsys_verb_binr() >= 1) qx_print_bin_rfactor();
}
