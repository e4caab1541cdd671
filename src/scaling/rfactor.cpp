// R factors and correlation of the scaled model, overall and by bin.
#include "core/open_output.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "crystal/reflections.h"
#include "scaling/bin_agreement.h"
#include "scaling/cross_record.h"
#include "scaling/observed.h"
#include "scaling/scale.h"

#include <quorix/engine.h>
#include <quorix/reflections.h>
#include <quorix/solvent.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;
using qx::Tagged;

namespace {

constexpr const char* here = "qx_calc_rfactor():";

// Keeps the members of a list within the resolution range.
std::int32_t keep_range(const qxrefdata& data, double high, double low, std::int32_t n,
                        std::int32_t* list) {
  const auto* end = std::remove_if(list, list + n, [&](std::int32_t i) {
    const double s = data.s_length[i];
    return s * high > 1.0 + 1e-9 || s * low < 1.0 - 1e-9;
  });
  return static_cast<std::int32_t>(end - list);
}

// Amplitudes of the scaled model.
Status scaled_amplitudes(const qxrefdata& data, Tagged<double>& f) {
  qx::ComplexF total;
  QX_TRY(qx::open_f(data.nreflections, total));
  QX_TRY(qx_calc_total_structure_factor(total.re.get(), total.im.get()));
  f = Tagged<double>(static_cast<std::size_t>(data.nreflections), "prf_f");
  if (!f) return failed;
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    f[static_cast<std::size_t>(i)] = total.amplitude(i);
  }
  return ok;
}

qx_agreement compare(const qxrefdata& data, std::int32_t n, const std::int32_t* list,
                     const double* f) {
  if (n < 1) return {};
  const qx::Agreement a = qx::agreement(n, list, data.fobs, f);
  return {a.n, a.r, a.correlation};
}

}  // namespace

Status qx_calc_rfactor(double high, double low) {
  qxscale* scale = nullptr;
  const qxrefdata* data = nullptr;
  QX_TRY(qx::require_of_engine(
      here, qx::need(qx_get_qxscale, scale, "qxscale object has not been created "),
      qx::need(qx_get_qxrefdata, data, "qxrefdata object has not been created yet.")));
  qx::Observed observed;
  QX_TRY(qx::select_observed(here, *data, observed));
  Tagged<double> f;
  QX_TRY(scaled_amplitudes(*data, f));
  const std::int32_t nwork = keep_range(*data, high, low, observed.nwork, observed.work.get());
  const std::int32_t nfree = keep_range(*data, high, low, observed.nfree, observed.free.get());
  if (nwork < 1) {
    return fail(here, "There is no observed reflection between %.3f and %.3f A.", high, low);
  }
  qxcross* cross = nullptr;
  QX_TRY(qx::ensure_bins(data->nreflections, cross));
  QX_TRY(qx::measure_bins(*cross, {nwork, observed.work.get()}, {nfree, observed.free.get()},
                          data->fobs, f.get()));
  scale->work = compare(*data, nwork, observed.work.get(), f.get());
  scale->free = compare(*data, nfree, observed.free.get(), f.get());
  scale->high = high;
  scale->low = low;
  scale->compared = true;
  qx_fprint_bin_rfactor_mid_();
  if (!qx_exist_quorix()) return failed;
  QX_TRY(qx_set_hv_r_work(scale->work.r));
  return qx_set_hv_r_free(scale->free.r);
}

namespace {

Status fetch_compared(const char* heading, const qxscale*& scale) {
  QX_TRY(qx::require_of_engine(heading, qx_get_qxscale, scale,
                               "qxscale object has not been created "));
  if (!scale->compared) return fail(heading, "The R factors have not been calculated yet.");
  return ok;
}

void print_set(const char* what, const qx_agreement& set) {
  qx::print_agreement(what, {set.n, set.r, set.correlation});
}

}  // namespace

Status qx_get_rfactor(qx_agreement* work, qx_agreement* free) {
  const qxscale* scale = nullptr;
  QX_TRY(fetch_compared("qx_get_rfactor():", scale));
  *work = scale->work;
  *free = scale->free;
  return ok;
}

std::int32_t qx_get_rfactor_bin_count() {
  const qxcross* cross = qx_get_qxcross();
  return cross ? cross->bins_built : 0;
}

std::int32_t qx_get_rfactor_bin(std::int32_t bin, qx_rfactor_bin* out) {
  const qxcross* cross = qx_get_qxcross();
  if (!cross || bin < 0 || bin >= cross->bins_built) return 0;
  *out = {cross->bin_counts[bin],
          1.0 / std::max(cross->bin_ranges[bin][1], 1e-6),
          1.0 / std::max(cross->bin_ranges[bin][0], 1e-6),
          cross->bin_r[bin],
          cross->bin_rfree[bin],
          cross->bin_cc[bin],
          cross->bin_ccfree[bin],
          cross->bin_nwork[bin],
          cross->bin_nfree[bin]};
  return 1;
}

Status qx_print_rfactor() {
  const qxscale* scale = nullptr;
  QX_TRY(fetch_compared("qx_print_rfactor():", scale));
  const qxcross* cross = qx_get_qxcross();
  if (!cross) return qx_exist_quorix() ? ok : failed;
  const bool with_free = scale->free.n > 0;
  print_set(with_free ? "Working set" : "All reflections", scale->work);
  if (with_free) print_set("Free set", scale->free);
  qx::print_bins(*cross, with_free);
  return ok;
}

namespace {

void write_solvent(std::FILE* out, const qxscale& scale) {
  const qx::ScaleModel& m = scale.fit.model;
  constexpr const char* names[] = {"none", "exp", "bins", "smooth"};
  std::fprintf(out,
               "  \"scale\": {\n    \"k\": %.8g,\n    \"b_cart\": [%.6f, %.6f, %.6f, %.6f, %.6f, "
               "%.6f],\n",
               m.k, m.b[0], m.b[1], m.b[2], m.b[3], m.b[4], m.b[5]);
  std::fprintf(out,
               "    \"solvent\": {\"mode\": \"%s\", \"k_sol\": %.6f, \"b_sol\": %.4f, "
               "\"fraction\": %.6f},\n    \"bins\": [",
               names[scale.mode], m.k_sol, m.b_sol, qx_get_solvent_fraction());
  for (int i = 0; i < m.nbins; ++i) {
    std::fprintf(out, "%s\n      {\"d\": %.4f, \"k_mask\": %.6f, \"k_iso\": %.8g}", i ? "," : "",
                 1.0 / std::sqrt(m.centre[i]), m.k_mask[i], m.k_iso[i]);
  }
  std::fprintf(out, "%s]\n  },\n", m.nbins > 0 ? "\n    " : "");
}

void write_agreement(std::FILE* out, const char* name, const qx_agreement& a) {
  if (a.n < 1) {
    std::fprintf(out, "    \"%s\": null,\n", name);
  } else {
    std::fprintf(out, "    \"%s\": {\"n\": %d, \"r\": %.6f, \"correlation\": %.6f},\n", name, a.n,
                 a.r, a.correlation);
  }
}

void write_bins(std::FILE* out, const qxcross& cross, bool with_free) {
  const char* comma = "";
  std::fprintf(out, "    \"bins\": [");
  for (std::int32_t b = 0; b < cross.bins_built; ++b) {
    if (cross.bin_counts[b] == 0) continue;
    std::fprintf(out,
                 "%s\n      {\"n\": %d, \"d_low\": %.4f, \"d_high\": %.4f, \"r_work\": %.6f, "
                 "\"cc_work\": %.6f",
                 comma, cross.bin_counts[b], 1.0 / std::max(cross.bin_ranges[b][0], 1e-6),
                 1.0 / std::max(cross.bin_ranges[b][1], 1e-6), cross.bin_r[b], cross.bin_cc[b]);
    if (with_free) {
      std::fprintf(out, ", \"r_free\": %.6f, \"cc_free\": %.6f", cross.bin_rfree[b],
                   cross.bin_ccfree[b]);
    }
    std::fprintf(out, "}");
    comma = ",";
  }
  std::fprintf(out, "\n    ]\n");
}

}  // namespace

Status qx_write_rfactor_json(const char* path) {
  constexpr const char* heading = "qx_write_rfactor_json():";
  const qxscale* scale = nullptr;
  QX_TRY(fetch_compared(heading, scale));
  const qxcross* cross = qx_get_qxcross();
  if (!cross)
    return qx_exist_quorix() ? fail(heading, "qxcross object has not been created yet") : failed;
  qx::OutputFile file;
  QX_TRY(qx::open_output(heading, path, file));
  std::FILE* out = file.stream();
  std::fprintf(out, "{\n");
  write_solvent(out, *scale);
  std::fprintf(out, "  \"r\": {\n");
  write_agreement(out, "work", scale->work);
  write_agreement(out, "free", scale->free);
  write_bins(out, *cross, scale->free.n > 0);
  std::fprintf(out, "  }\n}\n");
  if (!file.commit()) return fail(heading, "Failed to write file \"%s\" ", path);
  return ok;
}
