#include "core/processor.h"

namespace qx {

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

}  // namespace qx
