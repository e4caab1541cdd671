// No program writes over what it reads, or over a file of another kind than it writes.
#include "tool/map_command.h"

#include <quorix/engine.h>

#include <algorithm>
#include <map>

namespace qx::test {
namespace {

namespace fs = std::filesystem;

const std::string examples = std::string(QUORIX_SOURCE_DIR) + "/examples/";

using Contents = std::map<std::string, std::string>;

Contents contents() {
  Contents all;
  for (const auto& entry : fs::recursive_directory_iterator(".")) {
    if (entry.is_regular_file()) all[entry.path().string()] = read_file(entry.path().string());
  }
  return all;
}

// Inputs under several names, and files of the user's own.
class OutputGuard : public MapCommand {
 protected:
  void SetUp() override {
    MapCommand::SetUp();
    make(two_columns("FWT", "PHWT"));
    write_file("b.mtz", read_file("in.mtz"));
    fs::copy(examples + "1ubq.pdb", "m.pdb");
    fs::create_symlink("in.mtz", "link.mtz");
    fs::create_hard_link("in.mtz", "hard.ccp4");
    write_file("notes.txt", "mine\n");
    write_file("page.html", "<!DOCTYPE html>\n<p>mine");
    write_file("job.qx", "! mine\n" + job("in.mtz", "job.qx"));
    fs::create_directory("folder");
  }

  static std::string job(const std::string& input, const std::string& output) {
    return "xcry\nspgname P1\ncell 10 12 14\nread refl mtz file \"" + input +
           "\" coid MAP_COEFFA=FWT MAP_COEFFP=PHWT\nxend\nxgrid\nxend\nxfft\nxend\nxmap\n"
           "mapdef generated with amplitude input phase input\nextent unit\ngenerate\n"
           "write ccp4 file \"" +
           output + "\"\nxend\n";
  }
  static ProgramResult quorix(const Arguments& arguments) {
    return run_program("quorix", arguments);
  }
};

struct Case {
  const char* name;
  Arguments arguments;
  const char* told;
};

class OutputGuardRefusals : public OutputGuard, public ::testing::WithParamInterface<Case> {};

TEST_P(OutputGuardRefusals, leaveEverythingAsItWas) {
  write_file("over.qx", job("in.mtz", "link.mtz"));
  write_file("text.qx", job("in.mtz", "notes.txt"));
  write_file("twice.qx", job("in.mtz", "new.ccp4") + job("in.mtz", "new.ccp4"));
  fs::create_directory("other");
  fs::copy("b.mtz", "other/in.mtz");
  write_file("mine_coot.py", "mine");
  fs::create_directory("out");
  fs::create_directory("out/in");
  write_file("out/in/log.txt", "mine");
  const Contents before = contents();
  const ProgramResult result = quorix(GetParam().arguments);
  EXPECT_EQ(result.status, 2) << result.output;
  EXPECT_NE(result.errors.find(GetParam().told), std::string::npos) << result.errors;
  EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(contents(), before);
}

INSTANTIATE_TEST_SUITE_P(
    everyCommand, OutputGuardRefusals,
    ::testing::Values(
        Case{"mapOverItself", {"map", "in.mtz", "in.mtz", "--force"}, "not written over them"},
        Case{"mapForeignFirst", {"map", "text.qx", "in.mtz"}, "text.qx is neither"},
        Case{"mapForeign", {"map", "in.mtz", "notes.txt"}, "notes.txt is there and is a file"},
        Case{"mapFolder", {"map", "in.mtz", "folder"}, "folder is a folder"},
        Case{"mapMissing", {"map", "in.mtz", "c.mtz"}, "there is no file c.mtz"},
        Case{"mapMissingFirst", {"map", "c.mtz", "in.mtz"}, "there is no file c.mtz"},
        Case{"mapOutAmongSeveral", {"map", "in.mtz", "b.mtz", "o.ccp4"}, "would be the map of 2"},
        Case{"mapOneStemTwice", {"map", "in.mtz", "other/in.mtz"}, "would be written twice"},
        Case{"mapOverLink", {"map", "in.mtz", "hard.ccp4"}, "themselves, as in.mtz"},
        Case{"mapTwoModels", {"map", "in.mtz", "m.pdb", examples + "1ubq.pdb"}, "one model only"},
        Case{"mapOnlyModel", {"map", "m.pdb"}, "name the reflections"},
        Case{"fcalcModel",
             {"fcalc", "m.pdb", "--dmin", "4", "--force", "-o", "./m.pdb"},
             "./m.pdb is an input, under the name m.pdb"},
        Case{"fcalcData",
             {"fcalc", "m.pdb", "--hkl", "in.mtz", "-o", "o.mtz", "--map-2fofc", "hard.ccp4"},
             "hard.ccp4 is an input, under the name in.mtz"},
        Case{"fcalcTwice",
             {"fcalc", "m.pdb", "--hkl", "in.mtz", "-o", "o", "--map-fofc", "folder/../o"},
             "would be written twice"},
        Case{"fcalcForeign", {"fcalc", "m.pdb", "--dmin", "4", "-o", "notes.txt"}, "say --force"},
        Case{"mapsModel",
             {"maps", "m.pdb", "in.mtz", "--force", "-o", "m.pdb"},
             "m.pdb is an input"},
        Case{"mapsScript",
             {"maps", "m.pdb", "in.mtz", "-o", "o.mtz", "--maps", "mine", "--scripts"},
             "mine_coot.py is there"},
        Case{"runOverInput", {"run", "over.qx", "--force"}, "link.mtz is an input"},
        Case{"runOverItself", {"run", "job.qx"}, "job.qx is an input"},
        Case{"runForeign", {"run", "text.qx"}, "notes.txt is there"},
        Case{"runTwice", {"run", "twice.qx"}, "would be written twice"},
        Case{"batchForeign", {"batch", "in.mtz", "-o", "out"}, "out/in/log.txt would be lost"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(OutputGuard, whatIsOfTheKindOrEmptyOrForcedIsWritten) {
  ASSERT_EQ(map({"in.mtz", "o.ccp4", "-q"}).status, 0);
  const std::string bytes = read_file("o.ccp4");
  write_file("empty", "");
  for (const Arguments& more : {Arguments{"o.ccp4"}, {"empty"}, {"notes.txt", "--force"}}) {
    Arguments arguments = {"in.mtz", "-q"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const ProgramResult result = map(arguments);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(read_file(more.front()), bytes);
  }
  write_file("job.qx", job("in.mtz", "job.ccp4"));
  EXPECT_EQ(quorix({"run", "job.qx"}).status, 0);
  EXPECT_EQ(quorix({"run", "job.qx"}).status, 0);
  // The page's name is the map's: a page of the user's own stays, one of the command's does not.
  fs::rename("page.html", "o.html");
  EXPECT_EQ(quorix({"report", "o.ccp4"}).status, 0);
  write_file("o_coot.py", "mine");
  const ProgramResult report = quorix({"report", "o.ccp4"});
  EXPECT_EQ(report.status, 2);
  EXPECT_NE(report.errors.find("o_coot.py is there"), std::string::npos) << report.errors;
  EXPECT_EQ(quorix({"report", "o.ccp4", "--force"}).status, 0);
}

TEST_F(OutputGuard, filesOnTheLineAreWhatTheyHold) {
  fs::create_directory("maps");
  const ProgramResult both =
      map({"in.mtz", "b.mtz", "--prefix", "maps/", "--difference", "--f", "FWT", "--phi", "PHWT"});
  ASSERT_EQ(both.status, 0) << both.errors;
  EXPECT_EQ(both.output.rfind("in.mtz:\n", 0), 0U) << both.output;
  EXPECT_NE(both.output.find("\nb.mtz:\n"), std::string::npos);
  EXPECT_EQ(read_file("maps/in_FWT.ccp4"), read_file("maps/b_FWT.ccp4"));
  // A model among them is what --extent model takes and scripts load.
  fs::copy(examples + "1ubq.mtz", "1ubq.mtz");
  ASSERT_EQ(map({"1ubq.mtz", "m.pdb", "a.ccp4", "--scripts", "-q"}).status, 0);
  ASSERT_EQ(map({"1ubq.mtz", "b.ccp4", "-q", "--extent", "model", "m.pdb"}).status, 0);
  EXPECT_EQ(read_file("a.ccp4"), read_file("b.ccp4"));
  EXPECT_NE(read_file("a_coot.py").find("m.pdb"), std::string::npos);
  const ProgramResult cell = map({"m.pdb", "1ubq.mtz", "c.ccp4", "--extent", "cell"});
  EXPECT_NE(cell.errors.find("m.pdb: the model serves"), std::string::npos) << cell.errors;
  EXPECT_NE(read_file("c.ccp4"), read_file("b.ccp4"));
}

TEST_F(OutputGuard, theMapToolRefusesInItsOwnWords) {
  const auto tool = [](const std::string& output) {
    return run_program("quorix-map", {"P 1", "10", "12", "14", "90", "90", "90", "0", "0", "in.mtz",
                                      "FWT", "PHWT", "", output});
  };
  for (const char* name : {"in.mtz", "link.mtz", "hard.ccp4"}) {
    const ProgramResult result = tool(name);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, std::string("Error: <map_file> ") + name +
                                 " is the <reflection_file>: name another\n");
  }
  EXPECT_EQ(tool("notes.txt").status, 1);
  EXPECT_EQ(read_file("notes.txt"), "mine\n");
  EXPECT_EQ(read_file("in.mtz"), read_file("b.mtz"));
  EXPECT_EQ(tool("new.ccp4").status, 0);
  EXPECT_EQ(tool("new.ccp4").status, 0);
}

// A caller of the library has no front end that looks first.
TEST_F(OutputGuard, theEngineItselfKeepsWhatAJobHasRead) {
  const std::string before = read_file("in.mtz");
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  for (const char* name : {"in.mtz", "hard.ccp4"}) {
    ASSERT_EQ(qx_create_quorix(), ok);
    const std::string text = job("in.mtz", name);
    std::size_t at = 0;
    std::string said;
    for (std::size_t end = 0; (end = text.find("xend\n", at)) != std::string::npos; at = end + 5) {
      const SectionResult result = section(text.substr(at, end + 5 - at));
      EXPECT_EQ(result.ok, end + 5 != text.size()) << result.output;
      said = result.output;
    }
    EXPECT_NE(said.find(std::string("The file \"") + name + "\" has been read in this job"),
              std::string::npos)
        << said;
    EXPECT_FALSE(qx_exist_quorix());
  }
  ASSERT_EQ(qx_create_quorix(), ok);
  EXPECT_TRUE(section("xcry\nspgname P1\ncell 10 12 14\nread refl mtz file in.mtz coid "
                      "FOBS=FWT\nxend\n")
                  .ok);
  EXPECT_NE(section("xter\nwrite refl mtz file link.mtz\nxend\n").output.find("has been read"),
            std::string::npos);
  EXPECT_EQ(read_file("in.mtz"), before);
}

}  // namespace
}  // namespace qx::test
