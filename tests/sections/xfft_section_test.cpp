// The transform section.
#include "fft/fft.h"
#include "grid/grid.h"
#include "support/engine.h"

#include <quorix/grid.h>

namespace qx::test {
namespace {

class XfftSection : public Engine {
 protected:
  void make_grid(const char* counts) {
    ASSERT_EQ(qx_new_xgrid(), ok);
    qxgrid* grid = qx_get_qxgrid();
    ASSERT_NE(grid, nullptr);
    ASSERT_EQ(std::sscanf(counts, "%d %d %d", &grid->nx, &grid->ny, &grid->nz), 3);
  }
};

TEST_F(XfftSection, goodRunPrintsTheGridLine) {
  make_grid("160 160 160");
  const auto result = section("xfft\nmemory = 400.000000\nsincos = no\nxend\n");
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.output, "grid: nx= 160 ny= 160 nz= 160 sx= 0.00000 sy= 0.00000 sz= 0.00000\n");
  EXPECT_EQ(qx_get_qxsubgrid()->one_box, 1);
  EXPECT_EQ(qx_get_qxgrid()->sincos_memory, 0);
  EXPECT_NE(qx_get_qxfft(), nullptr);
}

TEST_F(XfftSection, budgetSplitsTheGrid) {
  make_grid("160 160 160");
  EXPECT_TRUE(section("xfft\nmemo 100\nxend\n").ok);
  EXPECT_EQ(qx_get_qxsubgrid()->one_box, 0);
  EXPECT_EQ(qx_get_qxsubgrid()->boxes[2], 2);
  EXPECT_EQ(qx_get_qxsubgrid()->points[2], 80);
}

TEST_F(XfftSection, negativeValues) {
  make_grid("8 8 8");
  const auto result = section("xfft\nmemory -3\nB0 -1\nxend\n");
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(qx_get_qxsubgrid()->memory, 0.0);
  EXPECT_EQ(result.output.find(" WARNING: B0 is set as negative, no effect. \n"), 0U);
  EXPECT_EQ(
      section("xfft\nsincos maybe\nxend\n")
          .output.find("WARNING: sincos takes yes or no, not \"MAYB\": nothing is changed \n"),
      0U);
}

struct BadLine {
  const char* line;
  const char* report;
};

class XfftFault : public XfftSection, public ::testing::WithParamInterface<BadLine> {};

TEST_P(XfftFault, isReportedAndEndsTheEngine) {
  make_grid("8 8 8");
  const auto result = section(std::string("xfft\n") + GetParam().line + "\nxend\n");
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.output, std::string("\nqx_xfft_ctrl():\n") + GetParam().report + "\n");
  EXPECT_EQ(qx_exist_quorix(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Every, XfftFault,
    ::testing::Values(BadLine{"memory much", " Invalid specification for memory: much "},
                      BadLine{"memory", " Invalid specification for memory:  "},
                      BadLine{"memory nan", " Invalid specification for memory: nan "},
                      BadLine{"B0 x", " Invalid specification for B0: x "},
                      BadLine{"memx 1", " *** Unknow xfft task: MEMX *** "}));

TEST_F(XfftSection, needsTheGrid) {
  const auto result = section("xfft\nmemory 400\nxend\n");
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.output.find("\nqx_xfft_ctrl():\nqxgrid object has not been created yet \n"),
            std::string::npos);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

TEST_F(XfftSection, withoutEndIsReported) {
  make_grid("8 8 8");
  const auto result = section("xfft\nmemory 400\n");
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.output, "\nqx_xfft_ctrl():\n Failed to get quorix command. \n");
}

}  // namespace
}  // namespace qx::test
