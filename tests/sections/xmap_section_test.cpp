// The map section: grammar, reports, and what a section leaves on the map.
#include "core/memory_system.h"
#include "crystal/asu.h"
#include "map/map_engine.h"

#include <quorix/memory.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace qx::test {
namespace {

class XmapSection : public MapEngine {
 protected:
  void SetUp() override {
    MapEngine::SetUp();
    install(crystal_, {24, 20, 18});
    ASSERT_EQ(qx_delete_qxmap(), ok);
    put_reflections(2);
  }

  // Two waves along x and y, amplitude and phase as input columns.
  static void put_reflections(std::int32_t n) {
    qxrefdata* set = qx_get_qxrefdata();
    const std::int32_t hkl[2][3] = {{2, 0, 0}, {0, 1, 0}};
    std::int32_t* indices[3] = {};
    for (auto& index : indices) index = allocate<std::int32_t>(2, "test");
    for (int i = 0; i < 2; ++i) {
      for (int j = 0; j < 3; ++j) indices[j][i] = hkl[i][j];
    }
    set->h = indices[0];
    set->k = indices[1];
    set->l = indices[2];
    set->map_coeff_amplitude = floats(660.0F, 1320.0F);
    set->map_coeff_phase = floats(90.0F, -90.0F);
    set->nreflections = n;
  }
  static float* floats(float a, float b) {
    float* values = allocate<float>(2, "test");
    values[0] = a;
    values[1] = b;
    return values;
  }
  // (1/V) sum of 2 |F| cos(2 pi h.x - phi): sin(2 pi 2 x) - 2 sin(2 pi y).
  static double wave(int ix, int iy) {
    const double turn = 2 * std::acos(-1.0);
    return std::sin(turn * 2 * ix / 24) - 2 * std::sin(turn * iy / 20);
  }
  static std::string xmap(const std::string& lines) {
    return "xmap\nmapdef generated with amplitude input phase input\n" + lines + "\nxend\n";
  }

  RandomCrystal crystal_{closed_group({}), {10, 11, 12, 90, 90, 90}, 1};
  ScratchDirectory scratch_;
};

TEST_F(XmapSection, goodRunOfTheTool) {
  const std::string path = scratch_.file("a b.map");
  const auto result =
      section(xmap("param type unweighted u 1 v 0 scale yes cushion 4.0\nextent unit\ngenerate\n"
                   "write ccp4 file \"" +
                   path + "\""));
  EXPECT_TRUE(result.ok) << result.output;
  EXPECT_EQ(result.output,
            "begin map generation:\n"
            "Warning: extraneous input discarded: \" \"\" from line 6\n"
            "end map generation.\n");
  const std::string bytes = read_file(path);
  ASSERT_EQ(bytes.size(), 1024U + 4U * 24 * 20 * 18);
  EXPECT_EQ(bytes.substr(304, 20), "Map type: 1Fo - 0Fc ");
  const double rms = std::sqrt(0.5 * (1 + 4));
  EXPECT_NEAR(qx_get_qxmap()->rms, rms, 1e-9);
  float value = 0;
  std::memcpy(&value, bytes.data() + 1024 + 4 * (24 * 3 + 5), 4);
  EXPECT_NEAR(value, wave(5, 3) / rms, 1e-6);
  EXPECT_EQ(qx_get_qxmap()->u, 1.0);
  EXPECT_EQ(qx_get_qxmap()->cushion, 4.0);
}

TEST_F(XmapSection, optionsHoldForOneFile) {
  const std::string odd = scratch_.file("symm yes origin zero");
  const std::string with = scratch_.file("with");
  const std::string after = scratch_.file("after");
  const auto result = section(xmap("generate\nwrite ccp4 file \"" + odd +
                                   "\"\nwrite ccp4 origin zero symm yes file \"" + with +
                                   "\"\nwrite ccp4 file \"" + after + "\" symm no origin blank"));
  ASSERT_TRUE(result.ok) << result.output;
  const std::size_t plain = 1024 + 4U * 24 * 20 * 18;
  EXPECT_EQ(read_file(odd).size(), plain);
  EXPECT_EQ(read_file(with).substr(1024, 80), "X,Y,Z" + std::string(75, ' '));
  EXPECT_EQ(read_file(with).size(), plain + 80);
  EXPECT_EQ(read_file(after), read_file(odd));
}

TEST_F(XmapSection, writtenAndGeneratedAgainAndReset) {
  const std::string first = scratch_.file("1");
  const std::string second = scratch_.file("2");
  EXPECT_TRUE(section(xmap("generate\nwrite ccp4 file " + first + "\nwrite ccp4 file " + second +
                           "\ngenerate\nparam scale yes\ngenerate"))
                  .ok);
  EXPECT_EQ(read_file(first), read_file(second));
  EXPECT_NEAR(qx_get_qxmap()->statistics.rms, 1.0, 1e-12);
  const double live = qx_get_xmalloc_memory_size();
  EXPECT_TRUE(section("xmap\nxend\n").ok);
  EXPECT_EQ(qx_get_qxmap()->density, nullptr);
  EXPECT_EQ(qx_get_qxmap()->path, nullptr);
  EXPECT_EQ(qx_get_qxmap()->scale, 0);
  EXPECT_EQ(qx_get_qxmap()->amplitude_source, calculated_source);
  EXPECT_LT(qx_get_xmalloc_memory_size(), live);
}

TEST_F(XmapSection, figureOfMeritDecidesAndMultipliesOnlyWhenAsked) {
  qx_get_qxrefdata()->map_fom = floats(0.3F, 0.0F);
  EXPECT_TRUE(section(xmap("generate")).ok);
  EXPECT_NEAR(map_density(*qx_get_qxmap())[2][3][5], wave(5, 0), 1e-9);
  qx_get_qxrefdata()->fom = floats(0.0F, 0.2F);  // goes before the other
  EXPECT_TRUE(section(xmap("generate")).ok);
  EXPECT_NEAR(map_density(*qx_get_qxmap())[2][3][5], wave(0, 3), 1e-9);
  EXPECT_TRUE(section(xmap("param type unweighted weight yes u 3\ngenerate")).ok);
  EXPECT_NEAR(map_density(*qx_get_qxmap())[2][3][5], static_cast<double>(0.2F) * wave(0, 3), 1e-9);
}

TEST_F(XmapSection, figureOfMeritCountsFromATenThousandthOfAPercentOn) {
  qx_get_qxrefdata()->fom = floats(0.95e-5F, 1.05e-5F);
  EXPECT_TRUE(section(xmap("generate")).ok);
  EXPECT_NEAR(map_density(*qx_get_qxmap())[2][3][5], wave(0, 3), 1e-9);
}

// On the road by half a spectrum, and on the other, which the index 2 on four points needs.
TEST_F(XmapSection, oneScaleForTheCellAndItsParts) {
  for (const std::int32_t nx : {24, 4}) {
    set_grid({nx, 20, 18});
    ASSERT_TRUE(section(xmap("param scale yes\ngenerate")).ok);
    const double rms = qx_get_qxmap()->rms;
    const double value = map_density(*qx_get_qxmap())[2][3][1];
    const std::string part = "extent frac xmin=0 xmax=0.5 ymin=0 ymax=0.2 zmin=0 zmax=0.3\n";
    ASSERT_TRUE(section(xmap(part + "param scale cell\ngenerate")).ok);
    EXPECT_NEAR(map_density(*qx_get_qxmap())[2][3][1], value, 1e-12);
    EXPECT_NEAR(qx_get_qxmap()->rms, rms, 1e-12);
    ASSERT_TRUE(section(xmap(part + "param scale yes\ngenerate")).ok);
    EXPECT_NEAR(qx_get_qxmap()->cell_rms, rms, 1e-12);
    EXPECT_GT(std::abs(qx_get_qxmap()->rms - rms), 0.01 * rms);
    EXPECT_NEAR(qx_get_qxmap()->statistics.rms, 1.0, 1e-12);
  }
}

TEST_F(XmapSection, extentsAndKeys) {
  qxasu* asu = qx_get_qxasu();
  asu->high[0] = 0.50001;
  asu->high[1] = 1.0;
  asu->high[2] = 0.24;
  EXPECT_TRUE(section(xmap("extent asym\ngenerate")).ok);
  const auto bounds = [] {
    const qxmap* map = qx_get_qxmap();
    return std::vector<int>{map->xlow, map->xhigh, map->ylow, map->yhigh, map->zlow, map->zhigh};
  };
  EXPECT_EQ(bounds(), (std::vector<int>{0, 13, 0, 20, 0, 5}));
  EXPECT_TRUE(section(xmap("extent frac xmin=-0.1 xmax = 0.5 ymin 0 ymax=0.1 zmin=0.2 zmax=0.3\n"
                           "kick seed 5 length -1 naverage 7\ngenerate"))
                  .ok);
  EXPECT_EQ(bounds(), (std::vector<int>{-2, 12, 0, 2, 4, 5}));
  const qxmap* map = qx_get_qxmap();
  EXPECT_EQ(map->kick, 2);
  EXPECT_EQ(map->seed, 5);
  EXPECT_EQ(map->kick_length, 0.3);
  EXPECT_EQ(map->kick_average, 7);
  double* orth2frac = qx_get_qxcell()->orth2frac;
  orth2frac[0] = 0.1;
  orth2frac[1] = -0.02;  // an oblique axis: the box holds all eight corners
  orth2frac[5] = 1.0 / 11;
  orth2frac[10] = 1.0 / 12;
  EXPECT_TRUE(
      section(xmap("extent box xmin=0 xmax=5 ymin=-2.2 ymax=11 zmin=3 zmax=3\ngenerate")).ok);
  EXPECT_EQ(bounds(), (std::vector<int>{-5, 13, -4, 20, 4, 4}));
  EXPECT_TRUE(section(xmap("param type SIGMaa\nparam type expected u 3 v 2\nparam v -1")).ok);
  EXPECT_EQ(qx_get_qxmap()->type, expected_map);
  EXPECT_EQ(qx_get_qxmap()->u, 3.0);
  EXPECT_EQ(qx_get_qxmap()->v, -1.0);
}

TEST_F(XmapSection, saysWhatItDoesNotDo) {
  const std::string kicks =
      "WARNING: kicks displace the atoms of a model: the map of input coefficients has none \n";
  const std::string weights =
      "WARNING: weights belong to maps of a model: of input coefficients \"type\" changes nothing "
      "\n";
  const std::string begin = "begin map generation:\n";
  const std::string end = "end map generation.\n";
  EXPECT_EQ(section(xmap("param type unweighted\ngenerate")).output, begin + end);
  EXPECT_EQ(section(xmap("kick seed = 5 length=0.2\ngenerate")).output, begin + kicks + end);
  for (const char* type : {"sigmaa", "combined", "expected"}) {
    EXPECT_EQ(section(xmap(std::string("param type = ") + type + " scale=no\ngenerate")).output,
              begin + weights + end);
  }
}

struct Fault {
  const char* lines;
  const char* text;
};

class XmapFault : public XmapSection, public ::testing::WithParamInterface<Fault> {};

TEST_P(XmapFault, isReportedAndEndsTheEngine) {
  const auto result = section(std::string("xmap\n") + GetParam().lines + "\nxend\n");
  EXPECT_FALSE(result.ok);
  EXPECT_NE(result.output.find(GetParam().text), std::string::npos) << result.output;
  EXPECT_EQ(qx_exist_quorix(), 0);
}

#define FROM_INPUT "mapdef generated with amplitude input phase input\n"
INSTANTIATE_TEST_SUITE_P(
    Commands, XmapFault,
    ::testing::Values(
        Fault{"mapp x", "\nqx_map_generation_ctrl():\n*** Unknow xmap task: \"MAPP\" ****\n"},
        Fault{"param type fomweight u 1 v 0",
              "\nqx_map_generation_ctrl():\n Unknow map type: fomweight \n"},
        Fault{"param scale maybe", "\n Unknow scale value: maybe \n"},
        Fault{"param weight maybe", "\nUnknown value \"maybe\" for weight.\n"},
        Fault{FROM_INPUT "param weight yes\ngenerate",
              "\nThere is no figure of merit defined yet.\n"},
        Fault{"param u one", "Failed to convert double value"},
        Fault{"mapdef amplitude input",
              "\nUnknown keyword in mapdef command: \"amplitude\"\nThe command line should be:\n"
              "mapdef generated with amplitude [calc | input] phase [calc | input]\n"},
        Fault{"mapdef generated with Amplitude Maybe",
              "\nUnknown value \"Maybe\" for amplitude.\n"},
        Fault{"mapdef generated with amplitude calc phase", "\nUnknown value \"\" for phase.\n"},
        Fault{"mapdef generated with phase calc amplitude calc",
              "\nUnknown keyword in mapdef command: \"phase\"\n"},
        Fault{"mapdef generated with amplitude input",
              "\nUnknown keyword in mapdef command: \"\"\n"},
        Fault{"mapdef generated with amplitude input phase input amplitude calc",
              "\nUnknown keyword in mapdef command: \"amplitude\"\n"},
        Fault{"mapdef", "\nUnknown keyword in mapdef command: \"\"\n"},
        Fault{FROM_INPUT "extent box xmin=0 xmax=1 ymin=3 ymax=1 zmin=0 zmax=1\ngenerate",
              "\nInvalid map limits 3.000000 and 1.000000 \n"},
        Fault{"extent", "\nUnknown extent type. \n"},
        Fault{"extent all", "\nUnknown extent type. \n"},
        Fault{"extent box xmin=0 xmax=1 ymin=0 zmin=0 zmax=1", "\nNo ymax for box defined. \n"},
        Fault{"extent frac", "\nNo xmin for frac defined. \n"},
        Fault{FROM_INPUT "extent frac xmin=1 xmax=0 ymin=0 ymax=1 zmin=0 zmax=1\ngenerate",
              "\nInvalid map limits 1.0"},
        Fault{FROM_INPUT "extent frac xmin=0 xmax=nan ymin=0 ymax=1 zmin=0 zmax=1\ngenerate",
              "\nInvalid map limits 0.0"},
        Fault{FROM_INPUT "extent frac xmin=0 xmax=5000 ymin=0 ymax=9999 zmin=0 zmax=9999\ngenerate",
              "does not fit in memory"},
        Fault{FROM_INPUT "extent model\ngenerate", "\nmolsys object has not been created yet \n"},
        Fault{"generate",
              "\nqx_set_map_coef():\nqxstructfact object has not been created yet \n"
              "\nqx_generate_map():\nThere is no way to get map coefficients.\n"},
        Fault{"mapdef generated with amplitude input phase calc\ngenerate",
              "\nDonot know how to assemble input map phases.\n"},
        Fault{"mapdef generated with amplitude calc phase input\ngenerate",
              "\nCan not assemble input map coefficients from the same source.\n"},
        Fault{"read map file x", "\nFeature for reading map data has not been implemented yet.\n"},
        Fault{"write pdb file x", "\nUnknown map format: pdb\n"},
        Fault{"write ccp4", "\nUndefined map file name. \n"},
        Fault{"write cns file x", "\nHas not declared to write formated or unformated map file.\n"},
        Fault{"write ccp4 file x", "\nThere is no way to get map coefficients.\n"},
        Fault{FROM_INPUT "generate\nwrite ccp4 file x symm maybe",
              "\nUnknown value \"maybe\" for symm.\n"},
        Fault{FROM_INPUT "generate\nwrite ccp4 file x origin one",
              "\nUnknown value \"one\" for origin.\n"},
        Fault{FROM_INPUT "generate\nwrite quorix file x", "has not been implemented yet."},
        Fault{FROM_INPUT "generate\nwrite ccp4 file /no/such/place",
              "\nFailed to open file \"/no/such/place\" \n"}));

TEST_F(XmapSection, missingData) {
  const std::string generate = xmap("generate");
  qx_get_qxrefdata()->map_coeff_phase = nullptr;
  EXPECT_NE(section(generate).output.find("\nThere is no input phase data defined yet.\n"),
            std::string::npos);
  EXPECT_EQ(qx_exist_quorix(), 0);
  SetUp();
  qx_get_qxrefdata()->map_coeff_amplitude = nullptr;
  EXPECT_NE(section(generate).output.find("\nThere is no input amplitude data defined yet.\n"),
            std::string::npos);
  SetUp();
  qx_get_qxrefdata()->nreflections = 0;
  EXPECT_NE(section(generate).output.find("\nThere is no reflections defined for generating map\n"),
            std::string::npos);
  SetUp();
  EXPECT_EQ(qx_delete_xgrid(), ok);
  EXPECT_NE(section(generate).output.find("\nqxgrid object has not been created yet \n"),
            std::string::npos);
  SetUp();
  const auto result = section("xmap\ngenerate with end of text");
  EXPECT_FALSE(result.ok);
}

// ---- each allocation of a run failing in turn

constexpr int loading = 12;  // of the parser, before the section begins: block, record, tag
int allocations_left = 0;

void* failing_malloc(std::size_t size) {
  return allocations_left-- > 0 ? std::malloc(size) : nullptr;
}

class Starved : public XmapSection {
 protected:
  void TearDown() override {
    (void)set_system_allocator(std::malloc);
    XmapSection::TearDown();
  }
};

TEST_F(Starved, everyFailedAllocationIsReportedAndNothingElseHappens) {
  const std::string path = scratch_.file("map");
  // A cut box through half a spectrum, and one whose terms alias.
  for (const int nx : {24, 3}) {
    bool finished = false;
    for (int n = loading; !finished; ++n) {
      ASSERT_LT(n, 500);
      (void)qx_create_quorix();
      install(crystal_, {nx, 20, 18});
      put_reflections(2);
      ASSERT_EQ(generate({crystal_.row({1, 0, 0})}), ok);  // plans are the transforms' business
      allocations_left = n;
      (void)set_system_allocator(failing_malloc);
      const auto result =
          section(xmap("param scale yes\nextent frac xmin=0 xmax=1 ymin=0 ymax=1 zmin=0 zmax=1\n"
                       "generate\nwrite ccp4 file " +
                       path));
      (void)set_system_allocator(std::malloc);
      finished = result.ok;
      EXPECT_EQ(qx_exist_quorix(), result.ok ? 1 : 0) << n;
      EXPECT_EQ(std::filesystem::exists(path), result.ok) << n;
    }
    std::filesystem::remove(path);
  }
}

class PrivateSet : public Engine {};

// The same file read as the crystal's own set and inside the map section gives the same map; the
// private set is gone with the next section.
TEST_F(PrivateSet, takesTheCrystalsPlace) {
  const std::string crystal = "xcry\nspgname P 21 21 21\ncell 50.84 42.77 28.95\nreso 2.0 50\n";
  const std::string read = "read refl mtz file \"" QUORIX_SOURCE_DIR
                           "/examples/1ubq.mtz\" coid MAP_COEFFA=FWT MAP_COEFFP=PHWT\n";
  const std::string grid = "xgrid\nngrid nx=80 ny=72 nz=48\nxend\n";
  const std::string map = "xmap\nmapdef generated with amplitude input phase input\n";
  ASSERT_TRUE(section(crystal + read + "xend\n").ok);
  ASSERT_TRUE(section(grid).ok);
  ASSERT_TRUE(section(map + "generate\nxend\n").ok);
  const double* data = map_density(*qx_get_qxmap())[0][0];
  const std::vector<double> expected(data, data + 80 * 72 * 48);

  ASSERT_EQ(qx_create_quorix(), ok);
  ASSERT_TRUE(section(crystal + "xend\n").ok);
  ASSERT_TRUE(section(grid).ok);
  const auto result = section(map + read + read + "generate\nxend\n");
  ASSERT_TRUE(result.ok) << result.output;
  EXPECT_EQ(std::memcmp(map_density(*qx_get_qxmap())[0][0], expected.data(), 8 * expected.size()),
            0);
  EXPECT_FALSE(section(map + "generate\nxend\n").ok);
}

}  // namespace
}  // namespace qx::test
