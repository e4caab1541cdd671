// quorix-map as a user meets it: arguments, statuses, output, the map by byte offset.
#include "support/engine.h"
#include "support/mtz_maker.h"
#include "support/program.h"

#include <quorix/version.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

namespace qx::test {
namespace {

using Arguments = std::vector<std::string>;

const std::string example = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.mtz";

Arguments example_arguments(const std::string& map, const std::string& fom = "") {
  return {"P 21 21 21", "50.84", "42.77", "28.95", "90",   "90", "90",
          "1.8",        "50",    example, "FWT",   "PHWT", fom,  map};
}

template <class T>
T word(const std::string& bytes, std::size_t number) {
  T value;
  std::memcpy(&value, bytes.data() + 4 * (number - 1), sizeof value);
  return value;
}

TEST(MapTool, printsItsUsageForAnyOtherNumberOfArguments) {
  const ProgramResult help = run_program("quorix-map", {"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.output.rfind("Usage: ", 0), 0U);
  const std::string usage = help.output.substr(0, help.output.find('\n') + 1);
  for (const char* argument : {"space_group", "a", "gamma", "reso_low", "fom_label", "map_file"}) {
    EXPECT_NE(help.output.find("\n  <" + std::string(argument) + ">"), std::string::npos);
  }
  EXPECT_EQ(run_program("quorix-map", {"--version"}).output, "quorix-map " QUORIX_VERSION "\n");
  EXPECT_NE(help.output.find(" <space_group> <a> <b> <c> <alpha> <beta> <gamma> <reso_high> "
                             "<reso_low> <reflection_file> <map_ampl_label> <map_phase_label> "
                             "<fom_label> <map_file>\n"),
            std::string::npos);
  for (const Arguments& wrong :
       {Arguments{}, Arguments{"--hel"}, Arguments(13, "1"), Arguments(15, "1")}) {
    const ProgramResult result = run_program("quorix-map", wrong);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, usage);
  }
}

TEST(MapTool, countsUnreadableRealsFromZero) {
  for (int k = 0; k < 8; ++k) {
    Arguments arguments = example_arguments("unused.ccp4");
    arguments.at(static_cast<std::size_t>(k + 1)) = "x1";
    const ProgramResult result = run_program("quorix-map", arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "Error: failed to parse float argument #" + std::to_string(k) + "\n");
  }
}

TEST(MapTool, makesAMapAndTellsWhatItDid) {
  const ScratchDirectory scratch;
  Arguments arguments = example_arguments(scratch.file("1ubq.ccp4"));
  arguments[7] = "1.8A";  // text behind a number is accepted
  const ProgramResult result = run_program("quorix-map", arguments);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output,
            " \n"
            "begin x-ray and crystal data settings:\n"
            "Warning: extraneous input discarded: \" \" \" from line 5\n"
            "Total number of reflections input    : 6224       \n"
            "Total number of reflections used     : 6224       \n"
            "Total number of reflections rejected : 0          \n"
            "High resolution :    1.800\n"
            "Low resolution  :   32.729\n"
            "end x-ray and crystal data settings:\n"
            "grid: nx=  90 ny=  72 nz=  48 sx= 0.56489 sy= 0.59403 sz= 0.60313\n"
            "begin map generation:\n"
            "Warning: extraneous input discarded: \" \"\" from line 6\n"
            "end map generation.\n");
  EXPECT_FALSE(std::filesystem::exists("spg.data"));

  const std::string map = read_file(scratch.file("1ubq.ccp4"));
  ASSERT_EQ(map.size(), 1024U + 4 * 90 * 72 * 48);
  const std::int32_t integers[] = {90, 72, 48, 2, 0, 0, 0, 90, 72, 48};
  for (std::size_t i = 0; i < 10; ++i) EXPECT_EQ(word<std::int32_t>(map, i + 1), integers[i]) << i;
  EXPECT_FLOAT_EQ(word<float>(map, 11), 50.84F);
  EXPECT_FLOAT_EQ(word<float>(map, 16), 90.0F);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(word<std::int32_t>(map, 17 + i), static_cast<std::int32_t>(i + 1));
  }
  EXPECT_EQ(word<std::int32_t>(map, 23), 19);
  EXPECT_EQ(map.substr(4 * 45, 24), std::string(24, ' '));
  EXPECT_EQ(map.substr(208, 8), std::string("MAP \x44\x41\0\0", 8));
  EXPECT_NEAR(word<float>(map, 55), 1.0, 1e-6);
  EXPECT_EQ(word<std::int32_t>(map, 56), 2);
  EXPECT_EQ(map.substr(224, 80), "Map generated from Quorix" + std::string(55, ' '));
  EXPECT_EQ(map.substr(304, 80), "Map type: 1Fo - 0Fc" + std::string(61, ' '));

  const std::size_t points = 90 * 72 * 48;
  std::vector<float> density(points);
  std::memcpy(density.data(), map.data() + 1024, 4 * points);
  double sum = 0.0;
  double squares = 0.0;
  for (const float value : density) {
    sum += static_cast<double>(value);
    squares += static_cast<double>(value) * static_cast<double>(value);
  }
  EXPECT_EQ(*std::min_element(density.begin(), density.end()), word<float>(map, 20));
  EXPECT_EQ(*std::max_element(density.begin(), density.end()), word<float>(map, 21));
  EXPECT_NEAR(sum / static_cast<double>(points), word<float>(map, 22), 1e-6);
  EXPECT_NEAR(std::sqrt(squares / static_cast<double>(points)), 1.0, 1e-6);
}

TEST(MapTool, aResolutionOfZeroIsOneAngstrom) {
  const ScratchDirectory scratch;
  // d = 10 / h: from h = 11 on beyond 1 A.
  MtzMaker maker({{3, 0, 0}, {9, 0, 0}, {10, 0, 0}, {11, 0, 0}, {12, 0, 0}});
  maker.cell = "10 10 10 90 90 90";
  maker.add("FWT", 'F', {1, 2, 3, 4, 5}).add("PHWT", 'P', {0, 0, 0, 0, 0});
  write_file(scratch.file("in.mtz"), maker.bytes());
  const ProgramResult result = run_program(
      "quorix-map", {"P 1", "10", "10", "10", "90", "90", "90", "0", "0", scratch.file("in.mtz"),
                     "FWT", "PHWT", "", scratch.file("out.ccp4")});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.output.find("Total number of reflections used     : 3 "), std::string::npos)
      << result.output;
}

TEST(MapTool, aFigureOfMeritEndsTheRunWithoutAMap) {
  const ScratchDirectory scratch;
  const std::string map = scratch.file("map.ccp4");
  const ProgramResult result = run_program("quorix-map", example_arguments(map, "FOM"));
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("\nqx_map_generation_ctrl():\n Unknow map type: fomweight \n"),
            std::string::npos)
      << result.output;
  EXPECT_FALSE(std::filesystem::exists(map));
  EXPECT_EQ(run_program("quorix-map", example_arguments(map, "   ")).status, 0);
  EXPECT_TRUE(std::filesystem::exists(map));
  EXPECT_EQ(run_program("quorix-map", example_arguments(map, "\t")).status, 1);
}

TEST(MapTool, opensWithOtherPeoplesPrograms) {
  const std::string gemmi = find_program("gemmi");
  if (gemmi.empty()) GTEST_SKIP() << "gemmi is not installed";
  const ScratchDirectory scratch;
  const std::string map = scratch.file("map.ccp4");
  ASSERT_EQ(run_program("quorix-map", example_arguments(map)).status, 0);
  const std::string script = std::string(QUORIX_SOURCE_DIR) + "/tests/tool/compare_map.py";
  const std::string command = "/usr/bin/python3 '" + script + "' '" + map + "' '" + example +
                              "' FWT PHWT >'" + scratch.file("log") + "' 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0) << read_file(scratch.file("log"));
}

struct Fault {
  const char* name;
  std::size_t argument;  // from 0
  std::string value;
  const char* report;
  int status = 1;
};

class MapToolFaults : public ::testing::TestWithParam<Fault> {};

TEST_P(MapToolFaults, areReportedOnceAndLeaveAGoodMapAlone) {
  const ScratchDirectory scratch;
  const std::string map = scratch.file("map.ccp4");
  const std::string good = "a good map" + std::string(198, ' ') + "MAP ";
  write_file(map, good);
  Arguments arguments = example_arguments(map);
  arguments[GetParam().argument] = GetParam().value;
  const ProgramResult result = run_program("quorix-map", arguments);
  EXPECT_EQ(result.status, GetParam().status) << result.output;
  EXPECT_NE(result.output.find(GetParam().report), std::string::npos) << result.output;
  EXPECT_TRUE(read_file(map) == good);
  const auto files = std::distance(std::filesystem::directory_iterator(scratch.path()),
                                   std::filesystem::directory_iterator());
  EXPECT_EQ(files, 1);
}

INSTANTIATE_TEST_SUITE_P(
    everyArgument, MapToolFaults,
    ::testing::Values(
        Fault{"noSuchGroup", 0, "P 99", " Failed to get proper space group. "},
        Fault{"longGroup", 0, std::string(100000, 'P'), " Failed to get proper space group. "},
        Fault{"negativeEdge", 1, "-50", " Failed to set up cell. "},
        Fault{"nanEdge", 2, "nan", " Failed to set up cell. "},
        Fault{"infiniteEdge", 3, "inf", " Failed to set up cell. "},
        Fault{"hugeEdge", 3, "1e30", "Failed to set up a grid for FFT "},
        Fault{"impossibleAngle", 4, "200", " Failed to set up cell. "},
        Fault{"zeroAngle", 5, "0.0", " Failed to set up cell. "},
        Fault{"angleNotANumber", 6, "nan", " Failed to set up cell. "},
        Fault{"nothingInRange", 7, "45", " There is no reflection survived. "},
        Fault{"noFile", 9, "/no/such/file.mtz",
              "Failed to open file /no/such/file.mtz for reading reflection data \n"},
        Fault{"directory", 9, "/", " Failed to read MTZ file /. \n"},
        Fault{"emptyName", 9, "", " Failed to get reflection data file name. "},
        Fault{"longName", 9, "/" + std::string(4000, 'x'), " Failed to read MTZ file /xxx"},
        Fault{"quotedName", 9, "a\"b#c!d",
              "Error: <reflection_file> a\"b#c!d holds the character \": "},
        Fault{"tabbedName", 9, "a\tb", "holds the control character 9: use a link"},
        Fault{"commentedName", 13, "out#1.ccp4",
              "Error: <map_file> out#1.ccp4 holds the character #"},
        Fault{"noAmplitude", 10, "NONE", "There is no input amplitude data defined yet."},
        Fault{"noPhase", 11, "NONE", "There is no input phase data defined yet."},
        Fault{"emptyLabel", 10, "", "There is no input amplitude data defined yet."},
        Fault{"onePartLabel", 10, "a/FWT", "Not a valid definion for MTZ column: a/FWT"},
        Fault{"noFolder", 13, "/no/such/folder/map.ccp4",
              "Failed to open file \"/no/such/folder/map.ccp4\" "}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(MapTool, writesPathsWithBlanksAndUtf8AndDevices) {
  const ScratchDirectory scratch;
  const std::string odd = scratch.file(
      "Dichte \xc3\xbc"
      "ber 1 \xc3\x85.ccp4");
  EXPECT_EQ(run_program("quorix-map", example_arguments(odd)).status, 0);
  EXPECT_TRUE(std::filesystem::exists(odd));
  EXPECT_EQ(run_program("quorix-map", example_arguments("/dev/null")).status, 0);
  const ProgramResult full = run_program("quorix-map", example_arguments("/dev/full"));
  EXPECT_EQ(full.status, 1);
  EXPECT_NE(full.output.find("Failed to write "), std::string::npos) << full.output;
}

TEST(MapTool, withoutADataDirectoryItSaysWhatItLooksFor) {
  const ProgramResult result =
      run_program("quorix-map", example_arguments("unused.ccp4"), {}, false);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("Zenvi does not know where to get file spgbase.dat \n"
                               "make sure environmental variable HALDEN_EXEC has been defined "),
            std::string::npos);
}

}  // namespace
}  // namespace qx::test
