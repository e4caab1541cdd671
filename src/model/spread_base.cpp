// K. Kernels for the instructions that every processor of the target has, and the choice among all.
#define QX_SPREAD_ISA spread_base
#define QX_SPREAD_LANES 2
#define QX_SPREAD_NAME "base"
#include "core/processor.h"
#include "model/spread_impl.h"

#include <atomic>

namespace qx {

namespace {

std::atomic<const SpreadKernels*> forced = nullptr;

}  // namespace

const SpreadKernels* spread_kernels_base() noexcept { return &spread_base::table; }

std::int32_t list_spread_kernels(const SpreadKernels* (&tables)[3]) noexcept {
  std::int32_t count = 0;
  tables[count++] = spread_kernels_base();
  if (has_avx2() && spread_kernels_avx2()) tables[count++] = spread_kernels_avx2();
  if (has_avx512() && spread_kernels_avx512()) tables[count++] = spread_kernels_avx512();
  return count;
}

const SpreadKernels& spread_kernels() noexcept {
  static const SpreadKernels* const widest = [] {
    const SpreadKernels* tables[3];
    return tables[list_spread_kernels(tables) - 1];
  }();
  const SpreadKernels* chosen = forced.load(std::memory_order_relaxed);
  return chosen ? *chosen : *widest;
}

void force_spread_kernels(const SpreadKernels* table) noexcept { forced = table; }

}  // namespace qx
