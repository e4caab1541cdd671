#include "crystal/cell.h"
#include "crystal/columns.h"
#include "crystal/crystal.h"
#include "crystal/reflections.h"
#include "reflio/mtz.h"
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <quorix/mtz.h>

#include <cmath>
#include <cstring>

namespace qx::test {
namespace {

class XcrySection : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    MtzMaker file = of_this_crystal(MtzMaker(half_sphere(2, 2, 2)));
    std::vector<float> serial(file.rows());
    for (std::size_t i = 0; i < serial.size(); ++i) serial[i] = static_cast<float>(i + 1);
    file.add("FWT", 'F', serial).add("PHWT", 'P', serial).add("FREE", 'I', {0, 1, 2});
    file.history = {"made once"};
    write_file(path(), file.bytes());
  }

  // Blanks and UTF-8 are part of a name between quotes.
  [[nodiscard]] std::string path() const { return scratch_.file("with blank \xc3\xa4.mtz"); }
  [[nodiscard]] std::string read_line(const std::string& coids) const {
    return "read refl mtz file \"" + path() + "\" coid " + coids + "\n";
  }
  static MtzMaker of_this_crystal(MtzMaker file);
  [[nodiscard]] std::string out() const { return scratch_.file("out.mtz"); }

  static SectionResult xcry(const std::string& lines) {
    if (!qx_exist_quorix()) (void)qx_create_quorix();
    return section("xcry\n" + lines + "xend\n");
  }

 private:
  ScratchDirectory scratch_;
};

constexpr const char* crystal = "spgn P 21 21 21\ncell 30 40 50\n";

// The operators in another order, the group under another name.
MtzMaker XcrySection::of_this_crystal(MtzMaker file) {
  file.cell = "30.0 40.0 50.0 90.0 90.0 90.0";
  file.symmetry = "4 4 P 19 'P212121' PG222";
  file.operators = {"X,  Y,  Z", "-X,1/2+Y,1/2-Z", "1/2+X,1/2-Y,-Z", "1/2-X,-Y,1/2+Z"};
  return file;
}

TEST_F(XcrySection, aGoodRunPrintsCountsAndLimits) {
  const SectionResult run =
      xcry(std::string(crystal) + read_line("MAP_COEFFA=FWT MAP_COEFFP=PHWT"));
  EXPECT_TRUE(run.ok);
  // The quote that a quoted name leaves behind is warned about, also on a good run.
  const char* begin =
      " \nbegin x-ray and crystal data settings:\nWarning: extraneous input discarded: ";
  EXPECT_EQ(run.output.compare(0, std::strlen(begin), begin), 0) << run.output;
  EXPECT_EQ(run.output.substr(run.output.find("from line 4")),
            "from line 4\n"
            "Total number of reflections input    : 62         \n"
            "Total number of reflections used     : 62         \n"
            "Total number of reflections rejected : 0          \n"
            "High resolution :   10.818\n"
            "Low resolution  :   50.000\n"
            "end x-ray and crystal data settings:\n");
}

// One line each, on what contradicts the section; the same crystal in other words is none.
TEST_F(XcrySection, otherCellsAndGroupsAreWarnedOf) {
  const std::string other_cell = "WARNING: the MTZ file has the cell 30 40 51 90 90 90, which";
  const std::string other_group = "WARNING: the MTZ file is of the space group ";
  const std::string no_metric =
      "WARNING: the cell 30 40 50 90 90 90 does not have the symmetry of ";
  struct Case {
    std::string cell, symmetry;
    std::vector<std::string> operators;
    std::string group, warning;
  };
  const std::vector<std::string> p21 = {"x,y,z", "-x,y+1/2,-z"};
  const Case cases[] = {
      {"30.02 40 50 90 90.05 90", "2 2 P 4 'P2(1)' PG2", p21, "P 1 21 1", ""},
      {"30 40 51 90 90 90", "2 2 P 4 'P 1 21 1' PG2", p21, "P 1 21 1", other_cell},
      {"0 0 0 90 90 90", "2 2 P 4 'P 1 21 1' PG2", p21, "4", ""},
      {"30 40 50 90 90 90", "2 2 P 4 'P 1 21 1' PG2", p21, "P 2", other_group + "P 1 21 1, "},
      {"30 40 50 90 90 90", "2 2 P 4 'P 1 21 1' PG2", p21, "P 1 1 21", other_group},
      {"30 40 50 90 90 90", "2 2 P 4 'P 1 21 1' PG2", p21, "P 1", other_group},
      {"30 40 50 90 90 90", "0 0 P 18 'P 21 21 2' PG222", {}, "P 2 21 21", ""},
      {"30 40 50 90 90 90", "0 0 P 19 'P 21 21 21' PG222", {}, "P 2 21 21", other_group},
      {"30 40 50 90 90 90", "0 0 P 75 'P 4' PG4", {}, "P 4", no_metric + "the space group P 4: "}};
  for (const Case& test : cases) {
    MtzMaker file(half_sphere(2, 2, 2));
    file.cell = test.cell;
    file.symmetry = test.symmetry;
    file.operators = test.operators;
    write_file(path(), file.bytes());
    ASSERT_EQ(qx_create_quorix(), ok);
    const SectionResult run = xcry("spgn " + test.group + "\ncell 30 40 50\n" + read_line("FC=FC"));
    ASSERT_TRUE(run.ok) << run.output;
    const auto lines = [&](const std::string& text) {
      int n = 0;
      for (std::size_t at = 0; (at = run.output.find(text, at)) != std::string::npos; ++at) ++n;
      return n;
    };
    EXPECT_EQ(lines("WARNING"), test.warning.empty() ? 0 : 1) << test.group << run.output;
    if (test.warning.empty()) continue;
    EXPECT_EQ(lines(test.warning), 1) << test.group << run.output;
  }
  ASSERT_EQ(qx_create_quorix(), ok);
  for (const char* group : {"R 3 :R", "P 3 2 1", "P 1", "I 4 3 2"}) {
    const std::string cell =
        group[0] == 'P' && group[2] == '3' ? "40 40 60 90 90 120" : "40 40 40 80.25 80.25 80.25";
    ASSERT_EQ(qx_create_quorix(), ok);
    const bool fits = group[0] != 'I';
    EXPECT_EQ(xcry(std::string("spgn ") + group + "\ncell " + cell + "\n")
                      .output.find("WARNING: the cell ") == std::string::npos,
              fits)
        << group;
  }
  ASSERT_EQ(qx_create_quorix(), ok);
  EXPECT_NE(xcry("spgn R 3\ncell 40 40 40 80.25 80.25 80.25\n")
                .output.find("of the space group R 3 :H: "),
            std::string::npos);
}

TEST_F(XcrySection, withoutAFileNothingIsBuilt) {
  const SectionResult run = xcry(std::string(crystal) + "reso 2 30\n");
  EXPECT_TRUE(run.ok);
  EXPECT_EQ(run.output,
            " \nbegin x-ray and crystal data settings:\nend x-ray and crystal data settings:\n");
  EXPECT_EQ(qx_get_qxresol()->high, 2.0);
  EXPECT_EQ(qx_get_qxresol()->low, 30.0);
}

TEST_F(XcrySection, numbersAreTakenInEveryWriting) {
  ASSERT_TRUE(xcry("spgn P1\ncell 30, 40 ,50\n").ok);
  EXPECT_EQ(qx_get_qxcell()->gamma, 90.0);
  ASSERT_TRUE(xcry("cell = 30,40,50,90,100.5,90\n").ok);
  EXPECT_EQ(qx_get_qxcell()->beta, 100.5);
  const std::vector<std::pair<const char*, std::pair<double, double>>> ranges = {
      {"reso 2.0\n", {2, 99999}},  {"reso 50, 2\n", {2, 50}},
      {"reso 2 50\n", {2, 50}},    {"reso -1 50\n", {0, 50}},
      {"reso\n", {0, 50}},  // nothing read: the limits stay
      {"reso = 2 40\n", {2, 40}},  {"reso =3\n", {3, 99999}},
      {"reso=2 50\n", {50, 99999}}};  // all of the first word is the command's
  for (const auto& [line, range] : ranges) {
    ASSERT_TRUE(xcry(line).ok) << line;
    EXPECT_EQ(qx_get_qxresol()->high, range.first) << line;
    EXPECT_EQ(qx_get_qxresol()->low, range.second) << line;
  }
  ASSERT_TRUE(xcry("orth = 0.1 0 0 0 0 0.1,0 0 0 0 0.1 0.25\n").ok);
  EXPECT_EQ(qx_get_qxcell()->orth2frac[11], 0.25);
}

TEST_F(XcrySection, aLineThatChangesNothingSaysSo) {
  const std::pair<const char*, const char*> lines[] = {
      {"reso\n", "WARNING: the command reso names no limit: nothing is changed \n"},
      {"reso 2 30 x\n", "WARNING: \"x\" of the command reso is not read \n"},
      {"reso=2 30\n", "WARNING: \"=2\" of line 4 is not read: "},
      {"cell 30 40 50 90 90 90 P 1\n", "WARNING: \"P 1\" of the command cell is not read \n"},
      {"xname = a\n", "WARNING: the name \"= a\" is taken with its \"=\" \n"},
      {"reject sigcut 3\n", "WARNING: reject takes \"amplitude\" or \"intensity\" before"},
      {"reject amplitude\n", "WARNING: the command reject names no cut: nothing is changed \n"},
      {"reject amplitude sigcut=-1\n", "WARNING: sigcut -1 is not above 0: nothing is changed \n"}};
  for (const auto& [line, warning] : lines) {
    const SectionResult run = xcry(std::string("spgname = P 21 21 21\ncell 30 40 50\n") + line);
    EXPECT_TRUE(run.ok) << line << run.output;
    EXPECT_NE(run.output.find(warning), std::string::npos) << line << run.output;
  }
}

TEST_F(XcrySection, namesAndThresholdsReachTheirObjects) {
  ASSERT_TRUE(xcry(std::string(crystal) +
                   "XNAME my crystal\npnam project\ndname set 1\n"
                   "reject amplitude sigcut=1.5 rmscut = 20 minimum 0.5\nreje inten sigcut 2\n")
                  .ok);
  EXPECT_STREQ(qx_get_qxrefdata()->crystal_name, "my crystal");
  EXPECT_STREQ(qx_get_qxrefdata()->dataset_name, "set 1");
  const qxrefreject* reject = qx_get_qxrefreject();
  EXPECT_EQ(reject->f_sigma, 1.5);
  EXPECT_EQ(reject->f_rms, 20.0);
  EXPECT_EQ(reject->f_minimum, 0.5);
  EXPECT_EQ(reject->i_sigma, 0.0);  // "inten" does not begin with the word
}

TEST_F(XcrySection, operatorsMayReplaceTheName) {
  const SectionResult run =
      xcry("symp x,y,z\nsymp -x,y+1/2,-z\nsymc x,y,z\ncell 30 40 50\n" + read_line("FOBS=FWT"));
  ASSERT_TRUE(run.ok) << run.output;
  const qxrefdata* data = qx_get_qxrefdata();
  for (std::int32_t i = 0; i < data->nreflections; ++i) {
    ASSERT_EQ(data->centric[i], data->k[i] == 0 ? 1 : 0);  // P 21
  }
}

struct Fault {
  std::string lines;
  std::string report;
};

TEST_F(XcrySection, faultsAreReportedAndEndTheEngine) {
  const std::string file = " file \"" + path() + "\" ";
  const std::string at_xcry = "\n qx_xcry_ctrl():\n";
  const std::string at_read = "\nqx_read_refdata_ctrl():\n";
  const std::string then = at_xcry + " Failed to read reflection data. \n";
  const Fault cases[] = {
      {"cell 50 60\n", at_xcry + " Invalid specification \"50 60\" for cell \n"},
      {"cell\n", at_xcry + " Invalid specification \"\" for cell \n"},
      {"cell 0 60 70 90 90 90\nspgn P1\n", " Failed to set up cell. \n"},
      {"orth 1 2\n", at_xcry +
                         " Invalid specification \"1 2\" for: \n orthogonal framce to fraction "
                         "frame transformation matrix definition. \n"},
      {"tent 1\n", at_xcry + " *** Unknow xcry task: TENT *** \n"},
      {"read refl\n", at_read + " Failed to get reflection data type. \n" + then},
      {"read refl reflections png\n", at_read + " Unknow reflection data type PNG. \n" + then},
      {"read refl mtz coid F=F\n", at_read + " Failed to get reflection data file name. \n" + then},
      {"read mtz" + file + "\n", at_read + " Failed to get COID values. \n" + then},
      {"read mtz" + file + "coid FOBS=FWT MAP=F\n", at_read + " Invalid COID value: MAP \n" + then},
      {"read mtz" + file + "coid FOBS=FWT =F\n", at_read + " Invalid COID value:  \n" + then},
      {"read mtz file none coid F=F\n", at_read + " Failed to read MTZ file none. \n" + then},
      {"read hkl file none coid F=F\n", at_read + " Failed to read HKL file none. \n" + then},
      {"read cns file none coid F=F\n", at_read + " Failed to read CNS file none. \n" + then},
      {"read dtrek file none coid F=F\n", at_read + " Failed to read d*trek file none. \n" + then},
      {"read scala file none coid F=F\n",
       at_read + " Failed to read scalepack file none. \n" + then},
      {"read mmcif file none coid F=F\n", then},
      {std::string(crystal) + "write\n", at_xcry + "Failed to write keyword.\n"},
      {std::string(crystal) + "write map\n", at_xcry + "Unknown write keyword.\n"},
      {std::string(crystal) + "write refl mtz file " + out() + "\n",
       at_xcry + "Failed to write reflection data. \n"},
      {"write refl mtz file " + out() + "\n", " Failed to set up cell. \n"}};
  for (const Fault& fault : cases) {
    const SectionResult run = xcry(fault.lines);
    EXPECT_FALSE(run.ok) << fault.lines;
    EXPECT_NE(run.output.find(fault.report), std::string::npos) << fault.lines << run.output;
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
  ASSERT_EQ(qx_create_quorix(), ok);
  const SectionResult open_ended = section("xcry\ncell 30 40 50\n");
  EXPECT_FALSE(open_ended.ok);
  EXPECT_NE(open_ended.output.find(at_xcry + " *** Unknow xcry task:  *** \n"), std::string::npos);
}

TEST_F(XcrySection, writeRunsTheCheckersOnceAndKeepsTheData) {
  const SectionResult run =
      xcry(std::string(crystal) + "xname crystal A\n" +
           read_line("MAP_COEFFA=FWT MAP_COEFFP=PHWT TEST=FREE") + "write refl mtz file \"" +
           out() + "\" coid MAP_COEFFA=FC MAP_COEFFP TEST=free FOM=no\n");
  ASSERT_TRUE(run.ok) << run.output;
  EXPECT_EQ(run.output.find("Total number of reflections input"),
            run.output.rfind("Total number of reflections input"));
  EXPECT_NE(run.output.find(" Warning: there are no \"FOM\" data to write.\n"), std::string::npos);
  const std::string bytes = read_file(out());
  for (const char* text :
       {"SYMINF   4   4 P    19                   'P 21 21 21'", "SYMM x,y,z ",
        "CRYSTAL      1 'crystal A'", "PROJECT      0 HKL_base",
        "COLUMN FC                             F          1.0000",
        "COLUMN PHWT                           P ", "COLUMN free ", "RESO     0.0004     0.0085",
        "SORT    1    2    3    0    0", "MTZHIST     2 ", "From Quorix ", "made once "}) {
    EXPECT_NE(bytes.find(text), std::string::npos) << text;
  }
  // What was written is what is read again, reflection for reflection.
  ASSERT_TRUE(xcry("read mtz file " + out() + " coid FOBS=FC TEST=free\n").ok);
  const qxrefdata* again = qx_get_qxrefdata();
  ASSERT_EQ(again->nreflections, 62);
  for (std::int32_t i = 0; i < 62; ++i) EXPECT_EQ(again->fobs[i], static_cast<float>(i + 1));
  EXPECT_EQ(again->test[2], 2);
  EXPECT_STREQ(again->crystal_name, "crystal A");
}

// Every identifier has a column, with a value missing in the second row.
std::string file_of_all_columns(const std::string& marker, float missing) {
  MtzMaker file(half_sphere(1, 1, 1));
  file.missing = marker;
  for (const Column& column : columns()) {
    if (column.indices) continue;
    std::vector<float> values(file.rows(), static_cast<float>(column.number));
    values[1] = missing;
    file.add("my" + std::string(column.word), column.mtz_type, values);
  }
  return file.bytes();
}

TEST_F(XcrySection, whatIsMissingStaysMissingUnderItsOwnLabel) {
  std::string coids;
  for (const Column& column : columns()) {
    if (!column.indices) coids += " " + std::string(column.word) + "=my" + column.word;
  }
  for (const auto& [marker, missing] :
       {std::pair{"NAN", std::nanf("")}, std::pair{"-999", -999.0F}}) {
    write_file(path(), file_of_all_columns(marker, missing));
    const SectionResult run = xcry(std::string(crystal) + read_line(coids) +
                                   "reject amplitude sigcut 0.1\nreject intensity sigcut 0.1\n" +
                                   "write refl mtz file \"" + (out() + marker) + "\"\n");
    ASSERT_TRUE(run.ok) << run.output;
    EXPECT_EQ(run.output.find("not written"), std::string::npos);
    qxrefdata* back = qx_new_qxrefdata_obj();
    ASSERT_EQ(qx_read_refdata_mtz_file_obj(back, (out() + marker).c_str()), ok);
    for (const Column& column : columns()) {
      if (column.indices) continue;
      std::int32_t at = -1;
      ASSERT_EQ(locate_column(*back->mtz, ("my" + std::string(column.word)).c_str(), at), ok);
      ASSERT_GE(at, 0) << column.word;
      const MtzColumn& written = back->mtz->columns[at];
      EXPECT_EQ(written.type, column.mtz_type);
      EXPECT_EQ(written.values[0], static_cast<float>(column.number));
      // What is summed into maps is 0.
      const std::string word = column.word;
      const bool zero = word == "FOM" || (word.starts_with("MAP_") && word != "MAP_SCALE");
      if (zero) {
        EXPECT_EQ(written.values[1], 0.0F) << word;
      } else {
        EXPECT_TRUE(std::isnan(written.values[1])) << word << written.values[1];
      }
    }
  }
}

TEST_F(XcrySection, aColumnReadTwiceIsWrittenUnderTwoLabels) {
  ASSERT_TRUE(xcry(std::string(crystal) + read_line("FOBS=FWT MAP_COEFFA=FWT") +
                   "write refl mtz file \"" + out() + "\"\n")
                  .ok);
  const std::string bytes = read_file(out());
  EXPECT_NE(bytes.find("COLUMN FWT "), std::string::npos);
  EXPECT_NE(bytes.find("COLUMN MAP_COEFFA "), std::string::npos);
  EXPECT_EQ(bytes.find("COLUMN FWT "), bytes.rfind("COLUMN FWT "));
}

TEST_F(XcrySection, rowsThatAreNotWrittenAreCounted) {
  MtzMaker file({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {9, 0, 0}, {8, 0, 0}, {3, 0, 0}, {0, 0, 0}});
  write_file(path(), file.add("F", 'F', {1, 5, 6, 7, 8, 0.5F, 1}).bytes());
  const std::string lines = std::string(crystal) + read_line("FOBS=F") + "reso 4 40\n";
  EXPECT_EQ(xcry(lines).output.find("not written"), std::string::npos);
  const SectionResult run =
      xcry(lines + "reject amplitude minimum 1\nwrite refl mtz file \"" + out() + "\"\n");
  EXPECT_NE(run.output.find("Reflections of the input not written: 5 ((0,0,0): 2, outside the "
                            "resolution limits: 2, by reject: 1)\n"),
            std::string::npos)
      << run.output;
}

TEST_F(XcrySection, aWriteThatFailsLeavesTheOldFile) {
  write_file(out(), "precious");
  const SectionResult run =
      xcry(std::string(crystal) + read_line("MAP_COEFFA=FWT") + "write refl mtz file \"" + out() +
           "\" coid MAP_COEFFA=" + std::string(70, 'L') + "\n");
  EXPECT_FALSE(run.ok);
  EXPECT_NE(run.output.find("\nqx_write_refdata_mtz_file():\nFailed to write COLUMN record. \n"
                            "\n qx_xcry_ctrl():\nFailed to write reflection data. \n"),
            std::string::npos)
      << run.output;
  EXPECT_EQ(read_file(out()), "precious");
}

TEST_F(XcrySection, realFilesAreBuiltOrRefused) {
  if (real_data().empty()) GTEST_SKIP() << "no real data here";
  struct Case {
    const char *file, *crystal, *coids;
    int input, kept;
    const char* high;
  };
  const Case cases[] = {
      {"1rx2_P212121.mtz", "spgn P 21 21 21\ncell 34.321 45.508 98.912\n",
       "MAP_COEFFA=FWT MAP_COEFFP=PHWT FOM=FOM FOBS=FP SIGF=SIGFP", 14164, 14164, "1.800"},
      {"poor_map_P1.mtz", "spgn P1\ncell 65.476 61.462 49.4\n", "MAP_COEFFA=FWT MAP_COEFFP=PHWT",
       22156, 22155, "2.66"},
      {"5orl_P6122.mtz", "spgn P 61 2 2\ncell 81.62 81.62 175.21 90 90 120\n",
       "MAP_COEFFA=FWT MAP_COEFFP=PHWT TEST=FREE", 39480, 39480, "1.69"},
      {"hewl_ssad_P43212.mtz", "spgn P43212\ncell 79.344 79.344 37.81\n",
       "MAP_COEFFA=FOFCWT MAP_COEFFP=PHFOFCWT", 13693, 13693, "1.70"}};
  for (const Case& test : cases) {
    const SectionResult run =
        xcry(std::string(test.crystal) + "read refl mtz file \"" +
             (real_data() / test.file).string() + "\" coid " + test.coids + "\n");
    ASSERT_TRUE(run.ok) << test.file << run.output;
    EXPECT_EQ(qx_get_qxrefdata()->ninput, test.input);
    EXPECT_EQ(qx_get_qxrefdata()->nreflections, test.kept);
    EXPECT_NE(run.output.find("High resolution :    " + std::string(test.high)), std::string::npos)
        << run.output;
    ASSERT_EQ(qx_create_quorix(), ok);
  }
  const SectionResult packed = xcry(
      "read refl mtz file \"" + (real_data() / "5wkd_C2.mtz.gz").string() + "\" coid FOM=FOM\n");
  EXPECT_FALSE(packed.ok);
}

}  // namespace
}  // namespace qx::test
