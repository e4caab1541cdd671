// K. Overall scale between observed and calculated amplitudes.
#pragma once

#include <cstdint>

namespace qx {

struct OverallScale {
  double k = 1.0;
  double b = 0.0;  // Angstrom^2
};

// k and B that minimise sum (Fo - k exp(-B s^2 / 4) Fc)^2 over the n listed reflections, by
// Gauss-Newton steps halved until they help. `s_length` is |s| = 1/d. Reflections whose Fo is not a
// number are left out. k = 1, B = 0 when Fc is zero throughout.
OverallScale fit_scale(std::int32_t n, const std::int32_t* list, const float* fo, const double* fc,
                       const double* s_length) noexcept;

struct Agreement {
  std::int32_t n = 0;
  double r = 0.0;            // sum |Fo - scaled Fc| / sum Fo
  double correlation = 0.0;  // linear, of Fo and scaled Fc
};

// The sums that an agreement is made of.
struct AgreementSums {
  std::int32_t n = 0;
  double difference = 0.0, o = 0.0, c = 0.0, oo = 0.0, cc = 0.0, oc = 0.0;

  void add(double fo, double fc) noexcept;  // a Fo that is not a number is left out
  [[nodiscard]] Agreement result() const noexcept;
};

// Agreement of Fo and the given (scaled) Fc over the listed reflections.
Agreement agreement(std::int32_t n, const std::int32_t* list, const float* fo,
                    const double* fc) noexcept;

}  // namespace qx
