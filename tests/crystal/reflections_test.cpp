#include "crystal/reflections.h"

#include "crystal/columns.h"
#include "crystal/crystal.h"
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <quorix/cell.h>
#include <quorix/memory.h>
#include <quorix/mtz.h>
#include <quorix/reflection_view.h>

#include <cmath>
#include <cstring>

namespace qx::test {
namespace {

constexpr float missing = std::numeric_limits<float>::quiet_NaN();

class Reflections : public Engine {
 protected:
  // Runs a crystal section over the file; the cell is 10 x 20 x 30 Angstrom unless told otherwise.
  SectionResult build(const MtzMaker& file, const std::string& coids,
                      const std::string& more = "") {
    MtzMaker same_group = file;
    same_group.symmetry = "4 4 P 19 'P 21 21 21' PG222";
    same_group.operators = {"x,y,z", "-x,y+1/2,-z+1/2", "x+1/2,-y+1/2,-z", "-x+1/2,-y,z+1/2"};
    write_file(scratch_.file("in.mtz"), same_group.bytes());
    return section("xcry\nspgname P 21 21 21\ncell 10 20 30\n" + more + "read refl mtz file \"" +
                   scratch_.file("in.mtz") + "\" coid " + coids + "\nxend\n");
  }

  ScratchDirectory scratch_;
};

TEST_F(Reflections, chosenColumnsAreCopiedAndTheRestIsNot) {
  MtzMaker file({{1, 0, 0}, {0, 0, 0}, {-2, 3, 4}, {1, 1, 1}});
  file.add("F", 'F', {10, 20, 30, 40}).add("FREE", 'I', {0, 1, missing, 70000});
  file.add("W", 'W', {0.5F, 0.5F, missing, -INFINITY}).add("OTHER", 'R', {1, 2, 3, 4});
  const SectionResult run = build(file, "FOBS=F TEST = FREE FOM= W SIGF=NONE");
  ASSERT_TRUE(run.ok) << run.output;
  EXPECT_NE(run.output.find(" Warning: mtz does not have \"NONE\" column defined.\n"
                            "Total number of reflections input    : 4          \n"
                            "Total number of reflections used     : 3          \n"
                            "Total number of reflections rejected : 1          \n"
                            "High resolution :    3.529\n"
                            "Low resolution  :   10.000\n"),
            std::string::npos)
      << run.output;
  const qxrefdata* data = qx_get_qxrefdata();
  ASSERT_EQ(data->nreflections, 3);
  EXPECT_EQ(data->h[1], -2);
  EXPECT_EQ(data->l[1], 4);
  EXPECT_EQ(data->fobs[2], 40.0F);
  EXPECT_EQ(data->test[0], 0);
  EXPECT_EQ(data->test[1], -1);
  EXPECT_EQ(data->test[2], -1);
  EXPECT_EQ(data->fom[1], 0.0F);
  EXPECT_EQ(data->fom[2], 0.0F);
  EXPECT_EQ(data->sigf, nullptr);
  EXPECT_EQ(data->iobs, nullptr);
  EXPECT_EQ(data->ninput, 4);
  EXPECT_EQ(data->rejected[1], 1);
  EXPECT_EQ(data->rejected[0] + data->rejected[2] + data->rejected[3], 0);
  EXPECT_EQ(data->weight[2], 1.0F);
  EXPECT_EQ(data->hmax * 100 + data->kmax * 10 + data->lmax, 234);
  EXPECT_STREQ(data->crystal_name, "crystal");
  EXPECT_STREQ(data->project_name, "project");
}

TEST_F(Reflections, aCoefficientCountsWhole) {
  MtzMaker file({{1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}, {5, 0, 0}});
  file.add("FWT", 'F', {10, missing, 30, INFINITY, -999});
  file.add("PHWT", 'P', {90, 90, missing, 90, 90});
  file.missing = "-999.0";
  ASSERT_TRUE(build(file, "MAP_COEFFA=FWT MAP_COEFFP=PHWT MAP_COEFF=FWT").ok);
  const qxrefdata* data = qx_get_qxrefdata();
  ASSERT_EQ(data->nreflections, 5);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(data->map_coeff_amplitude[i], i == 0 ? 10.0F : 0.0F);
    EXPECT_EQ(data->map_coeff_phase[i], i == 0 ? 90.0F : 0.0F);
  }
  EXPECT_EQ(data->map_coeff[2], 30.0F);
}

TEST_F(Reflections, derivedValuesFollowCellAndSymmetry) {
  MtzMaker file(half_sphere(3, 3, 3));
  file.add("F", 'F', {});
  ASSERT_TRUE(build(file, "FOBS=F").ok);
  const qxrefdata* data = qx_get_qxrefdata();
  for (std::int32_t i = 0; i < data->nreflections; ++i) {
    const int h = data->h[i];
    const int k = data->k[i];
    const int l = data->l[i];
    const double s = std::hypot(h / 10.0, k / 20.0, l / 30.0);
    ASSERT_NEAR(data->s_length[i], s, 1e-12);
    ASSERT_NEAR(data->s[i][1], k / 20.0, 1e-12);
    // P 21 21 21: reflections with a zero index are centric, axial ones have epsilon 2.
    ASSERT_EQ(data->centric[i], h * k * l == 0 ? 1 : 0);
    const int zeros = (h == 0) + (k == 0) + (l == 0);
    ASSERT_EQ(data->epsilon[i], zeros == 2 ? 2 : 1);
  }
  EXPECT_NEAR(data->s_max, std::hypot(0.3, 0.15, 0.1), 1e-12);
  EXPECT_NEAR(data->s_min, 1 / 30.0, 1e-12);
  EXPECT_NEAR(qx_get_qxresol()->low, 30.0, 1e-9);
}

TEST_F(Reflections, aSecondCheckKeepsTheExtremesAndNarrowerLimitsBind) {
  MtzMaker file(half_sphere(3, 4, 5));
  file.add("F", 'F', {});
  ASSERT_TRUE(build(file, "FOBS=F", "reso 1 50\n").ok);
  const std::int32_t all = qx_get_qxrefdata()->nreflections;
  const double megabytes = qx_get_xmalloc_memory_size();
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(section("xcry\nxend\n").ok);
    EXPECT_EQ(qx_get_qxrefdata()->nreflections, all);
    EXPECT_EQ(qx_get_xmalloc_memory_size(), megabytes);
  }
  const SectionResult narrow = section("xcry\nreso 5 50\nxend\n");
  ASSERT_TRUE(narrow.ok);
  EXPECT_LT(qx_get_qxrefdata()->nreflections, all);
  EXPECT_NE(narrow.output.find("High resolution :    5.000\n"), std::string::npos);
  EXPECT_NE(qx_get_qxrefdata()->weight, nullptr);
}

TEST_F(Reflections, cutsOfTheSectionReject) {
  MtzMaker file({{1, 0, 0}, {2, 0, 0}, {3, 0, 0}});
  file.add("F", 'F', {1, 20, 300}).add("S", 'Q', {1, 1, 1});
  file.add("I", 'J', {1, 20, 30}).add("SI", 'Q', {1, 1, 15});
  const std::string both = "FOBS=F SIGF=S IOBS=I SIGI=SI";
  const std::pair<const char*, int> cases[] = {
      {"reject amplitude sigcut 2\n", 2},           {"reject amplitude minimum 2 sigcut 21\n", 1},
      {"reject amplitude rmscut 1.5\n", 2},         {"reject intensity sigcut 3\n", 1},
      {"reject intensity sigcut -3 rmscut 0\n", 3}, {"reject nothing sigcut 3\n", 3}};
  for (const auto& [command, kept] : cases) {
    ASSERT_EQ(qx_create_quorix(), ok);
    const SectionResult run = build(file, both, command);
    ASSERT_TRUE(run.ok) << run.output;
    EXPECT_EQ(qx_get_qxrefdata()->nreflections, kept) << command;
  }
}

TEST_F(Reflections, faultsOfTheFileEndTheSection) {
  MtzMaker file({{1, 0, 0}, {2, 0, 0}});
  file.add("F", 'F', {1, 2});
  const auto report_of = [&](const MtzMaker& made, const std::string& coids,
                             const std::string& more) {
    const SectionResult run = build(made, coids, more);
    EXPECT_FALSE(run.ok);
    EXPECT_EQ(qx_exist_quorix(), 0);
    EXPECT_EQ(qx_create_quorix(), ok);
    return run.output;
  };
  EXPECT_NE(report_of(file, "FOBS=F", "reso 1 2\n").find("\n There is no reflection survived. \n"),
            std::string::npos);
  EXPECT_NE(report_of(MtzMaker({}), "FOBS=F", "").find(" There is no reflection survived. "),
            std::string::npos);
  EXPECT_NE(report_of(file, "FOBS", "").find("Not a valid definion for MTZ column: \n"),
            std::string::npos);
  EXPECT_NE(report_of(file, "FOBS=F K=KK", "").find(" mtz does not have \"K\" column defined.\n"),
            std::string::npos);
  for (const float index : {missing, 1048577.0F, -INFINITY}) {
    MtzMaker broken = file;
    broken.columns[2].values[1] = index;
    EXPECT_NE(report_of(broken, "FOBS=F", "").find(" is a broken mtz format file \n"),
              std::string::npos);
  }
}

TEST_F(Reflections, aSetOutsideTheContainerIsReadAndBuiltTheSame) {
  MtzMaker file({{1, 0, 0}, {0, 0, 0}, {2, 0, 0}});
  file.add("F", 'F', {1, 2, 3}).add("P", 'P', {10, 20, 30});
  ASSERT_TRUE(section("xcry\nspgname P1\ncell 10 10 10\nxend\n").ok);
  write_file(scratch_.file("own.mtz"), file.bytes());
  qxrefdata* own = qx_new_qxrefdata_obj();
  ASSERT_EQ(qx_read_refdata_mtz_file_obj(own, scratch_.file("own.mtz").c_str()), ok);
  own->format = mtz_format;
  own->selected[coid_map_coeffa] = static_cast<char*>(xmalloc(2, "test"));
  std::strcpy(own->selected[coid_map_coeffa], "F");
  (void)captured([&] { EXPECT_EQ(qx_build_qxrefdata(own, qx_get_qxrefreject(), 0), ok); });
  EXPECT_EQ(own->nreflections, 2);
  EXPECT_EQ(own->map_coeff_amplitude[1], 3.0F);
  EXPECT_EQ(qx_get_qxrefdata()->nreflections, 0);
  EXPECT_EQ(qx_delete_qxrefdata_obj(own), ok);
}

TEST_F(Reflections, theViewSaysWhatIsThereAndNeverReports) {
  qx_reflection_view view;
  EXPECT_EQ(captured([&] { EXPECT_EQ(qx_get_reflection_view(&view), 0); }), "");
  ASSERT_TRUE(section("xcry\nspgname P1\ncell 10 10 10\nxend\n").ok);
  ASSERT_EQ(qx_get_reflection_view(&view), 1);
  EXPECT_EQ(view.n, 0);
  EXPECT_EQ(view.format, 0);
}

struct MissingObject {
  Status (*run)();
  const char* report;
};

TEST_F(Reflections, missingObjectsAreReported) {
  const MissingObject cases[] = {
      {qx_set_refdata_s, "\nqx_set_refdata_s():\n refdata object has not been created yet\n"},
      {qx_set_centric,
       "\nqx_set_centric():\n The reflection data object has not been created yet \n"},
      {qx_set_hklmax,
       "\nqx_set_hklmax():\n The reflection data object has not been created yet \n"},
      {qx_run_qxrefdata_checker,
       "\n qx_assign_qxrefdata_ptrs():\nreflection data object has not been created yet \n"}};
  for (const MissingObject& test : cases) {
    ASSERT_EQ(qx_create_quorix(), ok);
    ASSERT_EQ(qx_new_qxxcry(), ok);
    ASSERT_EQ(qx_delete_qxrefdata(), ok);
    EXPECT_EQ(captured([&] { EXPECT_EQ(test.run(), failed); }), test.report);
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
  ASSERT_EQ(qx_create_quorix(), ok);
  ASSERT_EQ(qx_new_qxxcry(), ok);
  ASSERT_EQ(qx_delete_qxrecicell(), ok);
  EXPECT_EQ(captured([&] { EXPECT_EQ(qx_set_refdata_s(), failed); }),
            "\nqx_set_refdata_s():\n qxrecicell object has not been created yet \n");
}

}  // namespace
}  // namespace qx::test
