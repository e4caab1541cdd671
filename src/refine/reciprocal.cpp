#include "refine/reciprocal.h"

#include "core/report.h"
#include "crystal/reflections.h"
#include "scaling/likelihood.h"
#include "stats/likelihood.h"

#include <algorithm>

namespace qx {

namespace {

void least_squares(const qxrefdata& data, const Observed& observed, const ComplexF& f,
                   double& value, double* derivatives) {
  double squares = 0.0;
  double differences = 0.0;
  for (std::int32_t j = 0; j < observed.nwork; ++j) {
    const std::int32_t i = observed.work[static_cast<std::size_t>(j)];
    const auto fo = static_cast<double>(data.fobs[i]);
    const double d = fo - f.amplitude(i);
    squares += fo * fo;
    differences += d * d;
  }
  value = differences / squares;
  if (!derivatives) return;
  for (std::int32_t j = 0; j < observed.nwork; ++j) {
    const std::int32_t i = observed.work[static_cast<std::size_t>(j)];
    derivatives[i] = 2.0 * (f.amplitude(i) - static_cast<double>(data.fobs[i])) / squares;
  }
}

Status likelihood(const char* heading, const qxrefdata& data, const Observed& observed,
                  const ComplexF& f, double& value, double* derivatives) {
  LikelihoodValues values;
  QX_TRY(likelihood_values(heading, data, f, values));
  value = 0.0;
  for (std::int32_t j = 0; j < observed.nwork; ++j) {
    const std::int32_t i = observed.work[static_cast<std::size_t>(j)];
    const auto at = static_cast<std::size_t>(i);
    const Conditional c = {static_cast<double>(data.fobs[i]), values.d[at] * f.amplitude(i),
                           values.variance[at], data.centric[i] != 0};
    value += c.minus_log() / observed.nwork;
    if (derivatives) derivatives[i] = values.d[at] * c.by_df(values.fom[at]) / observed.nwork;
  }
  return ok;
}

}  // namespace

Status reciprocal_target(const char* heading, TargetType type, const qxrefdata& data,
                         const ComplexF& f, double& value, double* derivatives) {
  Observed observed;
  QX_TRY(select_observed(heading, data, observed));
  if (derivatives) std::fill_n(derivatives, data.nreflections, 0.0);
  if (type == likelihood_target) {
    return likelihood(heading, data, observed, f, value, derivatives);
  }
  least_squares(data, observed, f, value, derivatives);
  return ok;
}

}  // namespace qx
