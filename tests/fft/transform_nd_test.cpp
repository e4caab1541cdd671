// Two and three dimensions against their checking twins, and the half-spectrum road against the
// plain sum over its terms.
#include "fft/simd.h"
#include "fft/transform_half.h"
#include "support/engine.h"

#include <quorix/fft.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <vector>

namespace qx::test {
namespace {

// An array of row pointers; two-dimensional ones are plane 0.
class Array {
 public:
  Array(int n0, int n1, int n2)
      : n0_(n0), n1_(n1), n2_(n2), planes_(xopen_3d_double(n0, n1, n2, "t")) {
    fill(0);
  }
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  ~Array() { EXPECT_EQ(xfree_3d_double(planes_), ok); }
  [[nodiscard]] double*** planes() const { return planes_; }
  [[nodiscard]] double** plane() const { return planes_[0]; }
  [[nodiscard]] double* begin() const { return planes_[0][0]; }
  [[nodiscard]] double* end() const { return begin() + n0_ * n1_ * n2_; }
  void fill(unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(-1, 1);
    std::generate(begin(), end(), [&] { return uniform(random); });
  }

 private:
  int n0_, n1_, n2_;
  double*** planes_;
};

double difference(const Array& a, const Array& b) {
  double error = 0;
  double norm = 0;
  for (const double *x = a.begin(), *y = b.begin(); x != a.end(); ++x, ++y) {
    error += (*x - *y) * (*x - *y);
    norm += *x * *x;
  }
  return norm == 0 ? error : std::sqrt(error / norm);
}

constexpr double tolerance = 1e-14;

std::vector<const FftKernels*> all_kernels() {
  const FftKernels* tables[3];
  const int count = list_fft_kernels(tables);
  return {tables, tables + count};
}

class TransformNd : public Engine, public ::testing::WithParamInterface<const FftKernels*> {
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

INSTANTIATE_TEST_SUITE_P(EveryInstructionSet, TransformNd, ::testing::ValuesIn(all_kernels()),
                         [](const auto& instance) { return std::string(instance.param->name); });

// Counts of columns that fill registers and that leave every remainder; odd, even, 1.
TEST_P(TransformNd, complexAndRealAgreeWithTheTwins) {
  const int sizes[][3] = {{1, 1, 1},   {4, 3, 5},   {6, 10, 9},  {9, 5, 12},   {16, 8, 15},
                          {5, 24, 10}, {15, 1, 6},  {1, 27, 20}, {20, 18, 25}, {12, 30, 18},
                          {2, 16, 27}, {25, 9, 16}, {8, 12, 3},  {10, 45, 8}};
  for (const auto& n : sizes) {
    Array re(n[0], n[1], n[2]);
    Array im(n[0], n[1], n[2]);
    re.fill(1);
    im.fill(2);
    Array a(n[0], n[1], n[2]);
    Array b(n[0], n[1], n[2]);
    Array c(n[0], n[1], n[2]);
    Array d(n[0], n[1], n[2]);
    const auto compare = [&](const char* name, bool planes, Status got, Status twin) {
      SCOPED_TRACE(name);
      ASSERT_EQ(got, ok);
      ASSERT_EQ(twin, ok);
      if (!planes && n[0] > 1) return;
      EXPECT_LE(difference(c, a), tolerance) << n[0] << ' ' << n[1] << ' ' << n[2];
      EXPECT_LE(difference(d, b), tolerance) << n[0] << ' ' << n[1] << ' ' << n[2];
    };
    const auto in3 = [&] { return std::pair{re.planes(), im.planes()}; };
    // The twins first: the general routines may overwrite their input.
    for (const bool inverse : {false, true}) {
      const auto twin = inverse ? qx_inverse_cfft_3D_debug : qx_forward_cfft_3D_debug;
      const auto fast = inverse ? qx_inverse_cfft_3D : qx_forward_cfft_3D;
      const auto real_twin = inverse ? qx_inverse_rfft_3D_debug : qx_forward_rfft_3D_debug;
      const auto real_fast = inverse ? qx_inverse_rfft_3D : qx_forward_rfft_3D;
      const auto twin2 = inverse ? qx_inverse_cfft_2D_debug : qx_forward_cfft_2D_debug;
      const auto fast2 = inverse ? qx_inverse_cfft_2D : qx_forward_cfft_2D;
      const auto real_twin2 = inverse ? qx_inverse_rfft_2D_debug : qx_forward_rfft_2D_debug;
      const auto real_fast2 = inverse ? qx_inverse_rfft_2D : qx_forward_rfft_2D;
      const auto [x, y] = in3();
      Status t = twin(n[0], n[1], n[2], x, y, c.planes(), d.planes());
      compare("complex 3-D", true, fast(n[0], n[1], n[2], x, y, a.planes(), b.planes()), t);
      re.fill(3);
      im.fill(4);
      t = real_twin(n[0], n[1], n[2], x, c.planes(), d.planes());
      compare("real 3-D", true, real_fast(n[0], n[1], n[2], x, a.planes(), b.planes()), t);
      re.fill(5);
      t = twin2(n[1], n[2], re.plane(), im.plane(), c.plane(), d.plane());
      compare("complex 2-D", false, fast2(n[1], n[2], re.plane(), im.plane(), a.plane(), b.plane()),
              t);
      re.fill(6);
      t = real_twin2(n[1], n[2], re.plane(), c.plane(), d.plane());
      compare("real 2-D", false, real_fast2(n[1], n[2], re.plane(), a.plane(), b.plane()), t);
    }
  }
}

TEST_P(TransformNd, outputsMayBeTheInputs) {
  Array re(12, 15, 20);
  Array im(12, 15, 20);
  re.fill(1);
  im.fill(2);
  Array a(12, 15, 20);
  Array b(12, 15, 20);
  ASSERT_EQ(qx_forward_cfft_3D_debug(12, 15, 20, re.planes(), im.planes(), a.planes(), b.planes()),
            ok);
  ASSERT_EQ(qx_forward_cfft_3D(12, 15, 20, re.planes(), im.planes(), re.planes(), im.planes()), ok);
  EXPECT_LE(difference(a, re), tolerance);
  EXPECT_LE(difference(b, im), tolerance);
}

// A half spectrum with some (h, k) columns empty, its block full of rubbish elsewhere.
struct HalfCase {
  int nx, ny, nz, hmax, kmax, lmax;
};

class HalfSpectrumTest {
 public:
  explicit HalfSpectrumTest(const HalfCase& size)
      : size_(size),
        columns_(static_cast<std::size_t>(size.ny)),
        block_(1, size.ny * size.nz, size.nx) {
    for (int k = -size.kmax; k <= size.kmax; ++k) {
      const double rest = 1 - std::pow(std::abs(k) / (size.kmax + 0.5), 2);
      columns_[row_of(k, size.ny)] = 1 + static_cast<int>(size.hmax * std::sqrt(rest));
    }
    if (size.kmax > 2) columns_[row_of(2, size.ny)] = columns_[row_of(-2, size.ny)] = 0;
  }

  [[nodiscard]] HalfSpectrum half() const {
    return {{size_.nx, size_.ny, size_.nz, size_.hmax}, size_.kmax, size_.lmax, columns_.data()};
  }

  void set_terms(const HalfSpectrum& half) {
    std::fill(block_.begin(), block_.end(), std::nan(""));
    clear_half_spectrum(half, block_.begin());
    std::mt19937 random(7);
    std::uniform_real_distribution<double> uniform(-1, 1);
    for (int l = -size_.lmax; l <= size_.lmax; ++l) {
      for (int k = -size_.kmax; k <= size_.kmax; ++k) {
        for (int h = 0; h < columns_[row_of(k, size_.ny)]; ++h) {
          if (h == 0 && (l < 0 || (l == 0 && k < 0))) continue;
          std::complex<double> f(uniform(random), uniform(random));
          if (h == 0 && k == 0 && l == 0) f.imag(0);
          set(h, k, l, f);
          if (h == 0 && (k != 0 || l != 0)) set(0, -k, -l, std::conj(f));
          terms_.push_back({h, k, l, f});
        }
      }
    }
  }

  [[nodiscard]] double density(int ix, int iy, int iz) const {
    double sum = 0;
    for (const Term& t : terms_) {
      const double turns = static_cast<double>(t.h * ix % size_.nx) / size_.nx +
                           static_cast<double>(t.k * iy % size_.ny) / size_.ny +
                           static_cast<double>(t.l * iz % size_.nz) / size_.nz;
      const auto wave = std::polar(1.0, -2 * std::numbers::pi * turns);
      sum += (t.h == 0 && t.k == 0 && t.l == 0 ? 1 : 2) * (t.f * wave).real();
    }
    return sum;
  }

  [[nodiscard]] double* block() const { return block_.begin(); }

 private:
  struct Term {
    int h, k, l;
    std::complex<double> f;
  };
  static std::size_t row_of(int k, int n) { return static_cast<std::size_t>(k < 0 ? k + n : k); }
  void set(int h, int k, int l, std::complex<double> f) {
    double* row = block_.begin() +
                  (row_of(l, size_.nz) * static_cast<std::size_t>(size_.ny) + row_of(k, size_.ny)) *
                      static_cast<std::size_t>(size_.nx);
    row[h] = f.real();
    row[h + size_.hmax + 1] = f.imag();
  }

  HalfCase size_;
  std::vector<std::int32_t> columns_;
  Array block_;
  std::vector<Term> terms_;
};

TEST_P(TransformNd, halfSpectrumGivesThePlainSum) {
  const HalfCase cases[] = {{2, 1, 1, 0, 0, 0},     {3, 3, 3, 0, 1, 1},     {4, 2, 6, 1, 0, 2},
                            {6, 5, 4, 2, 2, 1},     {5, 6, 1, 1, 2, 0},     {1 + 1, 4, 5, 0, 1, 2},
                            {8, 8, 8, 3, 3, 3},     {15, 9, 10, 6, 4, 4},   {24, 25, 12, 7, 8, 3},
                            {36, 20, 27, 17, 9, 4}, {50, 27, 16, 16, 8, 5}, {45, 30, 8, 21, 14, 3}};
  for (const HalfCase& size : cases) {
    HalfSpectrumTest spectrum(size);
    const HalfSpectrum half = spectrum.half();
    ASSERT_TRUE(half.fits());
    spectrum.set_terms(half);
    DensityMoments moments;
    ASSERT_EQ(inverse_half_3d(half, spectrum.block(), &moments), ok);
    double error = 0;
    double sum = 0;
    double squares = 0;
    double low = HUGE_VAL;
    double high = -HUGE_VAL;
    const double* rho = spectrum.block();
    for (int iz = 0; iz < size.nz; ++iz) {
      for (int iy = 0; iy < size.ny; ++iy) {
        for (int ix = 0; ix < size.nx; ++ix, ++rho) {
          sum += *rho;
          squares += *rho * *rho;
          low = std::min(low, *rho);
          high = std::max(high, *rho);
          if ((ix + 3 * iy + 5 * iz) % 11 != 0) continue;
          error = std::max(error, std::abs(*rho - spectrum.density(ix, iy, iz)));
        }
      }
    }
    const double points = static_cast<double>(size.nx) * size.ny * size.nz;
    const double rms = std::sqrt(squares / points);
    EXPECT_LE(error, 1e-12 * rms) << size.nx << ' ' << size.ny << ' ' << size.nz;
    EXPECT_NEAR(moments.sum, sum, 1e-12 * rms * points);
    EXPECT_NEAR(moments.sum_of_squares, squares, 1e-12 * squares);
    EXPECT_EQ(moments.minimum, low);
    EXPECT_EQ(moments.maximum, high);
  }
}

TEST(HalfSpectrum, spectraThatWrapAreRefused) {
  const auto fits = [](const HalfSpectrum& half) { return half.fits(); };
  EXPECT_FALSE(fits({{6, 8, 8, 3}, 1, 1}));
  EXPECT_FALSE(fits({{8, 8, 8, 3}, 4, 1}));
  EXPECT_FALSE(fits({{8, 8, 7, 3}, 1, 4}));
  EXPECT_FALSE(fits({{8, 8, 8, INT32_MAX}, 1, 1}));
  EXPECT_TRUE(fits({{8, 8, 7, 3}, 3, 3}));
}

}  // namespace
}  // namespace qx::test
