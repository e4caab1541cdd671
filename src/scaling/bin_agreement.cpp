#include "scaling/bin_agreement.h"

#include "core/say.h"
#include "core/tagged.h"
#include "scaling/cross_record.h"

#include <quorix/cross.h>

#include <cstdio>

namespace qx {

namespace {

// d in Angstrom; 0 for (0, 0, 0), which has none.
double resolution(double s_length) { return s_length > 0.0 ? 1.0 / s_length : 0.0; }

Status measure(const qxcross& cross, const Listed& list, const float* fo, const double* fc,
               double* r, double* correlation, std::int32_t* counts) {
  const auto nbins = static_cast<std::size_t>(cross.bins_built);
  if (nbins == 0) return ok;
  const Tagged<AgreementSums> sums(allocate_zeroed<AgreementSums>(nbins, "pba_sums"));
  if (!sums) return failed;
  for (std::int32_t j = 0; j < list.n; ++j) {
    const std::int32_t i = list.members[j];
    sums[static_cast<std::size_t>(cross.bin_of[i])].add(static_cast<double>(fo[i]), fc[i]);
  }
  for (std::size_t bin = 0; bin < nbins; ++bin) {
    const Agreement found = sums[bin].result();
    r[bin] = found.r;
    correlation[bin] = found.correlation;
    counts[bin] = found.n;
  }
  return ok;
}

// A set without a reflection has no R: a 0 would look like the best there is.
void print_value(std::int32_t n, double value) {
  if (n > 0) {
    qx::say("  %6.3f", value);
  } else {
    qx::say("  %6s", "-");
  }
}

}  // namespace

Status ensure_bins(std::int32_t n, qxcross*& cross) {
  if (!qx_get_qxcross()) QX_TRY(qx_new_qxcross());
  cross = qx_get_qxcross();
  if (!cross) return failed;
  if (cross->bins_built > 0 && cross->binned == n) return ok;
  QX_TRY(qx_set_rfactor_bins());
  cross = qx_get_qxcross();
  return cross ? ok : failed;
}

Status measure_bins(qxcross& cross, const Listed& work, const Listed& free, const float* fo,
                    const double* fc) {
  QX_TRY(measure(cross, work, fo, fc, cross.bin_r, cross.bin_cc, cross.bin_nwork));
  return measure(cross, free, fo, fc, cross.bin_rfree, cross.bin_ccfree, cross.bin_nfree);
}

void print_agreement(const char* what, const Agreement& found) {
  qx::say("%-28s: R = %7.4f  correlation = %7.4f  (%d reflections)\n", what, found.r,
          found.correlation, found.n);
}

void print_bins(const qxcross& cross, bool with_free) {
  qx::say(with_free ? "bin #  nreflection  high_res   low_res   RFree       R  CCFree      CC\n"
                    : "bin #  nreflection  high_res   low_res       R      CC\n");
  for (std::int32_t bin = 0; bin < cross.bins_built; ++bin) {
    if (cross.bin_counts[bin] == 0) continue;
    const std::int32_t work = cross.bin_nwork[bin];
    const std::int32_t free = cross.bin_nfree[bin];
    qx::say("%5d  %11d  %8.3f  %8.3f", bin + 1, cross.bin_counts[bin],
            resolution(cross.bin_ranges[bin][1]), resolution(cross.bin_ranges[bin][0]));
    if (with_free) print_value(free, cross.bin_rfree[bin]);
    print_value(work, cross.bin_r[bin]);
    if (with_free) print_value(free, cross.bin_ccfree[bin]);
    print_value(work, cross.bin_cc[bin]);
    qx::say("\n");
  }
}

}  // namespace qx
