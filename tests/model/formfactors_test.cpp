// Coefficient files, type tables, the user's settings and the pick-up of an atom's entry.
#include "model/formfactors.h"

#include "model/molsys.h"
#include "support/engine.h"
#include "support/random_model.h"

#include <quorix/engine.h>
#include <quorix/formfactors.h>

#include <cstdlib>
#include <filesystem>

namespace qx::test {
namespace {

const std::string five_two_types =
    "# five\n\n  2\nC\n 1 2 3 4 5\n 10 20 30 40\n# between\nFe\n"
    "1.5 2.5 3.5 4.5 5.5\n11 21 31 41\n";
const std::string two_one_type = "1\nC\n6.1 0.1\n7.5 0.5\n";

// Works in a directory of its own, with the four files there.
class FormFactors : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    std::filesystem::current_path(scratch_.path());
    for (const char* prefix : {"", "neu_"}) {
      write_file(prefix + std::string("atomformfactor5.dat"), five_two_types);
      write_file(prefix + std::string("atomformfactor2.dat"), two_one_type);
    }
  }
  void TearDown() override {
    std::filesystem::current_path(before_);
    Engine::TearDown();
  }
  // Index of a type, its number of Gaussians in `ngauss`.
  static std::int32_t pick(const char* type, std::int32_t& ngauss) {
    return qx_pickup_afrmfactbase_index(type, &ngauss);
  }
  static void expect_failure(Status (*run)(), const std::string& report) {
    const std::string output = captured([&] { EXPECT_EQ(run(), failed); });
    EXPECT_EQ(output, report);
    EXPECT_EQ(qx_exist_quorix(), 0);
  }

 private:
  std::filesystem::path before_ = std::filesystem::current_path();
  ScratchDirectory scratch_;
};

Status fill() { return qx_fill_atfrmfactbase(0); }

TEST_F(FormFactors, areReadFromTheWorkingDirectoryFirst) {
  ASSERT_EQ(fill(), ok);
  const atfrmfactbase& base = *qx_get_atfrmfactbase();
  EXPECT_EQ(base.natomformfactors, 3);
  EXPECT_EQ(base.ng5atfrmfact, 2);
  EXPECT_STREQ(base.names[0], "C");
  EXPECT_EQ(base.a[1][4], 5.5);
  EXPECT_EQ(base.b[1][3], 41.0);
  EXPECT_EQ(base.b[1][4], 0.0);
  EXPECT_EQ(base.a[2][0], static_cast<double>(6.1F));  // read in single precision
  EXPECT_EQ(base.a[2][2], 0.0);
  std::filesystem::remove("atomformfactor5.dat");
  ASSERT_EQ(fill(), ok);
  EXPECT_GT(base.ng5atfrmfact, 100);
  EXPECT_EQ(base.ng2atfrmfact, 1);
}

TEST_F(FormFactors, pickTwoGaussiansThenFiveThenTheElement) {
  ASSERT_EQ(fill(), ok);
  std::int32_t ngauss = 0;
  EXPECT_EQ(pick("C", ngauss), 2);
  EXPECT_EQ(ngauss, 2);
  for (const char* type : {"Fe", "Fe+3", "  Fe+2", "Fe1"}) {
    EXPECT_EQ(pick(type, ngauss), 1) << type;
    EXPECT_EQ(ngauss, 5);
  }
  EXPECT_EQ(pick("C+4", ngauss), 0);  // the element is looked for among five only
  const std::string output = captured([&] { EXPECT_EQ(pick("FE+2", ngauss), -1); });
  EXPECT_EQ(output,
            "\nqx_pickup_afrmfactbase_index():\n"
            "There is no atomic form factor data with ngauss=5 for atom type \"FE+2\" \n");
  EXPECT_EQ(qx_exist_quorix(), 0);
}

TEST_F(FormFactors, forcedTypesWinAndOutliveARefill) {
  write_file("neu_atomformfactor5.dat", "1\nC\n9 0 0 0 0\n1 1 1 1\n");
  ASSERT_TRUE(section("xform\natmf C 5 Fe 5\nxend\n").ok);
  std::int32_t ngauss = 0;
  EXPECT_EQ(pick("C", ngauss), 0);
  EXPECT_EQ(ngauss, 5);
  ASSERT_TRUE(section("xform\ndiff neutron\nxend\n").ok);
  EXPECT_EQ(qx_get_ioafrmfact()->diffraction, 1);
  EXPECT_EQ(pick("C", ngauss), 0);
  EXPECT_EQ(ngauss, 5);
  EXPECT_EQ(qx_get_atfrmfactbase()->a[0][0], 9.0);
  // What only the earlier files knew must not lead into the new arrays.
  const std::string output = captured([&] { EXPECT_EQ(pick("Fe", ngauss), -1); });
  EXPECT_NE(output.find("ngauss=5 for atom type \"Fe\""), std::string::npos);
}

TEST_F(FormFactors, aRefillTakesThePickUpWithIt) {
  set_up_crystal("P 1", "20 20 20 90 90 90", 4.0, 10);
  TestAtom iron;
  iron.fractional = {0.1, 0.2, 0.3};
  iron.atomic_number = 26;
  iron.charge = 3;
  set_up_model({iron, iron});
  ASSERT_EQ(qx_make_molformfact(), ok);
  EXPECT_EQ(qx_get_molformfact()->natom, 2);
  EXPECT_EQ(qx_get_molformfact()->index[1], 1);
  EXPECT_EQ(qx_get_molformfact()->ngauss[1], 5);
  ASSERT_EQ(fill(), ok);
  EXPECT_EQ(qx_get_molformfact()->natom, 0);
  ASSERT_EQ(qx_make_molformfact(), ok);
  ASSERT_EQ(qx_update_molformfact_with_waters(), ok);
  EXPECT_EQ(qx_get_molformfact()->index[0], 1);
}

TEST_F(FormFactors, tablesKeepFourCharactersAndTheNewestEntry) {
  qxatformfacthash* table = qx_get_qxatformfacthash5();
  std::int32_t value = -1;
  for (const char* key : {"Fe+2", "Fe+2x", "", "Fe+2"}) {
    ASSERT_EQ(qx_insert_qxatformfacthash_kv(table, key, ++value), ok);
  }
  EXPECT_EQ(qx_get_qxatformfacthash_kv(table, "Fe+2", &value), 1);
  EXPECT_EQ(value, 3);
  EXPECT_EQ(qx_get_qxatformfacthash_kv(table, "Fe+2x", &value), 0);
  EXPECT_EQ(qx_get_qxatformfacthash_kv(table, "fe+2", &value), 0);
  EXPECT_EQ(qx_get_qxatformfacthash_kv(table, "", &value), 1);
  EXPECT_EQ(value, 2);
  const std::string printed = captured([&] { qx_print_qxatformfacthash(table); });
  EXPECT_EQ(printed.find("        2   \n"), 0U) << printed;  // the empty key is in bucket 0
  EXPECT_NE(printed.find("Fe+2    3   \nFe+2    1   \nFe+2    0   \n"), std::string::npos);
  const std::string warned = captured([&] { qx_get_qxatformfacthash_kv(nullptr, "C", &value); });
  EXPECT_EQ(warned, "Warning: the hash table for atom form factor does not exist yet.\n");
  EXPECT_EQ(qx_exist_quorix(), 1);
}

TEST_F(FormFactors, arePrinted) {
  ASSERT_TRUE(section("xform\natmf Fe 5\nxend\n").ok);
  const std::string base = captured([] { qx_print_atfrmfactbase(); });
  EXPECT_EQ(base.find("natomformfactors 3\nng2atfrmfact 1 \nng5atfrmfact 2 \n"
                      "C\n0  0  5.000000 \n1.000000   2.000000   3.000000   4.000000\n"
                      "10.000000   20.000000   30.000000   40.000000\n"),
            0U)
      << base;
  EXPECT_NE(base.find("C\n0  0  0.000000 \n6.100000   0.100000\n7.500000   0.500000\n"),
            std::string::npos);
  EXPECT_EQ(captured([] { qx_print_ioafrmfact(); }),
            "B0: -99999.000000 \nDiffraction method: electron diffraction \n"
            "User input atom form factor \nThe hashtable has 1 elements \n  Fe    5   \n");
}

TEST_F(FormFactors, aShortFileLeavesEmptyEntries) {
  for (const char* text :
       {"3\nC\n1 2 3 4 5\n1 2 3 4\n", "3\nC\n1 2 3 4 5\n1 2 3 4\nZn+2 the ion\n", "3\nC\n1 2 3 4 5",
        // a name behind the last record is none: the record never comes
        "1\nC\n1 2 3 4 5\n1 2 3 4\nN\n"}) {
    write_file("atomformfactor5.dat", text);
    ASSERT_EQ(fill(), ok) << text;
    const atfrmfactbase& base = *qx_get_atfrmfactbase();
    EXPECT_EQ(base.a[0][4], 5.0);
    if (base.ng5atfrmfact == 3) {
      EXPECT_STREQ(base.names[2], "");
      EXPECT_TRUE(!*base.names[1] || std::string(base.names[1]) == "Zn+2");
    }
    EXPECT_STREQ(base.names[base.ng5atfrmfact], "C");
  }
}

struct Altered {
  const char* name;
  const char* file;
  const char* text;  // null: removed
  const char* report;
};

class AlteredFile : public FormFactors, public ::testing::WithParamInterface<Altered> {};

TEST_P(AlteredFile, isReported) {
  const Altered& row = GetParam();
  if (row.text) write_file(row.file, row.text);
  if (!row.text) std::filesystem::remove(row.file);
  if (!row.text) unsetenv("ZENVI_DATA");
  expect_failure(fill, row.report);
}

const char* const five = "atomformfactor5.dat";
const char* const two = "atomformfactor2.dat";

INSTANTIATE_TEST_SUITE_P(
    each, AlteredFile,
    ::testing::Values(
        Altered{"noFive", five, nullptr,
                "\nqx_get_database_file():\nZenvi does not know where to get file "
                "atomformfactor5.dat \nmake sure environmental variable HALDEN_EXEC has been "
                "defined \n\nqx_fill_atfrmfactbase():\nFailed to get atomformfactor5.dat\n"},
        Altered{"noTwo", two, nullptr,
                "\nqx_get_database_file():\nZenvi does not know where to get file "
                "atomformfactor2.dat \nmake sure environmental variable HALDEN_EXEC has been "
                "defined \n\nqx_fill_atfrmfactbase():\nFailed to get atomformfactor2.dat \n"},
        Altered{"empty", five, " # nothing\n\n",
                "\nqx_fill_atfrmfactbase():\nFailed to read file atomformfactor5.dat\n"},
        Altered{"noCount", two, "C\n1 2\n3 4\n",
                "\nqx_fill_atfrmfactbase():\nFailed to read file atomformfactor2.dat\n"},
        Altered{"countOfNone", five, "0\n",
                "\nqx_fill_atfrmfactbase():\nnumber of atom form factors defined "
                "atomformfactor5.dat is wrong: 0\n"},
        Altered{"absurdCount", two, "2000000000\n",
                "\nqx_fill_atfrmfactbase():\nnumber of atom form factors defined "
                "atomformfactor2.dat is wrong: 2000000000\n"},
        Altered{"fourOfFive", five, "1\nC\n1 2 3 4\n1 2 3 4\n",
                "\nqx_fill_atfrmfactbase():\nFailed to get data (a-factor) from atom form factor "
                "file atomformfactor5.dat\nfor line \"1 2 3 4\" \n"},
        Altered{"wordsForNumbers", two, "1\nC\n1 2\n3 x\n",
                "\nqx_fill_atfrmfactbase():\nFailed to get data (b-factor) from atom form factor "
                "file atomformfactor2.dat\nfor line \"3 x\" \n"},
        Altered{"oneTooManyOfFive", five, "1\nC\n1 2 3 4 5\n1 2 3 4\nN\n1 2 3 4 5\n1 2 3 4\n",
                "\nqx_fill_atfrmfactbase():\nThere are more atom form factors specified in file "
                "atomformfactor5.dat than declared as 1\n"},
        Altered{"oneTooManyOfTwo", two, "1\nC\n1 2\n1 2\nN\n1 2\n1 2\n",
                "\nqx_fill_atfrmfactbase():\nThere are more atom form factors specified in file "
                "atomformfactor2.dat than declared as 1\n"},
        Altered{"faultInTheSurplus", two, "1\nC\n1 2\n1 2\nN\n1\n1 2\n",
                "\nqx_fill_atfrmfactbase():\nFailed to get data (a-factor) from atom form factor "
                "file atomformfactor2.dat\nfor line \"1\" \n"}),
    [](const auto& row) { return std::string(row.param.name); });

struct Failure {
  const char* name;
  Status (*run)();
  const char* report;
};

class FormFactorFailure : public FormFactors, public ::testing::WithParamInterface<Failure> {};

TEST_P(FormFactorFailure, isReported) { expect_failure(GetParam().run, GetParam().report); }

Status run_text(const char* text) { return run_section_text(text) ? ok : failed; }

INSTANTIATE_TEST_SUITE_P(
    each, FormFactorFailure,
    ::testing::Values(
        Failure{"noWord", [] { return run_text("xform\n"); },
                "\nqx_ffac_ctrl():\nFailed to get quorix command.\n"},
        Failure{"unknownWord", [] { return run_text("xform\nwarp\n"); },
                "\nqx_ffac_ctrl():\n*** Unknow xform task: \"WARP\" ****\n"},
        Failure{"unknownRadiation", [] { return run_text("xform\ndiff proton 3\n"); },
                "\nqx_ffac_ctrl():\nInvalid specification: proton 3 for diff.\n"},
        Failure{"threeGaussians", [] { return run_text("xform\natmf C 3\n"); },
                "\nqx_insert_ioafrmfact_aff():\n"
                "Invalid number of gaussians for atom form factor: 3 \n"},
        Failure{"typeNotInTheTable", [] { return run_text("xform\natmf C 5 Fe 2\n"); },
                "\nqx_insert_ioafrmfact_aff():\n"
                "There is no atom form factor data with ngauss=2 for atom type Fe \n"},
        Failure{"badMethod", [] { return qx_fill_atfrmfactbase(2); },
                "\nqx_fill_atfrmfactbase():\n"
                "diffraction_method is not a valid value, should be 0 or 1 \n"},
        Failure{"noBase",
                [] {
                  (void)qx_set_atfrmfactbase(nullptr);
                  return qx_fill_atfrmfactbase(0);
                },
                "\nqx_fill_atfrmfactbase():\natomformfactorbase object has been defined yet.\n"},
        Failure{"noTable",
                [] {
                  (void)qx_set_qxatformfacthash2(nullptr);
                  return qx_fill_atfrmfactbase(0);
                },
                "\nqx_fill_atfrmfactbase():\nqxatformfact2 object has not been created yet.\n"},
        Failure{"pickUpWithoutTable",
                [] {
                  (void)qx_set_qxatformfacthash5(nullptr);
                  std::int32_t n = 0;
                  return qx_pickup_afrmfactbase_index("C", &n) < 0 ? failed : ok;
                },
                "\nqx_pickup_afrmfactbase_index():\nqxatformfact5 has not been created yet \n"},
        Failure{"noSettings",
                [] {
                  (void)qx_set_ioafrmfact(nullptr);
                  return qx_set_ioafrmfact_diffraction(1);
                },
                "\nqx_set_ioafrmfact_b0():\nioafrmfact object has not been created yet \n"},
        Failure{"insertIntoNothing", [] { return qx_insert_qxatformfacthash_kv(nullptr, "C", 1); },
                "\nqx_insert_qxatformfacthash_kv():\n"
                "the hash table for atom form factor does not exist yet.\n"},
        Failure{"noSystem", [] { return qx_make_molformfact(); },
                "\nqx_make_molformfact():\nmolsys object has not been created yet \n"},
        Failure{"noSystemForWaters", [] { return qx_update_molformfact_with_waters(); },
                "\nqx_update_molformfact_with_waters():\nmolsys object does not exist yet. \n"}),
    [](const auto& row) { return std::string(row.param.name); });

// The shipped files: every element of the two-Gaussian one is in the five-Gaussian one, and at
// s = 0 the factor is the number of electrons.
TEST_F(Engine, shippedFilesAreConsistent) {
  ASSERT_EQ(qx_fill_atfrmfactbase(0), ok);
  const atfrmfactbase& base = *qx_get_atfrmfactbase();
  const auto at_zero = [&](std::int32_t i) {
    double sum = 0.0;
    for (const double a : base.a[i]) sum += a;
    return sum;
  };
  for (std::int32_t i = base.ng5atfrmfact; i < base.natomformfactors; ++i) {
    std::int32_t index = -1;
    ASSERT_EQ(qx_get_qxatformfacthash_kv(qx_get_qxatformfacthash5(), base.names[i], &index), 1);
    EXPECT_NEAR(at_zero(i), at_zero(index), 0.004 * at_zero(index)) << base.names[i];
  }
  const std::pair<const char*, double> electrons[] = {
      {"H", 1}, {"C", 6}, {"O", 8}, {"Fe", 26}, {"Fe+3", 23}, {"O-1", 9}, {"U", 92}};
  for (const auto& [type, count] : electrons) {
    std::int32_t index = -1;
    ASSERT_EQ(qx_get_qxatformfacthash_kv(qx_get_qxatformfacthash5(), type, &index), 1) << type;
    EXPECT_NEAR(at_zero(index), count, 0.05) << type;
  }
}

}  // namespace
}  // namespace qx::test
