#include "fft/plan.h"

#include "core/constants.h"
#include "core/report.h"
#include "core/tagged.h"
#include "fft/fft.h"

#include <algorithm>
#include <cmath>

namespace qx {
namespace {

// Time per point of a first, middle and last stage, in arbitrary units: fitted to some ten thousand
// timings of every order of stages for forty lengths, all instruction sets together. Long stages
// touch memory less often, short ones fit the registers better; a last stage needs no twiddles.
struct StageTime {
  double first, middle, last;
};
struct StageCost {
  std::int32_t radix, twos, threes, fives;
  StageTime rows, columns;
};
constexpr StageCost stage_costs[] = {
    {2, 1, 0, 0, {1.00, 0.11, 0.02}, {0.27, 0.23, 0.02}},
    {3, 0, 1, 0, {1.00, 0.17, 0.05}, {0.30, 0.26, 0.06}},
    {4, 2, 0, 0, {0.37, 0.13, 0.03}, {0.31, 0.29, 0.08}},
    {5, 0, 0, 1, {0.60, 0.24, 0.09}, {0.33, 0.32, 0.11}},
    {6, 1, 1, 0, {0.50, 0.21, 0.07}, {0.35, 0.34, 0.13}},
    {8, 3, 0, 0, {0.42, 0.23, 0.09}, {0.39, 0.38, 0.16}},
    {9, 0, 2, 0, {0.61, 0.35, 0.17}, {0.43, 0.44, 0.17}},
    {10, 1, 0, 1, {0.58, 0.37, 0.17}, {0.45, 0.45, 0.22}},
    {12, 2, 1, 0, {0.48, 0.37, 0.18}, {0.47, 0.48, 0.28}},
    {15, 0, 1, 1, {0.74, 0.57, 0.37}, {0.60, 0.60, 0.34}},
};
constexpr double row_stage_time = 3.8;  // per stage, whatever the length
constexpr double scalar = 4.0;          // where runs are too short for vectors

// A run of numbers is covered by whole vectors of four.
double padding(std::int64_t run) noexcept {
  const std::int64_t covered = (run + 3) / 4 * 4;
  return run < 4 ? scalar : static_cast<double>(covered) / static_cast<double>(run);
}

double stage_time(const StageCost& stage, std::int64_t n, std::int64_t before,
                  FftOrder order) noexcept {
  const std::int64_t after = n / (before * stage.radix);
  if (order == FftOrder::columns) {
    if (before == 1) return stage.columns.first;
    return after == 1 ? stage.columns.last : stage.columns.middle;
  }
  const double fixed = row_stage_time / static_cast<double>(n);
  if (before == 1) return stage.rows.first * (0.75 + 0.25 * padding(after)) + fixed;
  return (after == 1 ? stage.rows.last : stage.rows.middle) * padding(before) + fixed;
}

struct Exponents {
  std::int32_t twos = 0, threes = 0, fives = 0;
};

Exponents exponents_of(std::int32_t n) noexcept {
  Exponents e;
  for (; n % 2 == 0; n /= 2) ++e.twos;
  for (; n % 3 == 0; n /= 3) ++e.threes;
  for (; n % 5 == 0; n /= 5) ++e.fives;
  return e;
}

}  // namespace

// The cheapest way on from a product already done depends on that product only, so the best
// sequence is found backwards over the divisors of n, kept by their three exponents.
std::int32_t choose_radices(std::int32_t n, FftOrder order, std::int32_t (&radices)[30]) noexcept {
  constexpr std::int32_t most_divisors =
      1024;  // a product of 2, 3, 5 below 2^31 has fewer than 600
  double best[most_divisors];
  const StageCost* choice[most_divisors] = {};
  const Exponents e = exponents_of(n);
  const auto slot = [&](std::int32_t a, std::int32_t b, std::int32_t c) {
    return (a * (e.threes + 1) + b) * (e.fives + 1) + c;
  };
  const auto product = [](std::int32_t a, std::int32_t b, std::int32_t c) {
    std::int64_t p = std::int64_t{1} << a;
    for (; b > 0; --b) p *= 3;
    for (; c > 0; --c) p *= 5;
    return p;
  };
  const auto settle = [&](std::int32_t a, std::int32_t b, std::int32_t c) {
    const std::int32_t here = slot(a, b, c);
    choice[here] = nullptr;
    best[here] = 0;
    for (const StageCost& stage : stage_costs) {
      if (a + stage.twos > e.twos || b + stage.threes > e.threes || c + stage.fives > e.fives)
        continue;
      const double cost = stage_time(stage, n, product(a, b, c), order) +
                          best[slot(a + stage.twos, b + stage.threes, c + stage.fives)];
      if (choice[here] && cost >= best[here]) continue;
      best[here] = cost;
      choice[here] = &stage;
    }
  };
  for (std::int32_t a = e.twos; a >= 0; --a) {
    for (std::int32_t b = e.threes; b >= 0; --b) {
      for (std::int32_t c = e.fives; c >= 0; --c) settle(a, b, c);
    }
  }
  std::int32_t count = 0;
  std::int32_t a = 0;
  std::int32_t b = 0;
  std::int32_t c = 0;
  while (const StageCost* stage = choice[slot(a, b, c)]) {
    radices[count++] = stage->radix;
    a += stage->twos;
    b += stage->threes;
    c += stage->fives;
  }
  return count;
}

void unit_root(std::int64_t k, std::int64_t n, double& cosine, double& sine) noexcept {
  k %= n;
  if (k < 0) k += n;
  const bool lower = 2 * k > n;
  if (lower) k = n - k;
  const bool left = 4 * k > n;
  // In units of 1 / (2 n) of a turn from here on, so that n / 2 - k stays whole.
  std::int64_t half_steps = left ? n - 2 * k : 2 * k;
  const bool steep = 4 * half_steps > n;
  double turns = static_cast<double>(half_steps) / (2.0 * static_cast<double>(n));
  if (steep) {
    turns = static_cast<double>(n - 2 * half_steps) / (4.0 * static_cast<double>(n));
  }
  const double near = std::cos(two_pi * turns);
  const double far = std::sin(two_pi * turns);
  cosine = steep ? far : near;
  sine = steep ? near : far;
  if (left) cosine = -cosine;
  if (lower) sine = -sine;
}

Status create_factors(FftFactors& factors, std::int32_t n, const FactorTags& tags) {
  const std::int32_t count = get_fft_nfactors(n);
  if (count < 0) return failed;
  const auto entries = static_cast<std::size_t>(std::max(count, 1));
  const auto points = static_cast<std::size_t>(n);
  factors.n = n;
  factors.count = count;
  QX_TRY(qx::open_block(factors.factors, entries, tags.factors));
  QX_TRY(qx::open_block(factors.before, entries, tags.before));
  QX_TRY(qx::open_block(factors.after, entries, tags.after));
  QX_TRY(qx::open_block(factors.cosine, points, tags.cosine));
  QX_TRY(qx::open_block(factors.sine, points, tags.sine));
  QX_TRY(set_fft_factors(n, count, factors.factors, factors.before, factors.after));
  return set_fft_cossin_tab(n, count, factors.factors, factors.before, factors.after,
                            factors.cosine, factors.sine);
}

Status delete_factors(FftFactors& factors) {
  QX_TRY(release(factors.factors));
  QX_TRY(release(factors.before));
  QX_TRY(release(factors.after));
  QX_TRY(release(factors.cosine));
  return release(factors.sine);
}

Status create_schedule(FftSchedule& schedule, std::int32_t n, FftOrder order) {
  std::int32_t radices[30];
  std::int32_t before[30];
  std::int32_t after[30];
  const std::int32_t count = choose_radices(n, order, radices);
  std::int32_t product = 1;
  for (std::int32_t i = 0; i < count; ++i) {
    before[i] = product;
    product *= radices[i];
    after[i] = n / product;
  }
  const auto points = static_cast<std::size_t>(n);
  QX_TRY(qx::open_block(schedule.cosine, points, "gp_sco"));
  QX_TRY(qx::open_block(schedule.sine, points, "gp_ssi"));
  QX_TRY(set_fft_cossin_tab(n, count, radices, before, after, schedule.cosine, schedule.sine));
  schedule.program.n = n;
  schedule.program.count = count;
  std::ptrdiff_t slice = 0;
  for (std::int32_t i = 0; i < count; ++i) {
    schedule.program.steps[i] = {radices[i], before[i], after[i], schedule.cosine + slice,
                                 schedule.sine + slice};
    slice += std::ptrdiff_t{radices[i] - 1} * after[i];
  }
  return ok;
}

Status delete_schedule(FftSchedule& schedule) {
  QX_TRY(release(schedule.cosine));
  return release(schedule.sine);
}

}  // namespace qx

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

std::int32_t get_fft_nfactors(std::int32_t n) {
  qxfft* fft = qx::fft_object();
  if (!fft) return -1;
  std::int32_t count = 0;
  std::int32_t rest = n;
  for (std::int32_t i = 0; i < fft->radix_count && rest > 0; ++i) {
    for (; rest % fft->radices[i] == 0; rest /= fft->radices[i]) ++count;
  }
  if (rest == 1) return count;
  (void)fail("get_fft_nfactors():",
             "We only support radix = 2, 3, 4, 5 currently. \n"
             "The radix = %d has not been supported yet.",
             rest);
  return -1;
}

Status set_fft_factors(std::int32_t n, std::int32_t nfact, std::int32_t* factors,
                       std::int32_t* before, std::int32_t* after) {
  qxfft* fft = qx::fft_object();
  if (!fft) return failed;
  std::int32_t count = 0;
  std::int32_t product = 1;
  const auto add = [&](std::int32_t factor) {
    if (count == nfact) return fail("set_fft_factors():", "Fatal: nfact is out of bound ");
    factors[count] = factor;
    before[count] = product;
    product *= factor;
    after[count] = n / product;
    ++count;
    return ok;
  };
  std::int32_t rest = n;
  for (std::int32_t i = 0; i < fft->radix_count && rest > 0; ++i) {
    for (; rest % fft->radices[i] == 0; rest /= fft->radices[i]) QX_TRY(add(fft->radices[i]));
  }
  if (rest > 1) QX_TRY(add(rest));
  if (count == nfact) return ok;
  return fail("set_fft_factors():", "Fatal: nfact is not the same as expected ");
}

Status set_fft_cossin_tab(std::int32_t n, std::int32_t nfact, const std::int32_t* factors,
                          const std::int32_t* before, const std::int32_t* after, double* cosine,
                          double* sine) {
  std::int64_t entry = 0;
  const auto add = [&](std::int64_t k, std::int64_t of) {
    if (entry >= n) return fail("set_fft_cossin_tab():", "Out of bound for cos/sin tables ");
    qx::unit_root(k, of, cosine[entry], sine[entry]);
    ++entry;
    return ok;
  };
  for (std::int32_t i = 0; i + 1 < nfact; ++i) {
    for (std::int64_t q = 1; q < factors[i]; ++q) {
      for (std::int64_t r = 0; r < after[i]; ++r) QX_TRY(add(r * q * before[i], n));
    }
  }
  if (nfact > 0) {
    for (std::int64_t k = 0; k < factors[nfact - 1]; ++k) QX_TRY(add(k, factors[nfact - 1]));
  }
  std::fill(cosine + entry, cosine + n, 0.0);
  std::fill(sine + entry, sine + n, 0.0);
  return ok;
}
