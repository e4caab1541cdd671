// The seeded generator, the split into working and free reflections, the bins.
#include "crystal/reflections.h"
#include "scaling/cross_record.h"
#include "scaling/observed.h"
#include "support/engine.h"

#include <quorix/cross.h>
#include <quorix/engine.h>
#include <quorix/reflections.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

namespace qx::test {
namespace {

TEST(Generator, givesThePublishedTenThousandthNumber) {
  std::int32_t seed = -1;
  double value = 0.0;
  for (int i = 0; i < 10000; ++i) value = qx_get_random_double01(&seed);
  EXPECT_EQ(seed, 399268537);
  EXPECT_DOUBLE_EQ(value, 399268537 / 2147483647.0);
}

TEST(Generator, isReloadedByNegativeSeedsOnly) {
  std::int32_t seed = -5;
  const double first = qx_get_random_double01(&seed);
  EXPECT_EQ(seed, 5 * 48271);
  const double second = qx_get_random_double01(&seed);
  seed = 99;  // ignored
  const double third = qx_get_random_double01(&seed);
  seed = -5;
  EXPECT_EQ(qx_get_random_double01(&seed), first);
  EXPECT_EQ(qx_get_random_double01(&seed), second);
  EXPECT_EQ(qx_get_random_double01(&seed), third);
  for (std::int32_t odd : {INT32_MIN, -INT32_MAX}) {
    EXPECT_GT(qx_get_random_double01(&odd), 0.0);  // never stuck at 0
  }
  const std::int32_t low = -3;
  const std::int32_t high = 4;
  std::set<std::int32_t> seen;
  for (int i = 0; i < 500; ++i) {
    std::int32_t value = 0;
    qx_get_frandom_int_(&seed, &low, &high, &value);
    EXPECT_GE(value, low);
    EXPECT_LT(value, high);
    seen.insert(value);
  }
  EXPECT_EQ(seen.size(), 7U);
  EXPECT_LT(qx_get_random_int(&seed, INT32_MIN, INT32_MAX), INT32_MAX);
}

class Cross : public Engine {
 protected:
  // n reflections h k l, every length a different one but for a few.
  static void reflections(std::int32_t n) {
    ASSERT_TRUE(section("xcry\nspgname P 1\ncell 40 50 60 80 95 100\nreso 0.1 99999\nxend\n").ok);
    std::vector<std::int32_t> hkl;
    for (std::int32_t i = 0; i < n; ++i) {
      const std::int32_t j = i * 7 % n;  // not in order of resolution
      hkl.insert(hkl.end(), {j % 11 + 1, j / 11 % 13, j / 143});
    }
    captured([&] { ASSERT_EQ(qx_set_refdata_indices(n, hkl.data()), ok); });
    ASSERT_EQ(qx_get_qxrefdata()->nreflections, n);
  }
  static void flags(const std::vector<std::int16_t>& values) {
    ASSERT_EQ(qx_set_refdata_test(static_cast<std::int32_t>(values.size()), values.data()), ok);
  }
  static double length(std::int32_t reflection) { return qx_get_qxrefdata()->s_length[reflection]; }
  static std::vector<std::int32_t> list(const std::int32_t* first, std::int32_t n) {
    return {first, first + n};
  }
};

TEST_F(Cross, drawsOneOfEveryRunOfNeighbours) {
  reflections(1000);
  const SectionResult result = section("xcross\nparam percent 5 seed 3 NBIN 7\nxend\n");
  ASSERT_TRUE(result.ok) << result.output;
  const qxcross& cross = *qx_get_qxcross();
  EXPECT_EQ(cross.ntotal, 1000);
  ASSERT_EQ(cross.nfree, 50);
  ASSERT_EQ(cross.nwork, 950);
  for (std::int32_t i = 1; i < 1000; ++i) {
    ASSERT_LE(length(cross.order[i - 1]), length(cross.order[i]));
  }
  const auto free = list(cross.free, 50);
  for (std::int32_t group = 0; group < 50; ++group) {
    const auto members = list(cross.order + 20 * group, 20);
    EXPECT_EQ(std::count(members.begin(), members.end(), free[static_cast<std::size_t>(group)]), 1);
  }
  auto all = list(cross.work, 950);
  EXPECT_TRUE(
      std::is_sorted(all.begin(), all.end(), [](auto a, auto b) { return length(a) < length(b); }));
  all.insert(all.end(), free.begin(), free.end());
  std::sort(all.begin(), all.end());
  for (std::int32_t i = 0; i < 1000; ++i) ASSERT_EQ(all[static_cast<std::size_t>(i)], i);
  std::int32_t n = 0;
  EXPECT_EQ(qx_get_qxcross_free(&n), cross.free);
  EXPECT_EQ(n, 50);
}

TEST_F(Cross, theSameNegativeSeedGivesTheSameSplit) {
  reflections(333);
  const auto split = [](std::int32_t seed) {
    EXPECT_EQ(qx_set_qxcross_seed(seed), ok);
    EXPECT_EQ(qx_set_work_free_reflection(0, 1), ok);
    return list(qx_get_qxcross()->free, qx_get_qxcross()->nfree);
  };
  ASSERT_TRUE(section("xcross\nxend\n").ok);
  const auto first = split(-5);
  EXPECT_EQ(qx_get_qxcross()->seed, -5);  // the draw leaves it
  EXPECT_NE(split(5), first);
  EXPECT_EQ(split(-5), first);
}

TEST_F(Cross, binsAreOfEqualCount) {
  reflections(1003);
  ASSERT_TRUE(section("xcross\nparam percent 0\nxend\n").ok);
  const qxcross& cross = *qx_get_qxcross();
  EXPECT_EQ(cross.nwork, 0);
  EXPECT_EQ(cross.nfree, 0);
  EXPECT_EQ(cross.bins_built, 10);
  double last = 0.0;
  for (std::int32_t bin = 0; bin < 10; ++bin) {
    EXPECT_EQ(cross.bin_counts[bin], bin < 3 ? 101 : 100);
    for (std::int32_t i = 0; i < cross.bin_counts[bin]; ++i) {
      const std::int32_t member = cross.bin_members[bin][i];
      EXPECT_EQ(cross.bin_of[member], bin);
      EXPECT_GE(length(member), cross.bin_ranges[bin][0]);
      EXPECT_LE(length(member), cross.bin_ranges[bin][1]);
    }
    EXPECT_GE(cross.bin_ranges[bin][0], last);
    last = cross.bin_ranges[bin][1];
  }
}

TEST_F(Cross, theTableHasOneRowPerBin) {
  reflections(4);
  ASSERT_TRUE(section("xcross\nparam percent 25 NBIN 6\nxend\n").ok);
  const qxcross& cross = *qx_get_qxcross();
  cross.bin_r[0] = 0.25;
  cross.bin_rfree[0] = 0.5;
  const std::string with_free = captured([] { qx_print_bin_rfactor(); });
  char row[200];
  std::snprintf(row, sizeof row, "%5d  %11d  %8.3f  %8.3f  %6.3f  %6.3f\n", 1, 1,
                1 / length(cross.order[0]), 1 / length(cross.order[0]), 0.5, 0.25);
  EXPECT_EQ(
      with_free.find("bin #  nreflection  high_res   low_res   RFree       R\n" + std::string(row)),
      0U)
      << with_free;
  EXPECT_NE(with_free.find("    6            0     0.000     0.000   0.000   0.000\n"),
            std::string::npos);
  ASSERT_EQ(qx_set_qxcross_percent(-1.0), ok);
  ASSERT_EQ(qx_set_work_free_reflection(0, 1), ok);
  EXPECT_EQ(captured([] {
              qx_fprint_bin_rfactor_();
            }).find("bin #  nreflection  high_res   low_res       R\n    1            1 "),
            0U);
  EXPECT_EQ(captured([] { qx_fprint_bin_rfactor_mid_(); }), "");
}

TEST_F(Cross, readsTheFlagsOfTheDataSet) {
  reflections(10);
  flags({0, 1, 1, 0, 2, 1, 1, 0, 1, 1});
  ASSERT_TRUE(section("xcross\ninput free_flag 0\nxend\n").ok);
  const qxcross& cross = *qx_get_qxcross();
  EXPECT_EQ(list(cross.free, cross.nfree), (std::vector<std::int32_t>{0, 3, 7}));
  EXPECT_EQ(list(cross.work, cross.nwork), (std::vector<std::int32_t>{1, 2, 4, 5, 6, 8, 9}));
  EXPECT_EQ(list(cross.order, 10), (std::vector<std::int32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  for (const auto& [format, nfree] : {std::pair{1, 3}, std::pair{2, 6}, std::pair{0, 6}}) {
    qx_get_qxrefdata()->format = format;
    ASSERT_TRUE(section("xcross\ninput\nxend\n").ok);
    EXPECT_EQ(cross.nfree, nfree) << format;
  }
}

TEST_F(Cross, drawsWhenThereAreNoFlags) {
  reflections(100);
  const SectionResult result = section("xcross\ninput free_flag 1\nxend\n");
  ASSERT_TRUE(result.ok);
  EXPECT_EQ(result.output,
            "Free and working sets will be set by Quorix with \n"
            "seed = 137, percentage =  5.00 \n");
  EXPECT_EQ(qx_get_qxcross()->nfree, 5);
}

TEST_F(Cross, badNumbersAreReplacedWithAWarning) {
  reflections(100);
  const SectionResult result = section("xcross\nparam seed 0 NBIN -2\nxend\n");
  ASSERT_TRUE(result.ok);
  EXPECT_EQ(result.output,
            "WARNING: not a valid seed value 0\nreset it to the default value 137\n"
            "WARNING: not a valid nbin value -2\nreset it to the default value 10\n");
  EXPECT_EQ(qx_get_qxcross()->seed, 137);
  EXPECT_EQ(qx_get_qxcross()->nbin, 10);
}

struct Fault {
  const char* name;
  const char* text;
  const char* report;
};

class CrossFault : public Cross, public ::testing::WithParamInterface<Fault> {};

TEST_P(CrossFault, isReportedAndEndsTheEngine) {
  reflections(1000);
  flags(std::vector<std::int16_t>(1000, 1));
  const SectionResult result = section(std::string("xcross\n") + GetParam().text);
  EXPECT_EQ(result.output, GetParam().report);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    each, CrossFault,
    ::testing::Values(
        Fault{"tooFew", "param percent 0.05\n",
              "\nqx_set_work_free_reflection_by_seed():\nThere is no reflection left for Rfree "
              "based on Rfree-percentage: 0.050000 \n"},
        Fault{"everything", "param percent 100\n",
              "\nqx_set_work_free_reflection_by_seed():\nThere is no reflection left for working "
              "set based on Rfree-percentage: 100.000000 \n"},
        Fault{"moreThanEverything", "param percent 1e9\n",
              "\nqx_set_work_free_reflection_by_seed():\nThere is no reflection left for working "
              "set based on Rfree-percentage: 1000000000.000000 \n"},
        Fault{"flagThatDoesNotOccur", "input free_flag 65537\n",
              "\nqx_set_work_free_reflection():\n"
              "There is no flag value \"65537\" for free testing set.\n"},
        Fault{"absurdBins", "param NBIN 2000000000\n",
              "\nqx_set_rfactor_bins():\nnot a valid nbin value 2000000000\n"},
        Fault{"unknownWord", "draw\n",
              "\nqx_cross_validate_ctrl():\n*** Unknow xcross task: DRAW ***\n"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Engine, crossValidationNeedsItsObjects) {
  EXPECT_EQ(captured([] { EXPECT_EQ(qx_set_work_free_reflection(0, 1), failed); }),
            "\nqx_set_work_free_reflection():\nqxcross object has not been created yet\n");
  for (const char* text : {"xcross\ninput\n", "xcross\nparam percent 5\n"}) {
    ASSERT_EQ(qx_create_quorix(), ok);
    EXPECT_NE(section(text).output.find("():\nqxrefdata object has not been created yet\n"),
              std::string::npos);
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
}

// Phases as files hold them, against the library's arctangent, in every octant and at their ends.
TEST_F(Engine, phasesAreAnglesFromZeroTo360) {
  constexpr std::int32_t n = 2880;
  ComplexF f;
  ASSERT_EQ(open_f(n + 6, f), ok);
  for (std::int32_t i = 0; i < n; ++i) {
    const double radians = 6.283185307179586 * i / n;
    const double length = std::pow(10.0, i % 13 - 6);
    f.re[std::size_t(i)] = length * std::cos(radians);
    f.im[std::size_t(i)] = length * std::sin(radians);
  }
  constexpr double ends[6][2] = {{0, 0}, {-0.0, -0.0}, {3, -0.0}, {3, -1e-30}, {-2, -0.0}, {0, -5}};
  constexpr float there[6] = {0, 0, 0, 0, 180, 270};
  for (std::size_t i = 0; i < 6; ++i) {
    f.re[n + i] = ends[i][0];
    f.im[n + i] = ends[i][1];
  }
  std::vector<float> amplitude(n + 6);
  std::vector<float> phase(n + 6);
  put_polar(f, n + 6, amplitude.data(), phase.data());
  for (std::int32_t i = 0; i < n; ++i) {
    const double length = std::pow(10.0, i % 13 - 6);
    EXPECT_NEAR(amplitude[std::size_t(i)], length, 1e-7 * length);
    EXPECT_NEAR(phase[std::size_t(i)], 360.0 * i / n, 2e-5);
  }
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(phase[n + i], there[i]) << i;
}

}  // namespace
}  // namespace qx::test
