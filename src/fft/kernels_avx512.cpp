// Kernels for eight lanes and 32 registers.
#if defined(__AVX512F__) && defined(__AVX512VL__) && defined(__AVX512DQ__)
#define QX_FFT_ISA fft_avx512
#define QX_FFT_LANES 8
#define QX_FFT_NAME "avx512"
#include "fft/kernels_impl.h"

const qx::FftKernels* qx::fft_kernels_avx512() noexcept { return &fft_avx512::table; }
#else
#include "fft/kernels.h"

const qx::FftKernels* qx::fft_kernels_avx512() noexcept { return nullptr; }
#endif
