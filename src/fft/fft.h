// The transform object and its plan caches.
#pragma once

#include "core/tagged.h"
#include "fft/plan.h"

#include <quorix/fft.h>

#include <initializer_list>

namespace qx {

template <class Plan>
struct PlanEntry {
  std::int32_t length = 0;
  Plan* plan = nullptr;
  PlanEntry* next = nullptr;
};

template <class Plan>
struct PlanBucket {
  PlanEntry<Plan>* first = nullptr;
};

// Plans by length: bucket length mod 20, new entries at the head of their chain, none evicted.
template <class Plan>
struct PlanTable {
  static constexpr std::int32_t buckets = 20;
  std::int32_t entries = 0;
  PlanBucket<Plan>* heads = nullptr;
};

// The object, created when there is none; null after a report.
qxfft* fft_object();
// The plans of n complex and of n real values (n even), found or made; null after a report.
const qxfftplan* complex_plan(qxfft& fft, std::int32_t n);
const qxfftrealplan* real_plan(qxfft& fft, std::int32_t n);

void split_even_odd(std::int32_t n, const double* in, double* even, double* odd) noexcept;

// The object's scratch, enough for the kernels on every length that has a plan and, behind them,
// for the rows of every real plan. It moves when a plan is made: ask when all plans are there.
FftScratch engine_scratch(const qxfft& fft) noexcept;
// Doubles that a real plan takes of it beside the kernels.
std::ptrdiff_t real_rows_size(std::int32_t n) noexcept;

// Scratch of its own for a transform that may run beside others, one for each of its workers.
class FftScratchBlock {
 public:
  Status open(std::initializer_list<std::int32_t> lengths, std::int32_t workers = 1);
  [[nodiscard]] FftScratch get(std::int32_t worker = 0) const {
    return {block_.get() + worker * size_, size_};
  }

 private:
  Tagged<double> block_;
  std::ptrdiff_t size_ = 0;
};

}  // namespace qx

struct qxfft {
  std::int32_t radix_count = 4;
  std::int32_t* radices = nullptr;  // in the order in which factors are taken off a length
  qx::PlanTable<qxfftplan>* plans = nullptr;
  qx::PlanTable<qxfftrealplan>* real_plans = nullptr;
  const qxfftplan* newest_plan = nullptr;  // set when one is made, looked at before the tables
  double* scratch = nullptr;  // of the published transforms, one of which runs at a time
  std::ptrdiff_t scratch_size = 0;
};
