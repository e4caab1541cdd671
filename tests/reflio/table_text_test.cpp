// Reflection files of text through the sections that read and write them: values against files
// typed by hand, and files that are damaged.
#include "crystal/reflections.h"
#include "support/engine.h"

#include <quorix/mtz.h>
#include <quorix/reflections.h>

#include <cmath>

namespace qx::test {
namespace {

constexpr const char* cns =
    " REMARK a= 10 b= 20 c= 30 alpha= 90 beta= 90 gamma= 90 sg= P1\n"
    " NREFlection= 3 { of which\n one is free }\n ANOMalous=FALSe\n"
    " DECLare NAME=FOBS DOMAin=RECIprocal TYPE=COMPLEX END\n"
    " DECLare NAME=SIGMA DOMAin=RECIprocal TYPE=REAL END\n"
    " DECLare NAME=TEST DOMAin=RECIprocal TYPE=INTEger END\n"
    " INDE 1 0 0 FOBS= 12.5 45 SIGMA=1.5\n    TEST= 0\n"
    " INDE 0 1 -2 FOBS=3.25 SIGMA= 0.5 TEST= 1 ! the phase is left out\n"
    " INDE 0 0 4 TEST= 0\n";
constexpr const char* hkl =
    "   1   0   0   12.50    1.50   1\n   0   1  -2    3.25    0.50  -1\n"
    "   0   0   0    0.00    0.00   0\nanything\n";
constexpr const char* sca =
    "    1\n -987\n    10.000    20.000    30.000    90.000    90.000    90.000 p1\n"
    "   1   0   0    12.5     1.5    10.0     2.0\n   0   1  -2     3.2     0.5     0.0    -1.0\n"
    "   0   0   4********     0.5\n";
constexpr const char* dtrek =
    "4 2 1 2\nCRYSTAL_UNIT_CELL=10 20 30 90 90 90;\nCRYSTAL_SPACEGROUP=1;\nnH\nnK\nnL\nnFlag\n"
    "fIntensity\nfSigmaI\nsBatch\n1 0 0 7 12.5 1.5 a\n0 1 -2 8 3.25 0.5 b\n0 0 4 9 0 -1 c\n";
constexpr const char* cif =
    "data_x\n_cell.length_a 10\n_cell.length_b 20.0(1)\n_cell.length_c 30\n_cell.angle_alpha 90\n"
    "_cell.angle_beta 90\n_cell.angle_gamma 90\n_symmetry.space_group_name_H-M 'P 1'\n"
    "_x.text\n;a loop_ of words\n;\nloop_\n_audit.id\n_audit.what\n1 'it''s # no comment'\n"
    "loop_ # the reflections\n_refln.index_h\n_refln.index_k\n_refln.index_l\n_refln.F_meas_au\n"
    "_refln.F_meas_sigma\n_refln.status\n_refln.crystal_id\n"
    "1 0 0 12.5 1.5 o 1\n0 1 -2 3.25(5) 0.5 f 1\n0 0 4 ? . x 1\n";

class TableText : public Engine {
 protected:
  // The section that reads the text as a file of the format.
  SectionResult read(const std::string& format, const std::string& text, const std::string& coid,
                     const std::string& more = "") {
    const std::string path = scratch_.file("in." + format);
    write_file(path, text);
    if (qx_exist_quorix()) qx_terminate_quorix();  // limits narrowed to other data go with it
    EXPECT_EQ(qx_create_quorix(), ok);
    return section("xcry\nspgname P1\ncell 10 20 30\nread refl " + format + " file \"" + path +
                   "\" coid " + coid + "\n" + more + "xend\n");
  }
  // Reflection 0 1 -2 and that it is one of n.
  static std::size_t place(std::int32_t n) {
    const qxrefdata* set = qx_get_qxrefdata();
    EXPECT_EQ(set->nreflections, n);
    std::size_t i = 0;
    while (i + 1 < static_cast<std::size_t>(n) && set->l[i] != -2) ++i;
    EXPECT_TRUE(set->h[i] == 0 && set->k[i] == 1 && set->l[i] == -2);
    return i;
  }
  ScratchDirectory scratch_;
};

TEST_F(TableText, identifiersWithoutALabelMeanTheUsualColumns) {
  const struct {
    const char* format;
    const char* text;
    const char* coid;
    std::int32_t n;
    bool amplitude, flag;
  } cases[] = {{"cns", cns, "FOBS SIGF=SIGMA TEST PHIB=PHI_FOBS", 3, true, true},
               {"hkl", hkl, "IOBS SIGI TEST", 2, false, true},
               {"sca", sca, "IOBS=I(+) SIGI=SIGI(+)", 3, false, false},
               {"dtrek", dtrek, "IOBS SIGI", 3, false, false},
               {"mmcif", cif, "FOBS SIGF TEST", 3, true, true}};
  for (const auto& c : cases) {
    const SectionResult r = read(c.format, c.text, c.coid);
    ASSERT_TRUE(r.ok) << c.format << r.output;
    EXPECT_EQ(r.output.find("does not have"), std::string::npos) << r.output;
    EXPECT_EQ(r.output.find("WARNING"), std::string::npos) << r.output;
    const std::size_t i = place(c.n);
    const qxrefdata* set = qx_get_qxrefdata();
    const float* value = c.amplitude ? set->fobs : set->iobs;
    const float* sigma = c.amplitude ? set->sigf : set->sigi;
    ASSERT_TRUE(value && sigma) << c.format;
    EXPECT_FLOAT_EQ(value[i], std::string(c.format) == "sca" ? 3.2F : 3.25F) << c.format;
    EXPECT_FLOAT_EQ(sigma[i], 0.5F) << c.format;
    if (c.n == 3) {
      EXPECT_TRUE(std::isnan(value[2])) << c.format;
    }
    if (c.flag) {
      EXPECT_EQ(set->test[i], std::string(c.format) == "hkl" ? -1 : 1) << c.format;
    }
    if (c.amplitude && set->phib) {
      EXPECT_FLOAT_EQ(set->phib[0], 45.0F);
    }
  }
  const SectionResult lacks = read("cif", cif, "FOBS IOBS");
  EXPECT_NE(lacks.output.find("the mmCIF file does not have \"IOBS\" column"), std::string::npos)
      << lacks.output;
}

// What is written in one format and read again is what was there.
TEST_F(TableText, writesWhatItReads) {
  for (const char* format : {"cns", "hkl", "sca", "dtrek", "cif", "mtz"}) {
    const std::string out = scratch_.file(std::string("out.") + format);
    SectionResult r = read("dtrek", dtrek, "IOBS SIGI TEST=Flag",
                           std::string("write refl ") + format + " file \"" + out + "\"\n");
    ASSERT_TRUE(r.ok) << format << r.output;
    const bool mtz = std::string(format) == "mtz";
    const std::string labels = mtz ? "IOBS=IOBS SIGI=SIGI" : "IOBS SIGI";
    r = read(format, read_file(out), labels);
    ASSERT_TRUE(r.ok) << format << r.output;
    const auto n = qx_get_qxrefdata()->nreflections;
    const std::size_t i = place(n);
    const bool rounds = std::string(format) == "sca";
    EXPECT_NEAR(qx_get_qxrefdata()->iobs[i], 3.25, rounds ? 0.06 : 1e-6) << format;
    EXPECT_NEAR(qx_get_qxrefdata()->sigi[i], 0.5, 1e-6) << format;
  }
}

// Every beginning of a file and every digit that became a letter is read as a smaller file, or
// refused with the line; nothing else happens.
TEST_F(TableText, damagedFilesAreRefused) {
  const std::pair<const char*, const char*> files[] = {
      {"cns", cns}, {"hkl", hkl}, {"sca", sca}, {"dtrek", dtrek}, {"cif", cif}};
  for (const auto& [format, text] : files) {
    const std::string whole = text;
    std::size_t refused = 0;
    for (std::size_t i = 0; i < whole.size(); i += 3) {
      std::string altered = whole;
      altered[i] = 'q';
      for (const std::string& bytes : {whole.substr(0, i), altered}) {
        const SectionResult r = read(format, bytes, "FOBS IOBS");
        EXPECT_EQ(r.ok, qx_exist_quorix() == 1);
        if (r.ok) continue;
        ++refused;
        EXPECT_NE(r.output.find("():"), std::string::npos);
        ASSERT_EQ(qx_create_quorix(), ok);
      }
    }
    EXPECT_GT(refused, whole.size() / 12) << format;
  }
  const struct {
    const char* format;
    std::string text;
    const char* says;
  } cases[] = {{"hkl", "   1   0   0   12.x0    1.50\n", "Line 1 of"},
               {"sca", "    8 p21\n", "not the beginning of a merged scalepack file"},
               {"dtrek", "3 900000 0 0\n", "not the numbers of fields"},
               {"cif", "data_x\nloop_\n_refln.index_h\n_refln.index_k\n_refln.index_l\n1 2\n",
                "a loop ends within a row"},
               {"cns", "INDE 1 2 x\n", "INDEx without h, k, l"},
               {"cns", "INDE 1 2 3 FOBS= 1 } INDE 1 2 4 FOBS= 2\n", "a word that is no part"},
               {"cns", std::string("INDE 1 2\0 3\n", 12), "is no text"},
               {"hkl", "", "There are no reflections"}};
  for (const auto& c : cases) {
    const SectionResult r = read(c.format, c.text, "FOBS");
    EXPECT_FALSE(r.ok) << c.says;
    EXPECT_NE(r.output.find(c.says), std::string::npos) << r.output;
    ASSERT_EQ(qx_create_quorix(), ok);
  }
}

}  // namespace
}  // namespace qx::test
