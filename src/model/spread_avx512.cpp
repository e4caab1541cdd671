// K. Kernels for eight lanes and 32 registers.
#if defined(__AVX512F__) && defined(__AVX512VL__) && defined(__AVX512DQ__)
#define QX_SPREAD_ISA spread_avx512
#define QX_SPREAD_LANES 8
#define QX_SPREAD_NAME "avx512"
#include "model/spread_impl.h"

const qx::SpreadKernels* qx::spread_kernels_avx512() noexcept { return &spread_avx512::table; }
#else
#include "model/spread_kernels.h"

const qx::SpreadKernels* qx::spread_kernels_avx512() noexcept { return nullptr; }
#endif
