// Kernels for four lanes and fused multiply-add.
#if defined(__AVX2__) && defined(__FMA__)
#define QX_FFT_ISA fft_avx2
#define QX_FFT_LANES 4
#define QX_FFT_NAME "avx2"
#include "fft/kernels_impl.h"

const qx::FftKernels* qx::fft_kernels_avx2() noexcept { return &fft_avx2::table; }
#else
#include "fft/kernels.h"

const qx::FftKernels* qx::fft_kernels_avx2() noexcept { return nullptr; }
#endif
