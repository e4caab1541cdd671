// The model as supplied, the system computed with, and the two sections that lead from one to the
// other.
#include "model/molsys.h"

#include "support/engine.h"

#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/formfactors.h>
#include <quorix/model.h>

#include <functional>
#include <vector>

namespace qx::test {
namespace {

// An atom as a caller hands it over; a tensor when u11 is set, else a B.
struct Given {
  int atomic_number;
  int charge = 0;
  double b = 10.0;
  double u11 = 0.0;
};

// One entry; x tells the atoms apart, occupancy is x / 100.
Status add_entry(const std::vector<Given>& atoms, double first_x) {
  std::vector<double> x, b, occupancy;
  std::vector<std::array<double, 6>> u;
  std::vector<std::int32_t> number, charge, further, index, ion;
  for (const Given& atom : atoms) {
    x.push_back(first_x + static_cast<double>(x.size()));
    occupancy.push_back(x.back() / 100);
    number.push_back(atom.atomic_number);
    charge.push_back(atom.charge);
    further.push_back(7 * static_cast<int>(x.back()));
    ion.push_back(atom.charge != 0);
    if (atom.u11 > 0.0) {
      index.push_back(~static_cast<std::int32_t>(u.size()));
      u.push_back({atom.u11, 0.2, 0.3, 0.04, 0.05, 0.06});
    } else {
      index.push_back(static_cast<std::int32_t>(b.size()));
      b.push_back(atom.b);
    }
  }
  return qx_add_xmodel_entry(
      static_cast<std::int32_t>(atoms.size()), x.data(), x.data(), x.data(), number.data(),
      charge.data(), further.data(), index.data(), static_cast<std::int32_t>(b.size()),
      static_cast<std::int32_t>(u.size()), b.data(), reinterpret_cast<const double(*)[6]>(u.data()),
      occupancy.data(), ion.data(), x.data());
}

// Two entries, each with B factors and tensors, hydrogens and an atom of no element between.
void add_two_entries() {
  ASSERT_EQ(add_entry({{6, 0, 11.0}, {1, 0, 12.0}, {7, 0, 0.0, 0.1}, {0}}, 1.0), ok);
  ASSERT_EQ(add_entry({{1, 0, 0.0, 0.9}, {26, 2, 0.0, 0.2}, {8, -1, 21.0}, {16, 0, 22.0}}, 5.0),
            ok);
}

using MolecularSystem = Engine;

TEST_F(MolecularSystem, numbersTwoEntriesAcrossTheirLists) {
  add_two_entries();
  ASSERT_EQ(qx_create_molsys(0), ok);
  const molsys& system = *qx_get_molsys();
  EXPECT_EQ(system.natom, 5);
  EXPECT_EQ(system.nfixed, 5);
  EXPECT_EQ(system.full.atoms.natom, 8);
  const std::vector<std::int32_t> to_full = {0, 2, 5, 6, 7};
  const std::vector<std::int32_t> to_computed = {0, -1, 1, -1, -1, 2, 3, 4};
  EXPECT_EQ(std::vector<std::int32_t>(qx_get_molsys_omapper(), qx_get_molsys_omapper() + 5),
            to_full);
  EXPECT_EQ(std::vector<std::int32_t>(qx_get_molsys_imapper(), qx_get_molsys_imapper() + 8),
            to_computed);
  const char* types[] = {"C", "N", "Fe+2", "O-1", "S"};
  const qxatomb& b = *qx_get_qxatomb();
  EXPECT_EQ(b.niso, 3);
  EXPECT_EQ(b.naniso, 2);
  const std::int32_t index[] = {0, ~0, ~1, 1, 2};
  for (int i = 0; i < 5; ++i) {
    const auto at = static_cast<std::size_t>(i);
    EXPECT_STREQ(system.info.type[i], types[at]);
    EXPECT_EQ(b.index[i], index[at]) << i;
    EXPECT_EQ(b.fixed[i], 0);
    EXPECT_EQ(system.x[i], 1.0 + to_full[at]);
    EXPECT_EQ(qx_get_qxatomocc()->occupancy[i], (1.0 + to_full[at]) / 100);
    EXPECT_EQ(system.full.atoms.further[to_full[at]], 7 * (1 + to_full[at]));
    EXPECT_EQ(system.info.n_or_o[i], i == 1 || i == 3);
    EXPECT_EQ(system.info.neither_n_nor_o[i] + system.info.n_or_o[i], 1);
  }
  EXPECT_EQ(b.b_iso[0], 11.0);
  EXPECT_EQ(b.b_iso[1], 21.0);
  EXPECT_EQ(b.b_iso[2], 22.0);
  EXPECT_EQ(b.u_aniso[0][0], 0.1);
  EXPECT_EQ(b.u_aniso[1][0], 0.2);
  EXPECT_EQ(b.u_aniso[1][5], 0.06);
}

TEST_F(MolecularSystem, takesHydrogensOnlyWhenAsked) {
  struct Case {
    const char* command;
    std::int32_t natom;
  };
  for (const Case& row : {Case{"", 5}, Case{"hydr yes\n", 7}, Case{"HYDROGENS No\n", 5},
                          Case{"hydr yes\nhydr maybe\nanis whatever 3\n", 7}, Case{"hydr\n", 5}}) {
    ASSERT_TRUE(section("xmod\nfoo bar\nread pdb file \"no such file\"\nxend\n").ok);
    add_two_entries();
    const SectionResult result = section(std::string("xmol\n") + row.command + "xend\n");
    ASSERT_TRUE(result.ok) << result.output;
    EXPECT_EQ(qx_get_molsys()->natom, row.natom) << row.command;
  }
}

TEST_F(MolecularSystem, aRebuildReplacesEverythingButTheBlurring) {
  add_two_entries();
  ASSERT_EQ(qx_create_molsys(1), ok);
  ASSERT_EQ(qx_set_qxatomb_B0(33.0), ok);
  ASSERT_TRUE(section("xmod\nxend\n").ok);
  std::int32_t natom = -1;
  EXPECT_EQ(qx_get_xmodel_natom(&natom), ok);
  EXPECT_EQ(natom, 0);
  ASSERT_EQ(add_entry({{8, 0, 5.0}}, 3.0), ok);
  ASSERT_TRUE(section("xmol\nxend\n").ok);
  EXPECT_EQ(qx_get_molsys()->natom, 1);
  EXPECT_EQ(qx_get_qxatomb()->b0, 33.0);
  EXPECT_EQ(qx_get_qxatomb()->naniso, 0);
  EXPECT_EQ(qx_get_qxatomb()->u_aniso, nullptr);
  EXPECT_EQ(qx_get_qxatomb()->b_iso[0], 5.0);
  EXPECT_EQ(qx_get_qxatomocc()->occupancy[0], 0.03);
}

TEST_F(MolecularSystem, occupanciesGoBackToTheFullSystem) {
  add_two_entries();
  ASSERT_EQ(qx_create_molsys(0), ok);
  const double values[] = {0.1, 0.2, 0.3, 0.4, 0.5};
  ASSERT_EQ(qx_upload_qxatomocc_q(values), ok);
  double back[5] = {};
  ASSERT_EQ(qx_download_qxatomocc_q(back), ok);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(back[i], values[i]);
    EXPECT_EQ(qx_get_molsys()->full.atoms.occupancy[qx_get_molsys_omapper()[i]], values[i]);
  }
  EXPECT_EQ(qx_get_molsys()->full.atoms.occupancy[1], 0.02);
}

TEST_F(MolecularSystem, theBlurringOfTheTransformSectionReachesBothObjects) {
  ASSERT_TRUE(section("xcry\nspgname P1\ncell 10 10 10\nreso 3 50\nxend\n").ok);
  ASSERT_TRUE(section("xgrid\nfrac 0.33\nxend\n").ok);
  ASSERT_TRUE(section("xfft\nB0 27.5\nB0 -3\nxend\n").ok);
  EXPECT_EQ(qx_get_qxatomb()->b0, 27.5);
  EXPECT_NE(captured([] { qx_print_ioafrmfact(); }).find("B0: 27.500000 \n"), std::string::npos);
}

struct Failure {
  const char* name;
  std::function<void()> run;
  const char* report;
};

class MolecularSystemFailure : public Engine, public ::testing::WithParamInterface<Failure> {};

TEST_P(MolecularSystemFailure, isReportedAndEndsTheEngine) {
  const std::string output = captured(GetParam().run);
  EXPECT_NE(output.find(GetParam().report), std::string::npos) << output;
  EXPECT_EQ(qx_exist_quorix(), 0);
}

std::function<void()> text(const char* section) {
  return [section] { run_section_text(section); };
}

template <class... Arguments>
std::function<void()> fails(Status (*run)(Arguments...), Arguments... arguments) {
  return [=] { EXPECT_EQ(run(arguments...), failed); };
}

double ten[10];
std::int32_t one_count;

INSTANTIATE_TEST_SUITE_P(
    each, MolecularSystemFailure,
    ::testing::Values(
        Failure{"modelWithoutEnd", text("xmod\nfoo\n"),
                "\nqx_xmod_ctrl():\nFailed to get quorix command. \n"},
        Failure{"systemWithoutEnd", text("xmol\n"),
                "\nqx_xmol_ctrl():\n Failed to get quorix command. \n"},
        Failure{"readNothing", text("xmod\nread\n"),
                "\nqx_xmod_ctrl():\nFailed to get read keyword [trv | pdb] \n"},
        Failure{"readCif", text("xmod\nread cif file a\n"),
                "\nqx_xmod_ctrl():\nUnknow model format \"cif\" \nQuorix supports: trevan and pdb "
                "structure format\n"},
        Failure{"readNoFile", text("xmod\nread TRV\n"),
                "\nqx_xmod_ctrl():\nFailed to get model file \n"},
        Failure{"unknownWord", text("xmol\nwater\n"),
                "\nqx_xmol_ctrl():\n *** Unknow xmol task: WATE *** \n"},
        Failure{"onlyHydrogens",
                [] {
                  EXPECT_EQ(add_entry({{1}, {0}}, 0.0), ok);
                  EXPECT_EQ(qx_create_molsys(0), failed);
                },
                "\n There is no atom defined in the reflection system. \n"},
        Failure{"onlyUnknownElements",
                [] {
                  EXPECT_EQ(add_entry({{0}}, 0.0), ok);
                  EXPECT_EQ(qx_create_molsys(1), failed);
                },
                "\n There is no atom defined in the reflection system. \n"},
        Failure{"typeTooLong",
                [] {
                  EXPECT_EQ(add_entry({{26, -1000}}, 0.0), ok);
                  EXPECT_EQ(qx_create_molsys(0), failed);
                },
                "Invalid charge -1000 of an atom of element Fe\n"},
        Failure{"indexBeyondItsList",
                [] {
                  const std::int32_t number = 6;
                  const std::int32_t index = 0;
                  EXPECT_EQ(qx_add_xmodel_entry(1, ten, ten, ten, &number, &number, &number, &index,
                                                0, 0, nullptr, nullptr, ten, &number, ten),
                            failed);
                },
                "\nqx_add_xmodel_entry():\n"},
        Failure{"atomCounts",
                [] {
                  EXPECT_EQ(add_entry({{6}, {7}}, 0.0), ok);
                  EXPECT_EQ(qx_create_xmodel(3, ten, ten, ten, nullptr, nullptr, nullptr, nullptr,
                                             2, 0, ten, nullptr, ten, nullptr, ten),
                            failed);
                },
                "\nqx_create_xmodel():\nNumber of atoms is not consistent 2 3\n"},
        Failure{"isotropicCounts",
                [] {
                  EXPECT_EQ(add_entry({{6}, {7}}, 0.0), ok);
                  EXPECT_EQ(qx_create_xmodel(2, ten, ten, ten, nullptr, nullptr, nullptr, nullptr,
                                             1, 0, ten, nullptr, ten, nullptr, ten),
                            failed);
                },
                "Number of isotropic atoms is not consistent 2 1 .\n"},
        Failure{"anisotropicCounts",
                [] {
                  EXPECT_EQ(add_entry({{6}, {7}}, 0.0), ok);
                  EXPECT_EQ(qx_create_xmodel(2, ten, ten, ten, nullptr, nullptr, nullptr, nullptr,
                                             2, 1, ten, nullptr, ten, nullptr, ten),
                            failed);
                },
                "Number of anisotropic atoms is not consistent.\n"},
        Failure{"noModel",
                [] {
                  EXPECT_EQ(qx_delete_qxmodel(), ok);
                  EXPECT_EQ(qx_get_xmodel_natom(&one_count), failed);
                },
                "\nqx_get_xmodel_natom():\nxmodel object has not been created yet.\n"},
        Failure{"noSystemForB", fails(qx_create_atombfact),
                "\nqx_create_atombfact():\nmolsys object has not been created.\n"},
        Failure{"noSystemForOccupancies", fails(qx_create_atomocc),
                "\nqx_create_atomocc():\nmolsys object has not been created.\n"},
        Failure{"noSystemForMaps", [] { EXPECT_EQ(qx_get_molsys_omapper(), nullptr); },
                "\nqx_get_molsys_omapper():\nmolsys object does not exist yet. \n"},
        Failure{"noBObject",
                [] {
                  EXPECT_EQ(qx_delete_qxatomb(), ok);
                  EXPECT_EQ(qx_set_qxatomb_B0(3.0), failed);
                },
                "qxatomb object has not been created.\n"},
        Failure{"noOccupancies", fails(qx_download_qxatomocc_q, ten),
                "\nqx_download_qxatomocc_q():\nqxatomocc object has not been created yet.\n"},
        Failure{"emptyOccupancies",
                [] {
                  EXPECT_EQ(qx_new_qxatomocc(), ok);
                  EXPECT_EQ(qx_upload_qxatomocc_q(ten), failed);
                },
                "\nqx_upload_qxatomocc_q():\nqxatomocc object has not been created yet.\n"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace qx::test
