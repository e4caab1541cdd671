// The Wilson section: plot, moments, twinning, amplitudes from intensities.
#include "core/say.h"
#include "scaling/wilson.h"
#include "sections/values.h"

#include <quorix/engine.h>
#include <quorix/wilson.h>

#include <cmath>

using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr qx::SectionTexts texts = {"qx_wilson_ctrl():", "Failed to get quorix command. ",
                                    "*** Unknow xwilson task: ", " ***"};

struct NoState {};

Status parameters(NoState& /*none*/) {
  const qxwilson* wilson = qx_get_qxwilson();
  if (!wilson) return failed;
  std::int32_t nbin = wilson->nbin;
  double high = wilson->high;
  double low = wilson->low;
  QX_TRY(qx::take_count("nbin", nbin));
  QX_TRY(qx::take_number("high", high));
  QX_TRY(qx::take_number("low", low));
  QX_TRY(qx_set_qxwilson_nbin(nbin));
  return qx_set_qxwilson_range(high, low);
}

Status plot(NoState& /*none*/) {
  QX_TRY(qx_calc_wilson_plot());
  const qxwilson* wilson = qx_get_qxwilson();
  if (!wilson) return failed;
  qx::say("bin #  nreflection         d      s^2/2    ln ratio\n");
  for (int i = 0; i < wilson->plot.nbins; ++i) {
    const qx::WilsonBin& bin = wilson->plot.bins[i];
    qx::say("%5d  %11d  %8.3f  %9.5f  %10.4f\n", i + 1, bin.n, 1.0 / std::sqrt(bin.s2),
            0.5 * bin.s2, bin.log_ratio);
  }
  return ok;
}

Status moments(NoState& /*none*/) { return qx_calc_wilson_moments(); }
Status twin(NoState& /*none*/) { return qx_calc_wilson_twin(); }
Status amplitudes(NoState& /*none*/) { return qx_calc_wilson_amplitudes(); }
Status anisotropy(NoState& /*none*/) { return qx_calc_wilson_anisotropy(); }
Status print(NoState& /*none*/) { return qx_print_wilson(); }
Status finish(NoState& /*none*/) { return ok; }

constexpr qx::Command<NoState> commands[] = {
    {"PARA", parameters}, {"PLOT", plot},       {"MOME", moments}, {"TWIN", twin},
    {"AMPL", amplitudes}, {"ANIS", anisotropy}, {"PRIN", print},   {"XEND", finish, true}};

Status run() {
  if (!qx_get_qxwilson()) {
    if (!qx_exist_quorix()) return failed;
    QX_TRY(qx_new_qxwilson());
  }
  NoState none;
  return qx::run_section(texts, commands, none);
}

}  // namespace

Status qx_wilson_ctrl() {
  (void)run();
  return ok;
}
