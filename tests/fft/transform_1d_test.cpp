// One-dimensional transforms against a sum in extended precision and against theorems, for every
// instruction set of the machine.
#include "fft/plan.h"
#include "fft/simd.h"
#include "support/engine.h"

#include <quorix/fft.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <vector>

namespace qx::test {
namespace {

using Numbers = std::vector<double>;
using Sum = std::complex<long double>;

struct Signal {
  explicit Signal(int n) : re(static_cast<std::size_t>(n)), im(re) {}
  [[nodiscard]] int size() const { return static_cast<int>(re.size()); }
  Numbers re, im;
};

Signal random_signal(int n, unsigned seed = 1) {
  std::mt19937 random(seed + static_cast<unsigned>(n));
  std::uniform_real_distribution<double> uniform(-1, 1);
  Signal x(n);
  for (double& value : x.re) value = uniform(random);
  for (double& value : x.im) value = uniform(random);
  return x;
}

std::vector<int> smooth_lengths(int last) {
  std::vector<int> lengths;
  for (int n = 1; n <= last; ++n) {
    int rest = n;
    for (const int p : {2, 3, 5}) {
      while (rest % p == 0) rest /= p;
    }
    if (rest == 1) lengths.push_back(n);
  }
  return lengths;
}

std::vector<Sum> roots(int n, int sign) {
  std::vector<Sum> w(static_cast<std::size_t>(n));
  for (int k = 0; k < n; ++k) {
    const long double turns = static_cast<long double>(2 * k > n ? k - n : k) / n;
    const long double angle = 2 * std::numbers::pi_v<long double> * turns;
    w[static_cast<std::size_t>(k)] = {std::cos(angle), sign * std::sin(angle)};
  }
  return w;
}

// X[k] = sum over j of x[j] exp(sign 2 pi i jk / n) for every `step`-th k.
double relative_error(const Signal& x, const Signal& transform, int sign, int step = 1) {
  const auto n = x.re.size();
  const auto w = roots(x.size(), sign);
  long double error = 0;
  long double norm = 0;
  for (std::size_t k = 0; k < n; k += static_cast<std::size_t>(step)) {
    Sum sum = 0;
    for (std::size_t j = 0; j < n; ++j) sum += Sum(x.re[j], x.im[j]) * w[j * k % n];
    error += std::norm(sum - Sum(transform.re[k], transform.im[k]));
    norm += std::norm(sum);
  }
  return static_cast<double>(std::sqrt(error / norm));
}

double difference(const Signal& a, const Signal& b) {
  double error = 0;
  double norm = 0;
  for (std::size_t k = 0; k < a.re.size(); ++k) {
    error += std::pow(a.re[k] - b.re[k], 2) + std::pow(a.im[k] - b.im[k], 2);
    norm += a.re[k] * a.re[k] + a.im[k] * a.im[k];
  }
  return std::sqrt(error / norm);
}

Signal forward(Signal x) {
  Signal y(x.size());
  EXPECT_EQ(qx_forward_cfft(x.size(), x.re.data(), x.im.data(), y.re.data(), y.im.data()), ok);
  return y;
}

constexpr double tolerance = 5e-15;

std::vector<const FftKernels*> all_kernels() {
  const FftKernels* tables[3];
  const int count = list_fft_kernels(tables);
  return {tables, tables + count};
}

class Transform : public Engine, public ::testing::WithParamInterface<const FftKernels*> {
 protected:
  void SetUp() override {
    Engine::SetUp();
    force_fft_kernels(GetParam());
  }
  void TearDown() override {
    force_fft_kernels(nullptr);
    Engine::TearDown();
  }
};

INSTANTIATE_TEST_SUITE_P(EveryInstructionSet, Transform, ::testing::ValuesIn(all_kernels()),
                         [](const auto& instance) { return std::string(instance.param->name); });

TEST_P(Transform, everyLengthAgreesWithTheDirectSum) {
  for (const int n : smooth_lengths(2000)) {
    const Signal x = random_signal(n);
    EXPECT_LE(relative_error(x, forward(x), 1, n > 600 ? 7 : 1), tolerance) << n;
  }
}

TEST_P(Transform, longLengthsAgreeWithTheDirectSum) {
  for (const int n : {2025, 2187, 3125, 4096, 5000, 6561, 8192, 10125, 15625, 18750, 20000}) {
    const Signal x = random_signal(n);
    EXPECT_LE(relative_error(x, forward(x), 1, n / 40), tolerance) << n;
  }
}

TEST_P(Transform, theoremsHold) {
  for (const int n : smooth_lengths(2000)) {
    const Signal x = random_signal(n);
    const Signal y = random_signal(n, 2);
    const auto w = roots(n, 1);
    const int shift = n / 3 + 1;
    Signal impulse(n);
    impulse.re[static_cast<std::size_t>(shift % n)] = 1;
    Signal line(n);
    Signal mix(n);
    Signal moved(n);
    for (std::size_t j = 0; j < x.re.size(); ++j) {
      const auto k = j * static_cast<std::size_t>(shift % n) % x.re.size();
      line.re[j] = static_cast<double>(w[k].real());
      line.im[j] = static_cast<double>(w[k].imag());
      mix.re[j] = 2 * x.re[j] - 3 * y.im[j];  // 2 x + 3 i y
      mix.im[j] = 2 * x.im[j] + 3 * y.re[j];
      const auto to = (j + static_cast<std::size_t>(shift)) % x.re.size();
      moved.re[to] = x.re[j];
      moved.im[to] = x.im[j];
    }
    const Signal fx = forward(x);
    const Signal fy = forward(y);
    Signal expected_mix(n);
    Signal expected_moved(n);
    for (std::size_t k = 0; k < x.re.size(); ++k) {
      expected_mix.re[k] = 2 * fx.re[k] - 3 * fy.im[k];
      expected_mix.im[k] = 2 * fx.im[k] + 3 * fy.re[k];
      const auto turned = std::complex(fx.re[k], fx.im[k]) * std::complex(line.re[k], line.im[k]);
      expected_moved.re[k] = turned.real();
      expected_moved.im[k] = turned.imag();
    }
    EXPECT_LE(difference(line, forward(impulse)), tolerance) << n;
    EXPECT_LE(difference(expected_mix, forward(mix)), tolerance) << n;
    EXPECT_LE(difference(expected_moved, forward(moved)), tolerance) << n;
  }
}

TEST_P(Transform, inverseUndoesForwardInPlaceAndApart) {
  for (const int n : smooth_lengths(400)) {
    const Signal x = random_signal(n);
    Signal y = x;
    ASSERT_EQ(qx_forward_cfft(n, y.re.data(), y.im.data(), y.re.data(), y.im.data()), ok);
    EXPECT_LE(relative_error(x, y, 1), tolerance) << n;
    Signal z(n);
    Signal source = y;
    ASSERT_EQ(qx_inverse_cfft(n, source.re.data(), source.im.data(), z.re.data(), z.im.data()), ok);
    EXPECT_LE(relative_error(y, z, -1), tolerance) << n;
    for (double& value : z.re) value /= n;
    for (double& value : z.im) value /= n;
    EXPECT_LE(difference(x, z), tolerance) << n;
  }
}

TEST_P(Transform, realAndPairsOfReal) {
  for (const int n : smooth_lengths(500)) {
    const Signal pair = random_signal(n);
    Signal a(n);
    Signal b(n);
    a.re = pair.re;
    b.re = pair.im;
    const auto m = static_cast<std::size_t>(n);
    Numbers work(m);
    for (const int sign : {1, -1}) {
      Signal fa(n);
      Signal ga(n);
      Signal gb(n);
      const auto real = sign == 1 ? qx_forward_rfft : qx_inverse_rfft;
      const auto two = sign == 1 ? qx_forward_two_rfft : qx_inverse_two_rfft;
      ASSERT_EQ(real(n, a.re.data(), work.data(), fa.re.data(), fa.im.data()), ok);
      ASSERT_EQ(
          two(n, a.re.data(), b.re.data(), ga.re.data(), ga.im.data(), gb.re.data(), gb.im.data()),
          ok);
      EXPECT_LE(relative_error(a, fa, sign), tolerance) << n;
      EXPECT_LE(relative_error(a, ga, sign), tolerance) << n;
      EXPECT_LE(relative_error(b, gb, sign), tolerance) << n;
      EXPECT_EQ(fa.im[0], 0.0) << n;
      if (n % 2 == 0) {
        EXPECT_EQ(fa.im[m / 2], 0.0) << n;
        for (std::size_t k = 1; k < m; ++k) {
          EXPECT_EQ(fa.re[k], fa.re[m - k]);
          EXPECT_EQ(fa.im[k], -fa.im[m - k]);
        }
      }
    }
  }
}

class Plans : public Engine {};

TEST_F(Plans, factorsAreTakenInOrder) {
  const qxfftplan* plan = get_qxfftcache(240);
  ASSERT_NE(plan, nullptr);
  const FftFactors& f = plan->factors;
  ASSERT_EQ(f.count, 4);
  EXPECT_EQ(std::vector<int>(f.factors, f.factors + 4), (std::vector{5, 4, 4, 3}));
  EXPECT_EQ(std::vector<int>(f.before, f.before + 4), (std::vector{1, 5, 20, 80}));
  EXPECT_EQ(std::vector<int>(f.after, f.after + 4), (std::vector{48, 12, 3, 1}));
  // Second stage, q = 2, r = 3: entry 4 * 48 + 12 + 3, angle 2 pi 3 * 2 * 5 / 240.
  EXPECT_NEAR(f.cosine[207], std::cos(std::numbers::pi / 4), 1e-15);
  EXPECT_NEAR(f.sine[207], std::sin(std::numbers::pi / 4), 1e-15);
  EXPECT_NEAR(f.sine[238], std::sin(2 * std::numbers::pi / 3), 1e-15);
  EXPECT_EQ(get_qxfftcache(240), plan);
}

TEST_F(Plans, plainSequenceAgreesInBothDirections) {
  for (const int n : {1, 2, 9, 16, 45, 100, 240, 486, 1000}) {
    const Signal x = random_signal(n);
    Signal source = x;
    Signal y(n);
    const qxfftplan* plan = get_qxfftcache(n);
    ASSERT_NE(plan, nullptr);
    forward_cfft_gut(plan, source.re.data(), source.im.data(), y.re.data(), y.im.data());
    EXPECT_LE(relative_error(x, y, 1), tolerance) << n;
    source = x;
    inverse_cfft_gut(plan, source.re.data(), source.im.data(), y.re.data(), y.im.data());
    EXPECT_LE(relative_error(x, y, -1), tolerance) << n;
  }
}

// 3 x 7 x 2 points by a published kernel, a general one in the middle, and a general last one.
TEST_F(Plans, generalFactorKernels) {
  const int factors[] = {3, 7, 2};
  const int before[] = {1, 3, 21};
  const int after[] = {14, 2, 1};
  for (const bool inverse : {false, true}) {
    const Signal x = random_signal(42);
    Signal a(42);
    Signal b(42);
    Numbers c(42);
    Numbers s(42);
    ASSERT_EQ(set_fft_cossin_tab(42, 3, factors, before, after, c.data(), s.data()), ok);
    const auto three = inverse ? qx_fft_radix3i_ : qx_fft_radix3f_;
    const auto general = inverse ? qx_fft_radix_geni_ : qx_fft_radix_genf_;
    three(before, after, x.re.data(), x.im.data(), a.re.data(), a.im.data(), c.data(), s.data());
    general(factors + 1, before + 1, after + 1, a.re.data(), a.im.data(), b.re.data(), b.im.data(),
            c.data() + 28, s.data() + 28);
    general(factors + 2, before + 2, after + 2, b.re.data(), b.im.data(), a.re.data(), a.im.data(),
            c.data() + 40, s.data() + 40);
    EXPECT_LE(relative_error(x, a, inverse ? -1 : 1), tolerance);
  }
}

struct Fault {
  const char* name;
  void (*provoke)();
  const char* output;
};

class TransformFault : public Engine, public ::testing::WithParamInterface<Fault> {};

TEST_P(TransformFault, isReportedAndEndsTheEngine) {
  EXPECT_EQ(captured(GetParam().provoke), GetParam().output);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

void transform_seven() {
  Signal x(7);
  EXPECT_EQ(qx_inverse_cfft(7, x.re.data(), x.im.data(), x.re.data(), x.im.data()), failed);
}
void real_plan_of_odd_length() {
  const Numbers x(9);
  EXPECT_EQ(get_qxfftrealcache(9, x.data()), nullptr);
}
void count_factors(int expected) {
  int factors[4];
  int before[4];
  int after[4];
  EXPECT_EQ(set_fft_factors(60, expected, factors, before, after), failed);
}
void overfull_table() {
  const int factors[] = {4, 4};
  const int before[] = {1, 4};
  const int after[] = {4, 1};
  Numbers c(16);
  Numbers s(16);
  EXPECT_EQ(set_fft_cossin_tab(15, 2, factors, before, after, c.data(), s.data()), failed);
}

INSTANTIATE_TEST_SUITE_P(
    Every, TransformFault,
    ::testing::Values(
        Fault{"PrimeAboveFive", transform_seven,
              "\nget_fft_nfactors():\nWe only support radix = 2, 3, 4, 5 currently. \n"
              "The radix = 7 has not been supported yet.\n"},
        Fault{"LengthZero", [] { EXPECT_EQ(get_qxfftcache(0), nullptr); },
              "\nget_fft_nfactors():\nWe only support radix = 2, 3, 4, 5 currently. \n"
              "The radix = 0 has not been supported yet.\n"},
        Fault{"OddReal", real_plan_of_odd_length,
              "\nget_qxfftrealcache():\nN must be even for real FFT \n"},
        Fault{"MoreFactors", [] { count_factors(2); },
              "\nset_fft_factors():\nFatal: nfact is out of bound \n"},
        Fault{"FewerFactors", [] { count_factors(4); },
              "\nset_fft_factors():\nFatal: nfact is not the same as expected \n"},
        Fault{"OverfullTable", overfull_table,
              "\nset_fft_cossin_tab():\nOut of bound for cos/sin tables \n"}),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace qx::test
