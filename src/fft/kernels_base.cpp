// Kernels for the instructions that every processor of the target has (SSE2, NEON).
#define QX_FFT_ISA fft_base
#define QX_FFT_LANES 2
#define QX_FFT_NAME "base"
#include "fft/kernels_impl.h"

const qx::FftKernels* qx::fft_kernels_base() noexcept { return &fft_base::table; }
