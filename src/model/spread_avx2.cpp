// K. Kernels for four lanes and fused multiply-add.
#if defined(__AVX2__) && defined(__FMA__)
#define QX_SPREAD_ISA spread_avx2
#define QX_SPREAD_LANES 4
#define QX_SPREAD_NAME "avx2"
#include "model/spread_impl.h"

const qx::SpreadKernels* qx::spread_kernels_avx2() noexcept { return &spread_avx2::table; }
#else
#include "model/spread_kernels.h"

const qx::SpreadKernels* qx::spread_kernels_avx2() noexcept { return nullptr; }
#endif
