#include "crystal/symop.h"

#include "support/engine.h"

#include <quorix/spacegroup.h>

#include <array>
#include <cmath>
#include <vector>

namespace qx::test {
namespace {

struct OperatorCase {
  const char* text;
  std::array<double, 12> rows;
  std::array<int, 3> denominators;
};

class OperatorTexts : public ::testing::TestWithParam<OperatorCase> {};

TEST_P(OperatorTexts, areReadAsMatricesWithDenominators) {
  double op[16];
  std::int32_t denominators[3];
  ASSERT_EQ(qx_parse_spg_symm_oper(GetParam().text, op, denominators), ok);
  for (std::size_t i = 0; i < 12; ++i) EXPECT_EQ(op[i], GetParam().rows[i]) << i;
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(denominators[i], GetParam().denominators[i]) << i;
  EXPECT_EQ(op[12] + op[13] + op[14], 0);
  EXPECT_EQ(op[15], 1);
}

constexpr std::array<double, 12> screw = {-1, 0, 0, 0, 0, 1, 0, 0.5, 0, 0, -1, 0};
INSTANTIATE_TEST_SUITE_P(
    Texts, OperatorTexts,
    ::testing::Values(
        OperatorCase{"-x,y+1/2,-z", screw, {1, 2, 1}},
        OperatorCase{" -X , 1/2 + Y , - Z ", screw, {1, 2, 1}},
        OperatorCase{"-h,0.5+k,-l", screw, {1, 2, 1}},
        OperatorCase{"-a*,b*+2/4,-c*", screw, {1, 2, 1}},
        OperatorCase{"2x-y,x-y,z-1/3", {2, -1, 0, 0, 1, -1, 0, 0, 0, 0, 1, -1.0 / 3}, {1, 1, 3}},
        OperatorCase{"y+0.33333,x+.6667,z+5/6",
                     {0, 1, 0, 1.0 / 3, 1, 0, 0, 2.0 / 3, 0, 0, 1, 5.0 / 6},
                     {3, 3, 6}},
        OperatorCase{"x+1,y-1/8,z+0.2", {1, 0, 0, 1, 0, 1, 0, -0.125, 0, 0, 1, 0.2}, {1, 8, 5}},
        OperatorCase{"x+1/7,y,z,x", {1, 0, 0, 1.0 / 7, 0, 1, 0, 0, 0, 0, 1, 0}, {7, 1, 1}},
        OperatorCase{"", {}, {1, 1, 1}}));

TEST(Symop, translationsThatAreNoFractionHaveNoDenominator) {
  for (const char* text : {"x+1/0,y,z", "x+0/0,y,z", "x+0.123456,y,z"}) {
    double op[16];
    std::int32_t denominators[3];
    ASSERT_EQ(qx_parse_spg_symm_oper(text, op, denominators), ok);
    EXPECT_EQ(denominators[0], 0) << text;
  }
}

// Bad rotations and halves of terms must not pass as operators.
TEST(Symop, onlyWholeRotationsOfDeterminantOneAreOperators) {
  const std::pair<const char*, bool> cases[] = {
      {"x,y,z", true},   {"-x,-y,-z", true}, {"y,z,x+1/4", true},    {"x,y", false},
      {"x,x,z", false},  {"x/2,y,z", false}, {"1/2x,2y,z", false},   {"x+1/0,y,z", false},
      {"2x,y,z", false}, {"rubbish", false}, {"x+1e30,y,z,z", true},
  };
  for (const auto& [text, good] : cases) {
    double op[16];
    int denominators[3];
    ASSERT_EQ(parse_operator(text, op, denominators).size, 0U) << text;
    EXPECT_EQ(is_symmetry_operator(op), good) << text;
  }
}

TEST(Symop, translationsAreNormalisedAndSnapped) {
  const std::pair<double, double> cases[] = {
      {-0.5, 0.5}, {1.0, 0.0},         {-0.0, 0.0},        {1 - 1e-12, 0.0},    {-1e-12, 0.0},
      {1e30, 0.0}, {7.0 / 3, 1.0 / 3}, {0.33333, 1.0 / 3}, {-1.0 / 6, 5.0 / 6}, {2.20, 0.2},
  };
  for (const auto& [given, want] : cases) {
    double op[16] = {1, 0, 0, given, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    qx_normalize_translation(op);
    EXPECT_NEAR(op[3], want, given == 2.20 ? 1e-15 : 0) << given;
    EXPECT_FALSE(std::signbit(op[3])) << given;
  }
}

struct LimitCase {
  const char* text;
  float low, high;
  std::array<int, 2> denominators;
};

TEST(Symop, limitsLieJustOutsideInclusiveBounds) {
  constexpr float untouched = 42;
  const LimitCase cases[] = {
      {"0<=x<=1/2", -1e-5F, 0.50001F, {1, 2}},           {"1/4<y<3/4", 0.25001F, 0.74999F, {4, 4}},
      {" -1/8 <= Z < 2/2", -0.12501F, 0.99999F, {8, 2}}, {"", untouched, 0.99999F, {1, 1}},
      {"0<=h<=+2/3;", -1e-5F, 0.6666767F, {1, 3}},
  };
  for (const LimitCase& c : cases) {
    float low = untouched;
    float high = 0;
    std::int32_t denominators[2];
    ASSERT_EQ(qx_parse_asu_limits(c.text, &low, &high, denominators), ok);
    EXPECT_FLOAT_EQ(low, c.low) << c.text;
    EXPECT_FLOAT_EQ(high, c.high) << c.text;
    EXPECT_EQ(denominators[0], c.denominators[0]) << c.text;
    EXPECT_EQ(denominators[1], c.denominators[1]) << c.text;
  }
}

using SymopEngine = Engine;

TEST_F(SymopEngine, whatIsNoNumberIsReported) {
  double op[16];
  std::int32_t denominators[3];
  float low = 0;
  float high = 0;
  EXPECT_EQ(
      captured([&] { EXPECT_EQ(qx_parse_spg_symm_oper("x+..,y,z", op, denominators), failed); }),
      "\nqx_parse_spg_symm_oper():\nFailed to get float value from ..\n");
  EXPECT_EQ(qx_exist_quorix(), 0);
  ASSERT_EQ(qx_create_quorix(), ok);
  EXPECT_EQ(captured([&] {
              EXPECT_EQ(qx_parse_asu_limits("0<=x<=1/.", &low, &high, denominators), failed);
            }),
            "\nqx_parse_asu_limits():\nFailed to get float value from .\n");
  ASSERT_EQ(qx_create_quorix(), ok);
  EXPECT_EQ(
      captured([&] { EXPECT_EQ(qx_parse_spg_symm_oper("x,y,z", nullptr, denominators), failed); }),
      "\nqx_parse_spg_symm_oper():\nThe rotran is NULL \n");
}

TEST_F(SymopEngine, matricesAreWrittenAsTexts) {
  for (const char* text :
       {"x,y,z", "-x,y+1/2,-z", "-2x+y,x-y,z-5/6", "-y+3/4,x+11/12,z+15/16", "z,-x-y,9y"}) {
    double op[16];
    int denominators[3];
    ASSERT_EQ(parse_operator(text, op, denominators).size, 0U);
    char written[operator_text_size];
    ASSERT_EQ(qx_get_string_oper_by_matrix(op, written), ok);
    EXPECT_STREQ(written, text);
  }
  double op[16] = {1, 0, 0, 0.4242, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  char written[operator_text_size];
  EXPECT_EQ(captured([&] { EXPECT_EQ(qx_get_string_oper_by_matrix(op, written), failed); }),
            "\nqx_get_string_oper_by_matrix_priv():\nqxspg object has not been created yet.\n");
}

TEST(SpaceGroupNames, matchApartFromCaseBlanksAndQuotes) {
  EXPECT_EQ(qx_match_spg_names("p 21 21 21", "P212121"), 1);
  EXPECT_EQ(qx_match_spg_names("'P 21 21 21'", "\"p2 12121\""), 1);
  EXPECT_EQ(qx_match_spg_names("P 21 21 2", "P 21 21 21"), 0);
  EXPECT_EQ(qx_match_spg_names("P 21 21 21", "P 21 21 2"), 0);
  EXPECT_EQ(qx_match_spg_names(" ", "''"), 1);
  char name[] = "'P \"1'";
  qx_proc_spg_names(name);
  EXPECT_STREQ(name, " P  1 ");
}

}  // namespace
}  // namespace qx::test
