#include "stats/scale_fit.h"

#include <cmath>

namespace qx {

namespace {

struct Data {
  std::int32_t n;
  const std::int32_t* list;
  const float* fo;
  const double* fc;
  const double* s_length;
};

bool observed(float f) noexcept { return std::isfinite(f); }

double damping(double b, double s) noexcept { return std::exp(-0.25 * b * s * s); }

double residual(const Data& data, const OverallScale& scale) noexcept {
  double sum = 0.0;
  for (std::int32_t j = 0; j < data.n; ++j) {
    const std::int32_t i = data.list[j];
    if (!observed(data.fo[i])) continue;
    const double d =
        static_cast<double>(data.fo[i]) - scale.k * damping(scale.b, data.s_length[i]) * data.fc[i];
    sum += d * d;
  }
  return sum;
}

// The linear k for a given B.
double best_k(const Data& data, double b) noexcept {
  double cross = 0.0;
  double square = 0.0;
  for (std::int32_t j = 0; j < data.n; ++j) {
    const std::int32_t i = data.list[j];
    if (!observed(data.fo[i])) continue;
    const double f = damping(b, data.s_length[i]) * data.fc[i];
    cross += static_cast<double>(data.fo[i]) * f;
    square += f * f;
  }
  return square > 0.0 ? cross / square : 1.0;
}

// Gauss-Newton step of (k, B); false when the normal matrix is singular.
bool step(const Data& data, const OverallScale& scale, double (&change)[2]) noexcept {
  double kk = 0.0;
  double kb = 0.0;
  double bb = 0.0;
  double gk = 0.0;
  double gb = 0.0;
  for (std::int32_t j = 0; j < data.n; ++j) {
    const std::int32_t i = data.list[j];
    if (!observed(data.fo[i])) continue;
    const double s = data.s_length[i];
    const double by_k = damping(scale.b, s) * data.fc[i];
    const double by_b = -0.25 * s * s * scale.k * by_k;
    const double d = static_cast<double>(data.fo[i]) - scale.k * by_k;
    kk += by_k * by_k;
    kb += by_k * by_b;
    bb += by_b * by_b;
    gk += by_k * d;
    gb += by_b * d;
  }
  const double determinant = kk * bb - kb * kb;
  if (!(determinant > 1e-12 * kk * bb)) return false;
  change[0] = (bb * gk - kb * gb) / determinant;
  change[1] = (kk * gb - kb * gk) / determinant;
  return true;
}

}  // namespace

OverallScale fit_scale(std::int32_t n, const std::int32_t* list, const float* fo, const double* fc,
                       const double* s_length) noexcept {
  const Data data = {n, list, fo, fc, s_length};
  OverallScale scale = {best_k(data, 0.0), 0.0};
  double current = residual(data, scale);
  for (int iteration = 0; iteration < 50; ++iteration) {
    double change[2];
    if (!step(data, scale, change)) break;
    OverallScale next = scale;
    double improved = current;
    double part = 1.0;
    for (int halving = 0; halving < 20; ++halving) {
      next = {scale.k + part * change[0], scale.b + part * change[1]};
      improved = residual(data, next);
      if (improved <= current) break;
      part *= 0.5;
    }
    if (!(improved <= current)) break;
    const bool done = current - improved <= 1e-14 * current;
    scale = next;
    current = improved;
    if (done) break;
  }
  return scale;
}

void AgreementSums::add(double fo, double fc) noexcept {
  if (!std::isfinite(fo)) return;
  ++n;
  difference += std::fabs(fo - fc);
  o += fo;
  c += fc;
  oo += fo * fo;
  cc += fc * fc;
  oc += fo * fc;
}

Agreement AgreementSums::result() const noexcept {
  Agreement found;
  found.n = n;
  if (n == 0) return found;
  if (o > 0.0) found.r = difference / o;
  const double vo = oo - o * o / n;
  const double vc = cc - c * c / n;
  if (vo > 0.0 && vc > 0.0) found.correlation = (oc - o * c / n) / std::sqrt(vo * vc);
  return found;
}

Agreement agreement(std::int32_t n, const std::int32_t* list, const float* fo,
                    const double* fc) noexcept {
  AgreementSums sums;
  for (std::int32_t j = 0; j < n; ++j) sums.add(static_cast<double>(fo[list[j]]), fc[list[j]]);
  return sums.result();
}

}  // namespace qx
