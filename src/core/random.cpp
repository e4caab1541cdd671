// K. The seeded generator: S. K. Park, K. W. Miller, Comm. ACM 31 (1988) 1192, with the multiplier
// 48271 of their 1993 note, evaluated without overflow after L. Schrage, ACM TOMS 5 (1979) 132.
#include <quorix/cross.h>

namespace {

constexpr std::int32_t modulus = 2147483647;
constexpr std::int32_t multiplier = 48271;
constexpr std::int32_t quotient = 44488;   // modulus / multiplier
constexpr std::int32_t remainder_ = 3399;  // modulus % multiplier

// Of each engine: numbers are the same whatever others draw.
QX_PER_THREAD std::int32_t state = 0;

// The generator stays at 0 for ever once it is there.
std::int32_t loadable(std::int32_t seed) {
  if (seed == INT32_MIN || seed == 0) return 137;
  const std::int32_t size = seed < 0 ? -seed : seed;
  return size == modulus ? 137 : size;
}

}  // namespace

double qx_get_random_double01(std::int32_t* seed) {
  // Kept: a positive seed after the first draw changes nothing.
  if (state == 0 || *seed < 0) state = loadable(*seed);
  std::int32_t next = multiplier * (state % quotient) - remainder_ * (state / quotient);
  if (next < 0) next += modulus;
  state = *seed = next;
  return state / static_cast<double>(modulus);
}

std::int32_t qx_get_random_int(std::int32_t* seed, std::int32_t lo, std::int32_t hi) {
  const double span = static_cast<double>(hi) - lo;
  return static_cast<std::int32_t>(lo +
                                   static_cast<std::int64_t>(span * qx_get_random_double01(seed)));
}

double qx_get_random_double(std::int32_t* seed, double lo, double hi) {
  return qx_get_random_double01(seed) * (hi - lo) + lo;
}

void qx_get_frandom_int_(std::int32_t* seed, const std::int32_t* lo, const std::int32_t* hi,
                         std::int32_t* result) {
  *result = qx_get_random_int(seed, *lo, *hi);
}

void qx_get_frandom_double_(std::int32_t* seed, const double* lo, const double* hi,
                            double* result) {
  *result = qx_get_random_double(seed, *lo, *hi);
}
