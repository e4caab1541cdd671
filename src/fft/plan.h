// Plans: how a length is taken apart, and the tables of its stages.
#pragma once

#include "fft/kernels.h"

#include <quorix/api.h>

namespace qx {

// A length as a product of the configured radices, stage by stage.
struct FftFactors {
  std::int32_t n = 0;
  std::int32_t count = 0;
  std::int32_t* factors = nullptr;
  std::int32_t* before = nullptr;  // 1, p1, p1 p2, ...
  std::int32_t* after = nullptr;   // n / p1, n / (p1 p2), ...
  double* cosine = nullptr;        // n entries each
  double* sine = nullptr;
};

// The same length in the order and with the radices that suit vector registers.
struct FftSchedule {
  FftProgram program = {};
  double* cosine = nullptr;
  double* sine = nullptr;
};

enum class FftOrder : std::int32_t { rows, columns };

// Tags of the five blocks of an FftFactors.
struct FactorTags {
  const char *factors, *before, *after, *cosine, *sine;
};

Status create_factors(FftFactors& factors, std::int32_t n, const FactorTags& tags);
Status delete_factors(FftFactors& factors);
Status create_schedule(FftSchedule& schedule, std::int32_t n, FftOrder order);
Status delete_schedule(FftSchedule& schedule);

// Radices for a length with no prime factor above 5, cheapest for the processor by a table of stage
// costs; gives their number.
std::int32_t choose_radices(std::int32_t n, FftOrder order, std::int32_t (&radices)[30]) noexcept;

// cos and sin of 2 pi k / n. The angle is reduced to an octant first, where the 15 digits of the
// tables' 2 pi cost less than a last bit.
void unit_root(std::int64_t k, std::int64_t n, double& cosine, double& sine) noexcept;

}  // namespace qx

// A complex plan. Nothing changes in it once it is made: whoever uses it brings the scratch.
struct qxfftplan {
  qx::FftFactors factors;
  qx::FftSchedule row;
  qx::FftSchedule column;
};

// A plan for n real values, n even: a complex transform of n / 2 points and what separates it.
struct qxfftrealplan {
  std::int32_t n = 0;
  qx::FftFactors half;
  double* cosine = nullptr;  // of 2 pi k / n, k < n / 2
  double* sine = nullptr;
  double* xr = nullptr;  // even and odd values of the input of get_qxfftrealcache(), else null
  double* xi = nullptr;
};
