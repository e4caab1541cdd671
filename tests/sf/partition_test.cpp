// Parts of the system: the model's F is the sum of what plain sums over each part's atoms give.
#include "core/tagged.h"
#include "crystal/reflections.h"
#include "sf/structfact.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/engine.h>
#include <quorix/partition.h>
#include <quorix/reflections.h>
#include <quorix/scaling.h>

#include <cmath>

namespace qx::test {
namespace {

using Factors = std::vector<std::complex<double>>;

class Partition : public Engine {
 protected:
  static void set_up(const char* memory = "4000") {
    set_up_crystal("P 21 21 2", "21 24 27 90 90 90", 2.0, 800);
    const auto atoms = random_atoms(40, true, 7);
    first = {atoms.begin(), atoms.begin() + 15};
    second = {atoms.begin() + 15, atoms.end()};
    ASSERT_TRUE(section("xmod\nxend\n").ok);
    add_model_entry(first);
    add_model_entry(second);
    ASSERT_TRUE(section("xmol\nhydr yes\nxend\n").ok);
    for (const std::string& text : {std::string("xgrid\nfrac 0.25\nxend\n"),
                                    "xfft\nmemory " + std::string(memory) + "\nxend\n",
                                    std::string("xcut\necut 1e-6\nxend\n")}) {
      ASSERT_TRUE(section(text).ok) << text;
    }
  }
  static Factors scaled(const Factors& f, double scale, double b) {
    Factors out;
    for (std::size_t i = 0; i < f.size(); ++i) {
      const double s = qx_get_qxrefdata()->s_length[i];
      out.push_back(scale * std::exp(-0.25 * b * s * s) * f[i]);
    }
    return out;
  }
  static Factors operator_sum(Factors a, const Factors& b) {
    for (std::size_t i = 0; i < a.size(); ++i) a[i] += b[i];
    return a;
  }
  // Partial structure factors as the data's columns; one value is missing.
  static Factors add_partial() {
    qxrefdata& data = *qx_get_qxrefdata();
    const auto n = static_cast<std::size_t>(data.nreflections);
    EXPECT_EQ(open_block(data.fpart, n, "test_fp"), ok);
    EXPECT_EQ(open_block(data.phip, n, "test_php"), ok);
    Factors f(n);
    for (std::size_t i = 0; i < n; ++i) {
      data.fpart[i] = i == 3 ? NAN : static_cast<float>(5 + i % 17);
      data.phip[i] = static_cast<float>((41 * i) % 360);
      if (i == 3) continue;
      f[i] = std::polar(static_cast<double>(data.fpart[i]),
                        static_cast<double>(data.phip[i]) * M_PI / 180.0);
    }
    return f;
  }
  inline static std::vector<TestAtom> first, second;
};

TEST_F(Partition, theModelIsTheSumOfItsParts) {
  for (const char* memory : {"4000", "0.02"}) {
    set_up(memory);
    const Factors a = direct_sum(first);
    const Factors b = direct_sum(second);
    ASSERT_TRUE(section("xfcc\ncalc\nxend\n").ok);
    EXPECT_LT(vector_r(operator_sum(a, b), engine_sum()), 2e-3);
    const Factors partial = add_partial();
    const SectionResult made = section("xpartition\nby entry\nfpart yes\nscale 1 0.6 15\nxend\n");
    ASSERT_TRUE(made.ok) << made.output;
    EXPECT_NE(made.output.find(": 15 atoms, scale = 1.0"), std::string::npos) << made.output;
    EXPECT_NE(made.output.find(": 25 atoms, scale = 0.6"), std::string::npos) << made.output;
    std::int32_t count = 0;
    ASSERT_EQ(qx_get_qxsyspart_count(&count), ok);
    EXPECT_EQ(count, 4);
    ASSERT_TRUE(section("xfcc\ncalc\nxend\n").ok);
    EXPECT_EQ(qx_get_qxstructfact()->nparts, 3);
    Factors all = operator_sum(operator_sum(a, scaled(b, 0.6, 15.0)), partial);
    EXPECT_LT(vector_r(all, engine_sum()), 2e-3) << memory;
    // A scale counts at once.
    ASSERT_TRUE(section("xpartition\nscale 2 -2\nxend\n").ok);
    for (std::size_t i = 0; i < all.size(); ++i) all[i] -= 3.0 * partial[i];
    EXPECT_LT(vector_r(all, engine_sum()), 2e-3);
    qx_terminate_quorix();
    ASSERT_EQ(qx_create_quorix(), ok);
  }
}

TEST_F(Partition, scalesAndReplacedColumnsSeeTheSum) {
  set_up();
  const Factors partial = add_partial();
  ASSERT_TRUE(section("xpartition\nby entry\nfpart yes\nscale 0 0.7\nxend\nxend\n").ok);
  ASSERT_TRUE(section("xfcc\ncalc\nxend\n").ok);
  const Factors f = engine_sum();
  qxrefdata& data = *qx_get_qxrefdata();
  const auto n = static_cast<std::size_t>(data.nreflections);
  ASSERT_EQ(open_block(data.fobs, n, "test_f"), ok);
  for (std::size_t i = 0; i < n; ++i) data.fobs[i] = static_cast<float>(3.0 * std::abs(f[i]));
  ASSERT_TRUE(section("xoverall\nparam solvent none\nscale\nxend\n").ok);
  ASSERT_TRUE(section("xrfactor\ncalc\nxend\n").ok);
  qx_agreement work = {}, free = {};
  ASSERT_EQ(qx_get_rfactor(&work, &free), ok);
  EXPECT_LT(work.r, 1e-4);
  // The columns of the partial structure factors take the solvent's part: the part keeps its own.
  ASSERT_TRUE(section("xfcc\nreplace\ncalc\nxend\n").ok);
  EXPECT_LT(vector_r(f, engine_sum()), 1e-9);
  // The scale of the atoms alone multiplies every part, and starts over from theirs.
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(section("xfcc\nscale\nxend\n").ok);
    Factors threefold = f;
    for (auto& value : threefold) value *= 3.0;
    EXPECT_LT(vector_r(threefold, engine_sum()), 1e-4);
  }
}

TEST_F(Partition, faultsHaveTheirTexts) {
  const auto expect = [](const std::string& text, const std::string& said) {
    const SectionResult result = section(text);
    EXPECT_FALSE(result.ok) << text;
    EXPECT_NE(result.output.find(said), std::string::npos) << text << result.output;
    ASSERT_EQ(qx_create_quorix(), ok);
  };
  expect("xpartition\nby chain\nxend\n", " Unknow by value: chain ");
  expect("xpartition\nfpart maybe\nxend\n", " Unknow fpart value: maybe ");
  expect("xpartition\nscale 0\nxend\n", "A part, its scale and its B are wanted: 0 ");
  expect("xpartition\nscale 1 2\nxend\n", " 1 is the solvent");
  expect("xpartition\nscale -1 2\nxend\n", "There is no part -1 of the system.");
  expect("xpartition\nscale 0 nan\nxend\n", "Invalid scale nan");
  expect("xpartition\nfoo\nxend\n", "*** Unknow xpartition task: FOO ***");
  set_up();
  expect("xpartition\nfpart yes\nxend\n",
         "There are no partial structure factors: FPART and PHIP.");
  set_up();
  ASSERT_TRUE(section("xfcc\ncalc\nxend\n").ok);
  ASSERT_TRUE(section("xpartition\nby entry\nxend\n").ok);
  expect("xfcc\nreplace\nxend\n", "The structure factors have not been calculated");
}

}  // namespace
}  // namespace qx::test
