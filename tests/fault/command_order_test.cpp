// Sections in any order: whatever a command misses, it says what; it never goes on without an
// engine, which would end in a report about that instead.
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <quorix/engine.h>
#include <quorix/parser.h>

#include <cstdlib>

namespace qx::test {
namespace {

struct Section {
  std::string word;
  std::vector<std::string> commands;  // each as a user may give it

  [[nodiscard]] std::string text(const std::string& command) const {
    return word + "\n" + command + (command.empty() ? "" : "\n") + "xend\n";
  }
};

class CommandOrder : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("ZENVI_DATA", data_directory().c_str(), 1);
    std::filesystem::current_path(scratch_.path());  // a check leaves its report where it runs
    const auto indices = half_sphere(2, 3, 4);
    std::vector<float> f;
    for (std::size_t i = 0; i < indices.size(); ++i) f.push_back(static_cast<float>(10 + i % 7));
    std::vector<float> flags(f.size(), 1.0F);
    for (std::size_t i = 0; i < flags.size(); i += 5) flags[i] = 0.0F;
    write_file(
        scratch_.file("in.mtz"),
        MtzMaker(indices).add("FWT", 'F', f).add("PHWT", 'P', f).add("FREE", 'I', flags).bytes());
  }
  void TearDown() override {
    qx_terminate_quorix();
    std::filesystem::current_path(home_);
  }

  [[nodiscard]] std::string reading() const {
    return "read refl mtz file \"" + scratch_.file("in.mtz") +
           "\" coid FOBS=FWT MAP_COEFFA=FWT MAP_COEFFP=PHWT TEST=FREE";
  }

  [[nodiscard]] std::vector<Section> sections() const {
    const std::string out = " file \"" + scratch_.file("out") + "\"";
    return {
        {"xcry",
         {"", reading(), "xname c", "pname p", "dname d", "spgname P 1", "symp x,y,z", "symc x,y,z",
          "cell 10 20 30", "reso 2", "orth 1 0 0 0 0 1 0 0 0 0 1 0", "reject amplitude sigcut 3",
          "reject intensity rmscut 3", "write refl mtz" + out}},
        {"xgrid",
         {"", "frac 0.3", "space sx=1 sy=1 sz=1", "ngrid nx=20 ny=20 nz=30", "coarse yes",
          "coarse no", "asucheck yes\nngrid nx=20 ny=20 nz=30", "asucheck no"}},
        {"xfft", {"", "memory 10", "sincos yes", "sincos no", "B0 20", "B0 -1"}},
        {"xmap",
         {"", "mapdef generated with amplitude input phase input\ngenerate",
          "mapdef generated with amplitude calc phase calc\ngenerate",
          "mapdef generated with amplitude calc phase input\ngenerate",
          "param type sigmaa\ngenerate", "param type unweighted scale yes cushion 3 u 1 v 0",
          "kick seed 3 length 0.2 naverage 4", "extent unit", "extent asym\ngenerate",
          "extent model\ngenerate",
          "extent box xmin=0 xmax=1 ymin=0 ymax=1 zmin=0 zmax=1\ngenerate", "generate", reading(),
          reading() + "\ngenerate", "read map", "write ccp4" + out, "write xyz" + out}},
        {"xmod", {"", "read pdb file x"}},
        {"xmol", {"", "hydr yes", "anis no"}},
        {"xformfact", {"", "atmf C 5", "diff electron", "diff neutron"}},
        {"xcut", {"", "ecut 0.01", "param ecut 0.01"}},
        {"xfcc", {"", "calc", "scale", "replace"}},
        {"xcross", {"", "param percent 10 seed 3 NBIN 4", "input", "input free_flag 1"}},
        {"xverbose", {"", "param verb_mem 1"}},
        {"xter", {"", "write refl mtz" + out}},
        {"xrfactor", {"", "calc", "print", "json" + out}},
        {"xbulk", {"", "param probe 1", "mask", "write ccp4" + out}},
        {"xoverall", {"", "param solvent exp", "scale", "print"}},
        {"xmlf", {"", "param nodes 3", "estimate", "replace", "print"}},
        {"xwilson",
         {"", "param nbin 5", "plot", "moments", "twin", "anisotropy", "amplitudes", "print"}},
        {"xtarget", {"", "param type ls", "calc", "gradient" + out, "check 1"}},
        {"xfofo",
         {"", "param scale iso weight none alpha 0.1 reject 4", reading(), "generate", "replace",
          reading() + "\ngenerate\nwrite ccp4" + out, reading() + "\nreplace", "read map"}},
        {"xpartition", {"", "by entry", "fpart yes", "fpart no", "scale 0 0.5 3"}},
        {"xomit",
         {"", "region sphere x=1 y=1 z=1 radius=3\ngenerate",
          "region box xmin=0 xmax=1 ymin=0 ymax=1 zmin=0 zmax=1\nparam mask clear\nexclude",
          "region frac xmin=0 xmax=1 ymin=0 ymax=1 zmin=0 zmax=1", "region atoms 1\ngenerate",
          "composite boxes 3\ngenerate", "extent asym", "restore", "write ccp4" + out}},
    };
  }

  // What each command of each section prints after the texts, which leave an engine behind.
  void expect_no_lost_engine(const std::vector<std::string>& before) {
    for (const Section& section : sections()) {
      for (const std::string& command : section.commands) {
        qx_terminate_quorix();
        bool ready = qx_create_quorix() == ok;
        for (const std::string& text : before) ready = ready && this->section(text).ok;
        if (!ready || qx_exist_quorix() == 0) return;
        const std::string output = captured([&] { (void)run_section_text(section.text(command)); });
        for (const char* lost :
             {"quorix system has not been set up yet.", "quorix object does not exist yet!"}) {
          EXPECT_EQ(output.find(lost), std::string::npos)
              << (before.empty() ? "" : before.back()) << section.text(command) << output;
        }
      }
    }
  }
  static SectionResult section(const std::string& text) { return qx::test::section(text); }

  std::filesystem::path home_ = std::filesystem::current_path();
  ScratchDirectory scratch_;
};

TEST_F(CommandOrder, onAFreshEngine) { expect_no_lost_engine({}); }

TEST_F(CommandOrder, afterEachOtherSectionAlone) {
  for (const Section& other : sections()) expect_no_lost_engine({other.text("")});
}

TEST_F(CommandOrder, onEachStepOfTheWay) {
  const std::vector<std::string> way = {
      "xcry\nspgname P 1\ncell 10 20 30\nxend\n",
      "xcry\nspgname P 1\ncell 10 20 30\n" + reading() + "\nxend\n",
      "xmod\nxend\n",
      "xgrid\nfrac 0.3\nxend\n",
      "xfft\nxend\n",
      "xmap\nmapdef generated with amplitude input phase input\ngenerate\nxend\n",
      "xformfact\nxend\n",
  };
  for (std::size_t n = 1; n <= way.size(); ++n) {
    expect_no_lost_engine({way.begin(), way.begin() + static_cast<long>(n)});
  }
  expect_no_lost_engine({way[1], way[4]});
  expect_no_lost_engine({way[3]});
}

// Every controller adds its own text when the next command cannot be fetched.
TEST(CallerTexts, followADeathInTheFetch) {
  const std::string no_parser =
      "\nqx_get_quorix_cmd_word():\nqxparser object has not been created yet. \n";
  struct Controller {
    Status (*run)();
    const char* text;
  };
  for (const Controller& controller : {
           Controller{qx_quorix_ctrl, "qx_quorix_ctrl():\nFailed to get quorix command. \n"},
           Controller{qx_xcry_ctrl, " qx_xcry_ctrl():\n *** Unknow xcry task:  *** \n"},
           Controller{qx_grid_ctrl, "qx_grid_ctrl():\nFailed to get quorix command. \n"},
           Controller{qx_xfft_ctrl, "qx_xfft_ctrl():\n Failed to get quorix command. \n"},
           Controller{qx_map_generation_ctrl,
                      "qx_map_generation_ctrl():\nFailed to get quorix command. \n"},
           Controller{qx_xmod_ctrl, "qx_xmod_ctrl():\nFailed to get quorix command. \n"},
           Controller{qx_xmol_ctrl, "qx_xmol_ctrl():\n Failed to get quorix command. \n"},
           Controller{qx_ffac_ctrl, "qx_ffac_ctrl():\nFailed to get quorix command.\n"},
           Controller{qx_xcut_ctrl, "qx_xcut_ctrl():\n Failed to get quorix command. \n"},
           Controller{qx_xfc_ctrl, "qx_xfc_ctrl():\nFailed to get quorix command. \n"},
           Controller{qx_cross_validate_ctrl,
                      "qx_cross_validate_ctrl():\nFailed to get quorix command. \n"},
           Controller{qx_xverbose_ctrl, "qx_xverbose_ctrl():\n Failed to get quorix command . \n"},
           Controller{qx_xter_ctrl, " qx_xter_ctrl():\n Failed to get quorix command. \n"},
       }) {
    ASSERT_EQ(qx_create_quorix(), ok);
    ASSERT_EQ(qx_delete_qxparser(), ok);
    const std::string output = captured([&] { EXPECT_EQ(controller.run(), ok); });
    const std::string both = no_parser + "\n" + controller.text;
    EXPECT_NE(output.find(both), std::string::npos) << output;
    EXPECT_EQ(output.size(), output.find(both) + both.size()) << output;
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
}

// The innermost report, then the text of each caller that has one.
TEST_F(CommandOrder, eachCallersTextFollowsTheInnermostReport) {
  const std::string crystal = "xcry\nspgname P 1\ncell 10 20 30\n";
  const std::string write = "write refl mtz file \"/no/such/folder/x.mtz\"\n";
  struct Case {
    std::vector<std::string> sections;
    std::vector<std::string> reports;  // in this order, the last at the end of the output
  };
  const std::string read_nothing = "read refl mtz file none coid FOBS=F\n";
  const std::vector<std::string> not_read = {"Failed to open file none for reading",
                                             "Failed to read MTZ file none. \n"};
  for (const Case& test : {
           Case{{crystal + read_nothing},
                {not_read[0], not_read[1],
                 "\n qx_xcry_ctrl():\n Failed to read reflection data. \n"}},
           Case{{crystal + reading() + "\n" + write},
                {"Failed to open file /no/such",
                 "\n qx_xcry_ctrl():\nFailed to write reflection data. \n"}},
           Case{{crystal + reading() + "\nxend\n", "xter\n" + write + "xend\n"},
                {"Failed to open file /no/such",
                 "\n qx_xter_ctrl():\nFailed to write reflection data. \n"}},
           Case{{"xter\n" + write + "xend\n"},
                {"qx_get_qxxcry():", "qx_write_refdata_ctrl():",
                 "\n qx_xter_ctrl():\nFailed to write reflection data. \n"}},
           Case{{"xmap\n" + read_nothing},
                {not_read[0], not_read[1],
                 "\nqx_map_generation_ctrl():\nFailed to read reflection data.\n"}},
           Case{{"xmap\n" + reading() + "\n"},
                {"qx_get_qxxcry():",
                 "\nqx_map_generation_ctrl():\nFailed to read reflection data.\n"}},
           Case{{crystal + "xend\n", "xgrid\nspace sx=1e-9 sy=1 sz=1\nxend\n"},
                {"\nqx_set_qxgrid_nxyz_by_sxyz():\nFailed to set up a grid for FFT \n"}},
           Case{
               {crystal + "xend\n", "xgrid\nngrid nx=99999 ny=99999 nz=99999\nxend\n"},
               {"does not fit in memory", "\nqx_set_grids():\nFailed to set up a grid for FFT \n"}},
           Case{{crystal + reading() + "\nxend\n", "xgrid\nxend\n",
                 "xmap\nmapdef generated with amplitude calc phase calc\ngenerate\n"},
                {"qxstructfact object has not been created yet",
                 "There is no way to get map coefficients."}},
       }) {
    ASSERT_EQ(qx_create_quorix(), ok);
    std::string output;
    for (const std::string& text : test.sections) output = section(text).output;
    std::size_t at = 0;
    for (const std::string& report : test.reports) {
      at = output.find(report, at);
      ASSERT_NE(at, std::string::npos) << report << output;
    }
    EXPECT_EQ(output.substr(at + test.reports.back().size()).find_first_not_of(" \n"),
              std::string::npos)
        << output;
  }
}

}  // namespace
}  // namespace qx::test
