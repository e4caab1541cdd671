#include "fft/simd.h"

#include "core/processor.h"

#include <atomic>

namespace qx {
namespace {

std::atomic<const FftKernels*> forced = nullptr;

}  // namespace

std::int32_t list_fft_kernels(const FftKernels* (&tables)[3]) noexcept {
  std::int32_t count = 0;
  tables[count++] = fft_kernels_base();
  if (has_avx2() && fft_kernels_avx2()) tables[count++] = fft_kernels_avx2();
  if (has_avx512() && fft_kernels_avx512()) tables[count++] = fft_kernels_avx512();
  return count;
}

const FftKernels& fft_kernels() noexcept {
  static const FftKernels* const widest = [] {
    const FftKernels* tables[3];
    return tables[list_fft_kernels(tables) - 1];
  }();
  const FftKernels* chosen = forced.load(std::memory_order_relaxed);
  return chosen ? *chosen : *widest;
}

void force_fft_kernels(const FftKernels* table) noexcept { forced = table; }

}  // namespace qx
