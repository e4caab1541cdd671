// Every allocation of a run fails once: each time one chain of reports, no engine left behind, no
// broken file in the place of a good one.
#include "core/memory_system.h"
#include "core/tagged.h"
#include "crystal/reflections.h"
#include "support/engine.h"
#include "support/mtz_maker.h"
#include "support/random_model.h"

#include <quorix/driver.h>
#include <quorix/engine.h>
#include <quorix/map.h>
#include <quorix/mtz.h>
#include <quorix/reflections.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace qx::test {
namespace {

int countdown = -1;
void* failing(std::size_t size) { return countdown-- == 0 ? nullptr : std::malloc(size); }

// An allocator that refuses the n-th request, while it stands.
class FailNth {
 public:
  explicit FailNth(int n) : previous_(set_system_allocator(failing)) { countdown = n; }
  FailNth(const FailNth&) = delete;
  FailNth& operator=(const FailNth&) = delete;
  ~FailNth() { set_system_allocator(previous_); }

 private:
  SystemAllocator previous_;
};

std::string small_mtz() {
  MtzMaker maker(half_sphere(3, 4, 5));
  std::vector<float> amplitudes;
  std::vector<float> phases;
  for (std::size_t i = 0; i < maker.rows(); ++i) {
    amplitudes.push_back(static_cast<float>(10 + i % 7));
    phases.push_back(static_cast<float>((37 * i) % 360));
  }
  return maker.add("FWT", 'F', amplitudes).add("PHWT", 'P', phases).bytes();
}

// Runs `work` with the n-th allocation failing, n = 0, 1, ... until it succeeds; gives that n.
template <class Work>
int fail_each(Work work, int step) {
  for (int n = 0; n < 20000; n += step) {
    qx_terminate_quorix();
    bool succeeded = false;
    const auto deaths = qx_get_die_count();
    const std::string output = captured([&] {
      const FailNth guard(n);
      succeeded = work();
    });
    if (succeeded && qx_get_die_count() == deaths) return n;
    EXPECT_EQ(qx_exist_quorix(), 0) << n;
    EXPECT_NE(output.find("ailed to"), std::string::npos) << n << output;
  }
  return -1;
}

TEST(Allocations, ofAMapRunFailOneByOne) {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  const ScratchDirectory scratch;
  const std::string mtz = scratch.file("in.mtz");
  const std::string map = scratch.file("out.ccp4");
  write_file(mtz, small_mtz());
  write_file(map, "good");
  const double cell[6] = {10, 20, 30, 90, 90, 90};
  bool broken = false;
  const int n = fail_each(
      [&] {
        const bool done = quorix_zenvi_driver2("P 1", cell, mtz.c_str(), "FWT", "PHWT", "",
                                               map.c_str(), 1.0, 50.0) == ok;
        // The termination comes behind the writing: then the new map is there, whole.
        const std::string left = read_file(map);
        broken = broken || (left != "good" && left.size() <= 1024U);
        return done;
      },
      1);
  EXPECT_GT(n, 300);
  EXPECT_FALSE(broken);
  EXPECT_GT(read_file(map).size(), 1024U);
}

TEST(Allocations, ofAMapWithLabelsFailOneByOne) {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  const ScratchDirectory scratch;
  const std::string mtz = scratch.file("in.mtz");
  write_file(mtz, small_mtz());
  const std::string crystal = "xcry\nspgname P 1\ncell 10 20 30\nread refl mtz file \"" + mtz +
                              "\" coid MAP_COEFFA=FWT MAP_COEFFP=PHWT\nxend\n";
  const std::string map =
      "xmap\nmapdef generated with amplitude input phase input\ngenerate\nwrite ccp4 file \"" +
      scratch.file("out.ccp4") + "\" symm yes prov \"in.mtz\" columns \"FWT PHWT\"\nxend\n";
  const int n = fail_each(
      [&] {
        countdown = 1 << 30;
        if (qx_create_quorix() != ok || !run_section_text(crystal) ||
            !run_section_text("xgrid\nfrac 0.33\nxend\n") || !run_section_text("xfft\nxend\n")) {
          return false;
        }
        static int failing_at = 0;
        countdown = failing_at++;
        const bool done = run_section_text(map);
        countdown = 1 << 30;
        if (done) qx_terminate_quorix();
        return done;
      },
      1);
  EXPECT_GT(n, 30);
}

// A file that is held outlives the objects of a job, and goes with the engine wherever that ends.
TEST(Allocations, ofTwoJobsWithOneFileFailOneByOne) {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  const ScratchDirectory scratch;
  const std::string path = scratch.file("in.mtz");
  write_file(path, small_mtz());
  const std::string text = "xcry\nspgname P1\ncell 10 20 30 90 90 90\nread refl mtz file " + path +
                           " coid MAP_COEFFA=FWT MAP_COEFFP=PHWT\nxend\n";
  const auto hold = [&] {
    qxrefdata* set = qx_new_qxrefdata_obj();
    if (!set || qx_read_refdata_mtz_file_obj(set, path.c_str()) != ok) return failed;
    QX_TRY(qx_hold_refdata_mtz(set));
    return qx_delete_qxrefdata_obj(set);
  };
  const int n = fail_each(
      [&] {
        if (qx_create_quorix() != ok || hold() != ok || !run_section_text(text)) return false;
        const qxmtz* held = qx_get_refdata_mtz();
        if (qx_renew_quorix() != ok || !run_section_text(text)) return false;
        EXPECT_EQ(qx_get_refdata_mtz(), held);
        return true;
      },
      1);
  EXPECT_GT(n, 60);
  qx_terminate_quorix();
  EXPECT_EQ(captured([] { EXPECT_EQ(qx_renew_quorix(), failed); }),
            "\nqx_renew_quorix():\nquorix object does not exist yet!\n");
}

TEST(Allocations, ofAModelRunFailOneByOne) {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  ASSERT_EQ(qx_create_quorix(), ok);
  const auto atoms = random_atoms(6, true, 1);
  // What is put into the engine by direct calls stands outside; the sections are what fails.
  const int n = fail_each(
      [&] {
        countdown = 1 << 30;
        if (qx_create_quorix() != ok) return false;
        set_up_crystal("P 21 21 21", "12 14 16 90 90 90", 3.0, 20);
        set_up_model(atoms);
        static int failing_at = 0;
        countdown = failing_at++;
        for (const char* text :
             {"xgrid\nfrac 0.33\nxend\n", "xfft\nmemory 0\nxend\n", "xform\nxend\n",
              "xcut\necut 0.01\nxend\n", "xpart\nby entry\nscale 0 0.5 2\nxend\n",
              "xcross\nparam percent 10\nxend\n", "xfcc\ncalc\nreplace\nxend\n"}) {
          if (!run_section_text(text)) return false;
        }
        countdown = 1 << 30;
        qx_terminate_quorix();
        return true;
      },
      1);
  EXPECT_GT(n, 200);
}

TEST(Allocations, ofMapsFromAmplitudesAndAModelFailOneByOne) {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  ASSERT_EQ(qx_create_quorix(), ok);
  const auto atoms = random_atoms(30, true, 1);
  const ScratchDirectory scratch;
  const std::string out = " file \"" + scratch.file("out") + "\"\n";
  MtzMaker second(half_sphere(4, 5, 6));
  second.cell = "12 14 16 90 90 90";
  second.symmetry = "4 4 P 19 'P 21 21 21' PG222";
  second.operators = {"x,y,z", "-x+1/2,-y,z+1/2", "-x,y+1/2,-z+1/2", "x+1/2,-y+1/2,-z"};
  second.add("FP", 'F', std::vector<float>(second.rows(), 30.0F));
  write_file(scratch.file("second.mtz"), second.bytes());
  const std::string texts[] = {
      "xcross\nparam percent 20\nxend\n",
      "xbulk\nmask\nwrite ccp4" + out + "xend\n",
      "xoverall\nparam solvent bins\nscale\nprint\nxend\n",
      "xrfactor\ncalc\nprint\njson" + out + "xend\n",
      "xmlf\nestimate\nreplace\nanomalous\nprint\nxend\n",
      "xfcc\nreplace both fitted\nxend\n",
      "xcry\nwrite refl mtz" + out.substr(0, out.size() - 1) + " coid FC FWT_nofill FAN\nxend\n",
      "xmap\nparam type sigmaa\nkick naverage 1\ngenerate\nxend\n",
      "xomit\nregion frac xmin=0 xmax=0.4 ymin=0 ymax=0.4 zmin=0 "
      "zmax=0.4\nregion atoms 3\nparam mask clear\ngenerate\nexclude\nxend\n",
      "xomit\nrestore\ncomposite boxes 2\ngenerate\nxend\n",
      "xtarget\ncalc\ngradient" + out + "xend\n",
      "xwilson\nplot\nmoments\ntwin\nanisotropy\nprint\nxend\n",
      "xfofo\nread refl mtz file \"" + scratch.file("second.mtz") +
          "\" coid FOBS=FP\nreplace\nextent asym\ngenerate\nwrite ccp4" + out + "xend\n"};
  const int n = fail_each(
      [&] {
        countdown = 1 << 30;
        if (qx_create_quorix() != ok) return false;
        set_up_crystal("P 21 21 21", "12 14 16 90 90 90", 2.5, 200);
        set_up_model(atoms);
        for (const char* text : {"xgrid\nfrac 0.33\nxend\n", "xfft\nmemory 400\nxend\n",
                                 "xcut\necut 0.01\nxend\n", "xfcc\ncalc\nreplace\nxend\n"}) {
          if (!run_section_text(text)) return false;
        }
        qxrefdata& data = *qx_get_qxrefdata();
        const auto count = static_cast<std::size_t>(data.nreflections);
        if (open_block(data.fobs, count, "test_f") != ok) return false;
        std::copy_n(data.fc, count, data.fobs);
        for (float** column : {&data.fp, &data.fm}) {
          if (open_block(*column, count, "test_f") != ok) return false;
          std::copy_n(data.fc, count, *column);
        }
        const std::vector<std::int32_t> groups(atoms.size(), 0);
        qx_density_correlation density = {};
        static int failing_at = 0;
        countdown = failing_at;
        failing_at += 7;  // each run costs as much as the road
        std::int32_t added = 0;
        if (qx_fill_refdata(&added) != ok) return false;
        if (!run_section_text("xfcc\ncalc\nxend\n")) return false;
        for (const std::string& text : texts) {
          if (!run_section_text(text)) return false;
        }
        if (qx_calc_density_correlation(1.5, static_cast<std::int32_t>(groups.size()),
                                        groups.data(), 1, &density) != ok) {
          return false;
        }
        countdown = 1 << 30;
        qx_terminate_quorix();
        return true;
      },
      1);
  EXPECT_GT(n, 50);
}

}  // namespace
}  // namespace qx::test
