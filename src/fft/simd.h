// Choice of the kernel table at run time.
#pragma once

#include "fft/kernels.h"

namespace qx {

// The widest kernels that this processor runs; decided once.
const FftKernels& fft_kernels() noexcept;

// For tests and benches: every table that this processor can run, narrowest first, and forcing one
// (null: back to the choice). Plans and results do not depend on it beyond rounding.
std::int32_t list_fft_kernels(const FftKernels* (&tables)[3]) noexcept;
void force_fft_kernels(const FftKernels* table) noexcept;

}  // namespace qx
