#include "fft/simd.h"

namespace qx {
namespace {

const FftKernels* forced = nullptr;

bool has_avx2() noexcept {
#if defined(__x86_64__)
  return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0;
#else
  return false;
#endif
}

bool has_avx512() noexcept {
#if defined(__x86_64__)
  return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512vl") != 0 &&
         __builtin_cpu_supports("avx512dq") != 0 && has_avx2();
#else
  return false;
#endif
}

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
  return forced ? *forced : *widest;
}

void force_fft_kernels(const FftKernels* table) noexcept { forced = table; }

}  // namespace qx
