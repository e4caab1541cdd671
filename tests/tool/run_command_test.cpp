// quorix run: texts of sections from files and pipes.
#include "support/engine.h"
#include "support/program.h"

#include <chrono>
#include <gtest/gtest.h>

namespace qx::test {
namespace {

const std::string example = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.mtz";

std::string map_job(const std::string& map) {
  return "# a whole job\n"
         "xcry\n  spgname P212121\n  cell 50.84, 42.77, 28.95\n  reso 1.8 50\n"
         "  read refl mtz file \"" +
         example +
         "\" &\n    coid MAP_COEFFA=FWT MAP_COEFFP = PHWT\nxend\n"
         "xgrid\nfrac 0.33\nxend\nxfft\nxend\n"
         "xmap\nmapdef generated with amplitude input phase input\n"
         "param type unweighted u 1 v 0 scale yes\nextent unit\ngenerate\n"
         "write ccp4 file \"" +
         map + "\"\nxend\nxter\nxend\n";
}

TEST(RunCommand, runsAFileAndAPipeToTheSameMapAsTheMapTool) {
  const ScratchDirectory scratch;
  write_file(scratch.file("job"), map_job(scratch.file("file.ccp4")));
  const ProgramResult from_file = run_program("quorix", {"run", scratch.file("job")});
  EXPECT_EQ(from_file.status, 0) << from_file.output << from_file.errors;
  EXPECT_EQ(run_program("quorix", {"run", "-"}, map_job(scratch.file("pipe.ccp4"))).status, 0);
  EXPECT_EQ(
      run_program("quorix-map", {"P 21 21 21", "50.84", "42.77", "28.95", "90", "90", "90", "1.8",
                                 "50", example, "FWT", "PHWT", "", scratch.file("tool.ccp4")})
          .status,
      0);
  const std::string tool = read_file(scratch.file("tool.ccp4"));
  EXPECT_TRUE(read_file(scratch.file("file.ccp4")) == tool);
  EXPECT_TRUE(read_file(scratch.file("pipe.ccp4")) == tool);
}

TEST(RunCommand, stopsAtTheFirstSectionThatFails) {
  const ProgramResult result =
      run_program("quorix", {"run"}, "xverbose\nxend\nxwater\nxend\nxcry\nxend\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("Failed to process xwater pick up section. "), std::string::npos);
  EXPECT_EQ(result.output.find("begin x-ray"), std::string::npos);
}

struct Text {
  const char* name;
  const char* text;
  const char* report;
};

class RunCommandTexts : public ::testing::TestWithParam<Text> {};

TEST_P(RunCommandTexts, endWithOneReport) {
  const ProgramResult result = run_program("quorix", {"run"}, GetParam().text);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find(GetParam().report), std::string::npos) << result.output;
  EXPECT_EQ(result.output.find("has not been set up yet"), std::string::npos) << result.output;
}

INSTANTIATE_TEST_SUITE_P(
    faulty, RunCommandTexts,
    ::testing::Values(
        Text{"noXend", "xcry\ncell 10 10 10\n", "\n qx_xcry_ctrl():\n"},
        Text{"gridWithoutXend",
             "xcry\nspgname P1\ncell 10 10 10\nxend\nxgrid\nngrid nx=4 ny=4 nz=4\n",
             "\nqx_grid_ctrl():\n"},
        Text{"mapWithoutXend", "xmap\nextent unit\n", "\nqx_map_generation_ctrl():\n"},
        Text{"fftWithoutXend", "xcry\nspgname P1\ncell 10 10 10\nxend\nxgrid\nxend\nxfft\n",
             "\nqx_xfft_ctrl():\n"},
        Text{"modelWithoutXend", "xmod\n", "\nqx_xmod_ctrl():\nFailed to get quorix command. \n"},
        Text{"fractionWithoutCrystal", "xgrid\nfrac 0.33\nxend\n",
             "qxresol object has not been created yet."},
        Text{"fftWithoutGrid", "xfft\nmemory 10\nxend\n", "has not been created yet"},
        Text{"mapWithoutAnything", "xmap\ngenerate\nxend\n", "has not been created yet"},
        Text{"writeBeforeGenerate", "xmap\nwrite ccp4 file \"x.ccp4\"\nxend\n",
             "There is no way to get map coefficients."},
        Text{"structureFactorsWithoutModel", "xfcc\ncalc\nxend\n",
             "molsys object has not been created yet "},
        Text{"noModelAtoms", "xmol\nxend\n",
             " There is no atom defined in the reflection system. "},
        Text{"cellOfTwo", "xcry\ncell 50 60\nxend\n",
             " Invalid specification \"50 60\" for cell \n"},
        Text{"noLimits", "xmap\nextent box xmin=0 xmax=1\n", "No ymin for box defined. "}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(RunCommand, tellsUsageAndUnreadableFilesOnStandardError) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"run", "/no/such/file"},
        {"run", "/"},
        {"run", "--no-such-option"},
        {"dance"},
        {}}) {
    const ProgramResult result = run_program("quorix", arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors, "");
    EXPECT_EQ(result.output, "");
  }
  EXPECT_EQ(
      run_program("quorix", {"map", "a", "--frac", "3"}).errors.rfind("quorix map: --frac", 0), 0U);
  EXPECT_EQ(run_program("quorix", {"dance"}).errors.rfind("quorix: there is no 'dance'\n", 0), 0U);
  EXPECT_EQ(run_program("quorix", {"run"}, " \n\n").status, 2);
  EXPECT_EQ(run_program("quorix", {"--version"}).output,
            "quorix "
            "0.1.0"
            "\n");
  EXPECT_EQ(run_program("quorix", {"run", "--help"}).status, 0);
}

TEST(RunCommand, whatStandsBehindATerminationHasAnEngineOfItsOwn) {
  const ProgramResult result = run_program(
      "quorix", {"run"}, "xverbose\nparam verb_mem 1\nxend\nxter\nxend\n! next\nxgrid\nxend\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("Maximum memory used"), std::string::npos) << result.output;
  EXPECT_EQ(result.errors, "<stdin>:8: xend\n");
  EXPECT_EQ(run_program("quorix", {"run"}, "xter\nxend\n ! only a comment\n").status, 0);
}

struct Stop {
  const char* text;
  const char* told;  // behind the name
};

TEST(RunCommand, tellsTheLineAndTheCommandAtWhichItStopped) {
  const ScratchDirectory scratch;
  const std::string job = scratch.file("job.qx");
  const std::string filler(3000, '\n');
  for (const Stop& stop :
       {Stop{"xcry\n\n! x\n cell 10 10 # two\n", ":4: cell 10 10"},
        {"xverbose\nxend\nxcry\nread refl mtz &\n! between\n  file none.mtz coid FC=FC\nxend\n",
         ":4: read refl mtz file none.mtz coid FC=FC"},
        {"xcry\nspgname P1\ncell 1 2 3\nxend\nxfoo\n", ":5: xfoo"},
        {"xter\nxend\n\nxcry\nfoo bar\n", ":5: foo bar"},
        {"xcry\nspgname P1\n\n", ":2: the text ends inside a section: xend?"},
        {"xverbose\r\nlevel \x1b[2J\r\n", ":2: level  [2J"}}) {
    for (const char* mark : {"", "\xef\xbb\xbf"}) {
      write_file(job, mark + std::string(stop.text));
      const ProgramResult result = run_program("quorix", {"run", job});
      EXPECT_EQ(result.status, 1) << stop.text;
      EXPECT_EQ(result.errors, job + stop.told + "\n") << stop.text << result.output;
    }
  }
  write_file(job, filler + "xcry\nfoo " + std::string(5000, 'x') + "\n");
  const std::string told = run_program("quorix", {"run", job}).errors;
  EXPECT_EQ(told.rfind(job + ":3002: foo xxx", 0), 0U) << told;
  EXPECT_LT(told.size(), 500U);
}

TEST(RunCommand, linesOfAnyLengthAreReadWhole) {
  const ScratchDirectory scratch;
  std::string job = map_job(scratch.file("plain.ccp4"));
  ASSERT_EQ(run_program("quorix", {"run"}, job).status, 0);
  // Behind 1024 characters a line used to be another one.
  job = map_job(scratch.file("long.ccp4"));
  job.insert(job.find("read refl"), std::string(1500, ' '));
  job.insert(job.find("MAP_COEFFA"), std::string(2000, ' '));
  ASSERT_EQ(run_program("quorix", {"run"}, job).status, 0);
  EXPECT_TRUE(read_file(scratch.file("plain.ccp4")) == read_file(scratch.file("long.ccp4")));
}

// Once the time grew with the square: minutes instead of a second.
TEST(RunCommand, longCommandsTakeTimeInProportion) {
  std::string pairs = "xformfact\natmf &\n";
  for (int i = 0; i < 400000; ++i) pairs += "C 5 &\n";
  std::string key = "xverbose\nparam &\n";
  for (int i = 0; i < 400000; ++i) key += "unknown_key 1234 &\n";
  for (const std::string& text : {pairs + "N 5\nxend\n", key + "verb_mem 0\nxend\n"}) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run_program("quorix", {"run"}, text).status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
  }
}

}  // namespace
}  // namespace qx::test
