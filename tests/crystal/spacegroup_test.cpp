#include "crystal/spacegroup.h"

#include "core/memory_system.h"
#include "crystal/asu.h"
#include "support/engine.h"

#include <quorix/asu.h>
#include <quorix/crystal.h>

#include <cmath>
#include <cstdlib>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>

namespace qx::test {
namespace {

class SpaceGroup : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    ASSERT_EQ(qx_new_qxxcry(), ok);
  }
  static const qxspg& select(const char* name) {
    EXPECT_EQ(qx_new_qxspg(), ok);
    EXPECT_EQ(qx_set_qxspg_spgname(name), ok);
    EXPECT_EQ(qx_run_qxspg_checker(), ok);
    return *qx_get_qxspg();
  }
  static std::vector<int> divisors(const Divisors& d) { return {d.values, d.values + d.count}; }
};

TEST_F(SpaceGroup, spellingsOfFilesSelectTheSameGroup) {
  const std::pair<const char*, const char*> cases[] = {
      {"P212121", "P212121"},
      {"'P 21 21 21'", "P212121"},
      {"p 2 1 2 1 2 1", "P212121"},
      {"P43212", "P43212"},
      {"P 1 21 1", "P21"},
      {"P21", "P21"},
      {"P1211", "P21"},
      {"C2", "C2"},
      {"C121", "C2"},
      {"C 1 2 1", "C2"},
      {"H3", "H3"},
      {"H 3", "H3"},
      {"R 3", "H3"},
      {"R3", "H3"},
      {"R 3 :H", "H3"},
      {"R3:H", "H3"},
      {"R 3 :R", "R3:R"},
      {"R3:R", "R3:R"},
      {"R 3 2", "H32"},
      {"H 3 2", "H32"},
      {"I23", "I23"},
      {"P 22 121", "P22121"},
      {"P 21 2 21", "P21221"},
      {"P 1 1 21", "P1121"},
      {"B 2", "B112"},
      {"A 1 2 1", "A2"},
      {"I2", "I2"},
      {"I 41 3 2", "I4132"},
      {"P n n n :2", "Pnnn:2"},
      {"P n n n", "Pnnn:1"},
      {"F d 3 m", "Fd-3m:1"},
      {"C m c e", "Cmca"},
      {"P 2_1 2_1 2_1", "P212121"},
      {"P2(1)2(1)2(1)", "P212121"},
      {"P 4(3) 2(1) 2", "P43212"},
      {"P6_122", "P6122"},
      {"C 2 2 21 (a)", "C2221a"},  // parentheses of another kind
      {"19", "P212121"},
      {"5", "C2"},
      {" 146 ", "H3"},
      {"230", "Ia-3d"},
  };
  for (const auto& [spelling, short_name] : cases) {
    EXPECT_STREQ(select(spelling).short_name, short_name) << spelling;
  }
}

TEST_F(SpaceGroup, centringMultipliesEveryOperator) {
  const qxspg& c2 = select("C 1 2 1");
  ASSERT_EQ(c2.nops, 4);
  EXPECT_EQ(select("F 4 3 2").nops, 96);
  const qxspg& again = select("C 1 2 1");
  // The second half is the first moved by (1/2, 1/2, 0).
  for (int op = 0; op < 2; ++op) {
    for (int i = 0; i < 16; ++i) {
      double moved = again.ops[op][i];
      if (i == 3 || i == 7) moved = std::fmod(moved + 0.5, 1.0);
      EXPECT_DOUBLE_EQ(again.ops[op + 2][i], moved) << op << " " << i;
    }
  }
}

TEST_F(SpaceGroup, numbersSelectTheStandardSetting) {
  const std::pair<int, const char*> cases[] = {
      {1, "P 1"},      {5, "C 1 2 1"},   {18, "P 21 21 2"}, {3018, "P 2 21 21"},
      {146, "R 3 :H"}, {1146, "R 3 :R"}, {230, "I a -3 d"}};
  for (const auto& [number, name] : cases) {
    ASSERT_EQ(qx_new_qxspg(), ok);
    qx_get_qxspg()->spg_id = number;
    ASSERT_EQ(qx_run_qxspg_checker(), ok);
    EXPECT_STREQ(qx_get_qxspg()->full_name, name);
    EXPECT_EQ(qx_get_qxspg()->spg_id, number);
  }
}

TEST_F(SpaceGroup, aCompleteGroupStaysAtASecondCheck) {
  select("P 21 21 21");
  ASSERT_EQ(qx_set_qxspg_spgname("P 1"), ok);
  ASSERT_EQ(qx_run_qxspg_checker(), ok);
  EXPECT_EQ(qx_get_qxspg()->nops, 4);
}

TEST_F(SpaceGroup, screwAxesCentringAndLimitsAskDivisorsOfTheGrid) {
  const qxspg& spg = select("P 61 2 2");
  EXPECT_TRUE(divisors(spg.translation_divisors[0]).empty());
  EXPECT_EQ(divisors(spg.translation_divisors[2]), (std::vector<int>{6, 3, 2}));
  EXPECT_EQ(divisors(spg.asu_divisors[2]), (std::vector<int>{12}));
  EXPECT_NEAR(qx_get_qxasu()->high[2], 1.0 / 12 + 1e-5, 1e-7);
  EXPECT_EQ(qx_get_qxasu()->low[2], 0);
  EXPECT_EQ(select("C 2").primitive.count, 2);
  EXPECT_EQ(divisors(qx_get_qxspg()->translation_divisors[0]), (std::vector<int>{2}));
}

TEST_F(SpaceGroup, zonesOfKnownGroups) {
  const qxspg& p1 = select("P 1");
  for (int zone = 0; zone < 12; ++zone) {
    EXPECT_EQ(p1.epsilon_zones[zone], 0);
    EXPECT_EQ(p1.centric_zones[zone], -1);
  }
  EXPECT_EQ(p1.epsilon_zones[12], 1);
  select("P 21 21 21");
  EXPECT_EQ(qx_calc_epsilon_ref(4, 0, 0), 2);
  EXPECT_EQ(qx_calc_epsilon_ref(1, 2, 3), 1);
  EXPECT_EQ(qx_calc_centric_ref(0, 2, 3), 1);
  EXPECT_EQ(qx_calc_centric_ref(1, 2, 3), 0);
  EXPECT_EQ(qx_calc_epsilon_ref(7, -1, 1000), 2);  // Kept: the packed conditions reach to 499
  select("P -1");
  EXPECT_EQ(qx_calc_centric_ref(1, 2, 3), 1);
}

TEST_F(SpaceGroup, operatorsSelectTheRecordThatHasThemAll) {
  for (const char* text : {"x,y,z", "x+1/2,1/2-y,-z", "0.5-x,-y,z+0.5", "-x,y-1/2,3/2-z"}) {
    ASSERT_EQ(qx_insert_qxspg_symop_prim(text), ok);
  }
  ASSERT_EQ(qx_insert_qxspg_symop_cent("x,y,z"), ok);
  ASSERT_EQ(qx_run_qxspg_checker(), ok);
  EXPECT_STREQ(qx_get_qxspg()->short_name, "P212121");
  EXPECT_EQ(qx_get_qxspg()->spg_id, 19);
}

// A subset of a record's operators is another group: it must not pass for that record.
TEST_F(SpaceGroup, operatorsOfNoRecordAreTheGroup) {
  for (const char* text : {"x,y,z", "-x+1/5,y+1/2,-z"})
    ASSERT_EQ(qx_insert_qxspg_symop_prim(text), ok);
  ASSERT_EQ(qx_insert_qxspg_symop_cent("x,y,z"), ok);
  const std::string output = captured([] { ASSERT_EQ(qx_run_qxspg_checker(), ok); });
  EXPECT_NE(output.find(" Failed to get proper space group. \n The symmetry information is "
                        "supplied from input. \n"),
            std::string::npos)
      << output;
  EXPECT_EQ(output.find("WARNING"), std::string::npos) << output;
  const qxspg& spg = *qx_get_qxspg();
  EXPECT_EQ(spg.nops, 2);
  EXPECT_EQ(spg.spg_id, 0);
  EXPECT_EQ(divisors(spg.translation_divisors[0]), (std::vector<int>{5}));
  EXPECT_EQ(qx_get_qxasu()->high[0], 1);
  char name[10];
  std::int32_t length = 0;
  ASSERT_EQ(qx_get_space_group_name_(name, &length), ok);
  EXPECT_EQ(std::string(name, 10), "          ");
}

TEST_F(SpaceGroup, aFullListOfMatricesIsTakenApart) {
  select("C 2 2 21");
  std::vector<std::array<double, 16>> full(8);
  for (std::size_t i = 0; i < 8; ++i) std::copy_n(qx_get_qxspg()->ops[i], 16, full[7 - i].data());
  ASSERT_EQ(qx_new_qxspg(), ok);
  const auto* mats = reinterpret_cast<const double(*)[16]>(full.data());
  ASSERT_EQ(qx_set_spg_guts("spgbase.dat", 0, nullptr, 8, mats, nullptr), ok);
  EXPECT_STREQ(qx_get_qxspg()->short_name, "C2221");
  EXPECT_EQ(qx_get_qxspg()->nops, 8);
}

TEST_F(SpaceGroup, namesAreGivenToModelRoutinesInTenCharacters) {
  char name[64];
  std::int32_t length = 0;
  select("P 43 21 2");
  ASSERT_EQ(qx_get_space_group_name_(name, &length), ok);
  EXPECT_EQ(std::string(name, 10), "P43212    ");
  EXPECT_EQ(length, 10);
  std::int32_t z = 7;
  qx_get_z_value_(&z);
  EXPECT_EQ(z, 0);
}

TEST_F(SpaceGroup, printsWhatItHolds) {
  select("P 1");
  const std::string output = captured([] { EXPECT_EQ(qx_print_qxspg(), ok); });
  const std::string rows =
      "1.000000 0.000000 0.000000 0.000000 \n0.000000 1.000000 0.000000 0.000000 \n"
      "0.000000 0.000000 1.000000 0.000000 \n0.000000 0.000000 0.000000 1.000000 \n";
  EXPECT_EQ(
      output,
      "spg_id = 1\nshort_spg_name = P1\nfull_spg_name = P 1\nshort_pg_name = 1\n"
      "crystal_system_name = triclinic\npatterson_id = 0\npatterson_name = P -1\nlaue_name = -1\n"
      "xyzasu_des = 0<=x<1; 0<=y<1; 0<=z<1\nhklasu_des = l>0 or (l=0 and (h>0 or (h=0 and k>=0)))\n"
      "n_symm_opers_prim = 1\nsymm_oper_string_prim[0] = x,y,z\nMatrix:\n" +
          rows + "n_symm_opers_cent = 1\nsymm_oper_string_cent[0] = x,y,z\nMatrix:\n" + rows +
          "n_symm_opers= 1\nSymmetric operation matrix: \n" + rows + "Inverse matrix: \n" + rows);
}

struct BadChoice {
  const char* name;
  std::vector<const char*> primitive, centring;
  const char* report;
};

TEST_F(SpaceGroup, choicesThatCannotBeAreReported) {
  const BadChoice cases[] = {
      {nullptr, {}, {}, " Failed to set up space group of the system. \n"},
      {nullptr, {"x,y,z"}, {}, " Failed to set up space group of the system. \n"},
      {"P 7", {}, {}, " Failed to get proper space group. \n"},
      {"", {}, {}, " Failed to get proper space group. \n"},
      {nullptr,
       {"x,y,z", "-x+1/7,-y,z"},
       {"x,y,z"},
       "No grid holds the translations of the symmetry operator -x+1/7,-y,z\n"},
      {nullptr,
       {"x,y,z", "-x+1/0,-y,z"},
       {"x,y,z"},
       "No grid holds the translations of the symmetry operator -x+1/0,-y,z\n"},
      {nullptr, {"x,y,z"}, {"x,y"}, "Not a symmetry operator: x,y\n"},
  };
  for (const BadChoice& c : cases) {
    ASSERT_EQ(qx_create_quorix(), ok);
    ASSERT_EQ(qx_new_qxxcry(), ok);
    if (c.name) {
      ASSERT_EQ(qx_set_qxspg_spgname(c.name), ok);
    }
    for (const char* text : c.primitive) ASSERT_EQ(qx_insert_qxspg_symop_prim(text), ok);
    for (const char* text : c.centring) ASSERT_EQ(qx_insert_qxspg_symop_cent(text), ok);
    const auto before = qx_get_die_count();
    const std::string output = captured([] { EXPECT_EQ(qx_run_qxspg_checker(), failed); });
    EXPECT_NE(output.find(c.report), std::string::npos) << output;
    EXPECT_EQ(qx_get_die_count(), before + 1) << output;
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
}

TEST_F(SpaceGroup, manyUserOperatorsGrowTheirList) {
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(qx_insert_qxspg_symop_prim("x,y,z"), ok);
  ASSERT_EQ(qx_insert_qxspg_symop_cent("x,y,z"), ok);
  const std::string output = captured([] { EXPECT_EQ(qx_run_qxspg_checker(), failed); });
  EXPECT_NE(output.find("More than 1024 symmetry operators"), std::string::npos) << output;
}

TEST_F(SpaceGroup, aMissingDatabaseIsReported) {
  ScratchDirectory empty;
  setenv("ZENVI_DATA", empty.path().c_str(), 1);
  ASSERT_EQ(qx_set_qxspg_spgname("P 1"), ok);
  const std::string output = captured([] { EXPECT_EQ(qx_run_qxspg_checker(), failed); });
  EXPECT_NE(
      output.find(
          "Zenvi does not know where to get file spgbase.dat \nmake sure environmental variable "
          "HALDEN_EXEC has been defined \n"),
      std::string::npos)
      << output;
}

std::int64_t allocations_left = 0;

void* failing_allocator(std::size_t size) {
  return allocations_left-- > 0 ? std::malloc(size) : nullptr;
}

// Selection by name and by operators when memory runs out at any point.
TEST_F(SpaceGroup, everyFailedAllocationEndsTheRun) {
  for (const bool by_name : {true, false}) {
    Status status = failed;
    for (std::int64_t n = 0; status != ok; ++n) {
      ASSERT_LT(n, 1000);
      ASSERT_EQ(qx_create_quorix(), ok);
      ASSERT_EQ(qx_new_qxxcry(), ok);
      allocations_left = n;
      const SystemAllocator usual = set_system_allocator(failing_allocator);
      const auto run = [&] {
        if (by_name) {
          QX_TRY(qx_set_qxspg_spgname("C 2"));
        } else {
          QX_TRY(qx_insert_qxspg_symop_prim("x,y,z"));
          QX_TRY(qx_insert_qxspg_symop_prim("-x,y+1/5,-z"));
          QX_TRY(qx_insert_qxspg_symop_cent("x,y,z"));
        }
        return qx_run_qxspg_checker();
      };
      (void)captured([&] { status = run(); });
      set_system_allocator(usual);
      EXPECT_EQ(qx_exist_quorix(), status == ok ? 1 : 0) << n;
    }
  }
}

// ---- databases that somebody else wrote

constexpr const char* good_record_text =
    "spgid 4\nsspgname T1\nfspgname T 1\npgname 2\ncrysym Monoclinic\npatname P 1\nlaune 1\n"
    "xyzasu 0<=x<1; 1/4<=y<=3/4; 0<=z<1\nhklasu l>=0\nprimoper x,y,z\nprimoper "
    "-x,y+1/2,-z\ncentoper x,y,z\nendofdef\n";

std::string good_record() { return good_record_text; }

class ForeignDatabase : public SpaceGroup {
 protected:
  std::string select_from(const std::string& text, const char* name = "t1") {
    const std::string file = scratch_.file("groups.dat");
    write_file(file, text);
    return captured([&] { (void)qx_set_spg_by_spgname(file.c_str(), name); });
  }
  static std::string with(const std::string& from, const std::string& to) {
    std::string text = good_record();
    return text.replace(text.find(from), from.size(), to);
  }
  ScratchDirectory scratch_;
};

TEST_F(ForeignDatabase, isReadWithCommentsBlanksAndAnyCase) {
  EXPECT_EQ(select_from("# x\n\n  SPGID 9\n sspgname T1\n# not closed\n\t  SpgId 4  \nSSPGNAME 'T "
                        "1'\nxyzasu 0<=x<1;;1/4<=z<=3/4\n"
                        "crysym RHOMBO\ncrysym rhombohedral lattice\nprimoper x,y,z\ncentoper "
                        "x,y,z\n\nEndOfDef   \n"
                        "spgid 5\n",
                        "T1"),
            "\n qx_fill_spg():\n Not a standard crystal system: RHOMBO \n");
  ASSERT_EQ(qx_create_quorix(), ok);
  ASSERT_EQ(qx_new_qxxcry(), ok);
  EXPECT_EQ(
      select_from("  SPGID 9\n sspgname T1\n# not closed\n\t  SpgId 4  \nSSPGNAME 'T 1'\nxyzasu "
                  "0<=x<1;;1/4<=z<=3/4\n"
                  "crysym Rhombohedral lattice\nprimoper x,y,z\ncentoper x,y,z\n\nEndOfDef   \n",
                  "T1"),
      "");
  EXPECT_EQ(qx_get_qxspg()->spg_id, 4);
  EXPECT_EQ(qx_get_qxspg()->crystal_system, 5);
  EXPECT_EQ(qx_get_qxasu()->low[2], 0);
  EXPECT_NEAR(qx_get_qxasu()->high[2], 0.75001, 1e-7);
  EXPECT_EQ(divisors(qx_get_qxspg()->asu_divisors[2]), (std::vector<int>{4}));
}

// Where a record stood is remembered as long as the file is the same.
TEST_F(ForeignDatabase, isReadAnewWhenItHasChanged) {
  const std::string file = scratch_.file("groups.dat");
  const auto select = [&](const char* name) {
    EXPECT_EQ(qx_create_quorix(), ok);
    EXPECT_EQ(qx_new_qxxcry(), ok);
    (void)captured([&] { (void)qx_set_spg_by_spgname(file.c_str(), name); });
    return qx_exist_quorix() == 1 ? qx_get_qxspg()->spg_id : 0;
  };
  const std::string other =
      with("spgid 4\nsspgname T1\nfspgname T 1", "spgid 5\nsspgname T2\nfspgname T 2");
  for (const bool swapped : {false, true}) {
    write_file(file, swapped ? with("spgid 4", "spgid 8") + other : other + good_record());
    const timespec times[2] = {{0, UTIME_OMIT}, {1'000'000'000 + (swapped ? 1 : 0), 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(select("T1"), swapped ? 8 : 4);
    EXPECT_EQ(select("T2"), 5);
    EXPECT_NE(select("T3"), 5);
    EXPECT_EQ(select("T1"), swapped ? 8 : 4);
  }
}

TEST_F(ForeignDatabase, recordsThatCannotBeUsedAreReported) {
  std::string many = with("endofdef", "");
  for (int i = 0; i < 3000; ++i) many += "primoper -x,y+1/2,-z\n";
  std::string product = with("endofdef", "");
  for (int i = 0; i < 700; ++i) product += "centoper x,y,z\n";
  const std::pair<std::string, const char*> cases[] = {
      {"", " Failed to get proper space group. \n"},
      {good_record().substr(0, good_record().size() - 9), " Failed to get proper space group. \n"},
      {with("spgid 4", "spgid four"), " Failed to get space group number from line:\nspgid four\n"},
      {with("spgid 4", "spgid"), " Failed to get space group number from line:\nspgid\n"},
      {with("Monoclinic", "amorphous"), " Not a standard crystal system: amorphous \n"},
      {with("y+1/2", "y+1/7"),
       "No grid holds the translations of the symmetry operator -x,y+1/7,-z\n"},
      {with("y+1/2", "y+1/0"),
       "No grid holds the translations of the symmetry operator -x,y+1/0,-z\n"},
      {with("y+1/2", "y+1/1009"), "No grid holds the translations"},
      {with("y+1/2", "y+../2"), "Failed to get float value from"},
      {with("y+1/2", "y+" + std::string(5000, '9')), "Not a symmetry operator: -x,y+999"},
      {with("-x,y+1/2,-z", "-x,y+1/2"), "Not a symmetry operator: -x,y+1/2\n"},
      {with("3/4", "3/7"), "No grid holds the limits of the asymmetric unit:  1/4<=y<=3/7\n"},
      {with("3/4", "3/0"), "No grid holds the limits of the asymmetric unit"},
      {with("3/4", "3/1073741824"), "No grid holds the limits of the asymmetric unit"},
      {with("3/4", "9/4"), "Limits of the asymmetric unit outside the cell"},
      {with("3/4", "-3/4"), "Limits of the asymmetric unit outside the cell"},
      {with("centoper x,y,z\n", ""), " there are 0 central symmetry operations \n"},
      {with("primoper x,y,z\nprimoper -x,y+1/2,-z\n", ""),
       " there are 0 primitive symmetry operations \n"},
      {many + "endofdef\n", "More than 1024 symmetry operators"},
      {product + "endofdef\n", "More than 1024 symmetry operators"},
  };
  for (const auto& [text, report] : cases) {
    ASSERT_EQ(qx_create_quorix(), ok);
    ASSERT_EQ(qx_new_qxxcry(), ok);
    const auto before = qx_get_die_count();
    const std::string output = select_from(text);
    EXPECT_NE(output.find(report), std::string::npos) << report << " in " << output.substr(0, 300);
    EXPECT_EQ(qx_get_die_count(), before + 1) << output.substr(0, 300);
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
}

// Whatever the bytes are, selection ends, and either the group is there or the engine is gone.
TEST_F(ForeignDatabase, alteredFilesEndInAGroupOrAReport) {
  std::mt19937 random(11);
  const std::string letters = "0123456789/.+-,xyz<=; \nspgid\t\xff\x80#endof";
  for (int trial = 0; trial < 600; ++trial) {
    if (!qx_exist_quorix()) {
      ASSERT_EQ(qx_create_quorix(), ok);
      ASSERT_EQ(qx_new_qxxcry(), ok);
    }
    std::string text = good_record() + good_record();
    const auto changes = 1 + random() % 6;
    for (unsigned i = 0; i < changes; ++i)
      text[random() % text.size()] = letters[random() % letters.size()];
    if (trial % 5 == 0) text.resize(random() % text.size());
    ASSERT_EQ(qx_new_qxspg(), ok);
    const auto before = qx_get_die_count();
    const std::string output = select_from(text, trial % 2 ? "T1" : "T 1");
    const bool died = qx_get_die_count() != before;
    EXPECT_EQ(died, !output.empty()) << text << output;
    if (!died) {
      EXPECT_GT(qx_get_qxspg()->nops, 0);
    }
  }
}

}  // namespace
}  // namespace qx::test
