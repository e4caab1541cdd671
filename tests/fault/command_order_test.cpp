// Sections in any order: whatever a command misses, it says what; it never goes on without an
// engine, which would end in a report about that instead.
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <quorix/engine.h>

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
        {"xrfactor", {""}},
        {"xomit", {""}},
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

}  // namespace
}  // namespace qx::test
