// Programs that are ended, that run out of room, or that lack their streams: outputs are whole or
// as they were, nothing is left beside them, and nothing lost passes for success.
#include "tool/batch_command.h"

#include <algorithm>
#include <cmath>

namespace qx::test {
namespace {

namespace fs = std::filesystem;

const std::string example = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.mtz";
const std::string built = std::string(QUORIX_BINARY_DIR) + "/bin/";

// The status of a command of the shell.
int shell(const std::string& command) {
  const std::string data = "ZENVI_DATA='" + data_directory().string() + "' ";
  const int status = std::system(("export " + data + "; " + command).c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string tool(const std::string& map) {
  return built + "quorix-map 'P 21 21 21' 50.84 42.77 28.95 90 90 90 0.9 50 '" + example +
         "' FWT PHWT '' '" + map + "'";
}

std::string refusing(const std::string& what) {
  return "ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD=" QUORIX_REFUSALS " QX_REFUSE='" + what +
         "' ";
}

std::string listing() {
  std::string names;
  for (const auto& entry : fs::directory_iterator(".")) {
    names += entry.path().filename().string() + " ";
  }
  return names;
}

class Interruption : public BatchCommand {
 protected:
  void SetUp() override {
    BatchCommand::SetUp();
    ASSERT_EQ(shell(tool("../whole") + " >/dev/null"), 0);
    whole_ = read_file("../whole");
    fs::remove("../whole");
  }

  std::string whole_;
};

// Whichever way the system has of making a file, and at whatever moment the signal comes.
TEST_F(Interruption, leavesTheOldFileOrTheNewOne) {
  const std::string old = whole_.substr(0, 1024) + "old";
  int ended = 0;
  for (const std::string system : {"", "tmpfile", "linkat", "rename", "tmpfile rename"}) {
    const bool at_the_end = system.find("rename") != std::string::npos;
    for (int i = 0; i < (at_the_end ? 1 : 12); ++i) {
      write_file("map.ccp4", old);
      // From before the tool has begun to after its end, on fast machines and on slow ones.
      const std::string delay = std::to_string(0.001 * std::pow(1.45, i));
      const std::string limit =
          at_the_end ? "" : "timeout -s " + std::string(i % 2 ? "INT " : "TERM ") + delay + " ";
      (void)shell("(" + limit + "env " + refusing(system) + tool("map.ccp4") + ") >/dev/null 2>&1");
      const std::string left = read_file("map.ccp4");
      EXPECT_TRUE(left == old || left == whole_) << system << ' ' << i;
      EXPECT_EQ(listing(), "map.ccp4 ") << system << ' ' << i;
      ended += left == old ? 1 : 0;
    }
    EXPECT_EQ(shell("env " + refusing(at_the_end ? "" : system) + tool("map.ccp4") + " >/dev/null"),
              0);
    EXPECT_TRUE(read_file("map.ccp4") == whole_) << system;
  }
  EXPECT_GT(ended, 5);
}

TEST_F(Interruption, aLimitOnFilesIsAReportAndNoSignal) {
  write_file("map.ccp4", whole_);
  EXPECT_EQ(shell("(ulimit -f 16; " + tool("map.ccp4") + ") | cat >said; exit ${PIPESTATUS:-1}"),
            1);
  EXPECT_NE(read_file("said").find("Failed to write map data"), std::string::npos);
  EXPECT_EQ(shell("(ulimit -f 16; " + built + "quorix map '" + example + "' map.ccp4) >said 2>&1"),
            1);
  EXPECT_TRUE(read_file("map.ccp4") == whole_);
  fs::remove("said");
  EXPECT_EQ(listing(), "map.ccp4 ");
}

TEST_F(Interruption, whatIsPrintedAndLostIsAFailure) {
  write_file("map.ccp4", whole_);
  make("in.mtz");
  write_file("job.qx", "xverbose\nxend\n");
  const std::string model = "'" + std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.pdb'";
  for (const std::string& arguments : std::vector<std::string>{
           "map in.mtz", "map in.mtz --json", "map in.mtz -", "info in.mtz", "report map.ccp4",
           "batch in.mtz -o out", "run job.qx", "--help", "--version", "map --help",
           "fcalc " + model + " --dmin 8 -o fc.mtz"}) {
    EXPECT_EQ(shell(built + "quorix " + arguments + " >/dev/full 2>said"), 2) << arguments;
    EXPECT_NE(read_file("said").find("to standard output: No space"), std::string::npos)
        << arguments << read_file("said");
  }
  EXPECT_EQ(shell(tool("map.ccp4") + " >/dev/full 2>said"), 1);
  EXPECT_NE(read_file("said").find("quorix-map: cannot write"), std::string::npos);
  EXPECT_EQ(shell(built + "quorix-map --help >/dev/full 2>/dev/null"), 1);
  // Part of a map is none, and neither is a map to nowhere.
  EXPECT_EQ(shell("(" + built + "quorix map '" + example +
                  "' -; echo $? >status) 2>/dev/null | head -c 1"),
            0);
  EXPECT_EQ(read_file("status"), "2\n");
  EXPECT_EQ(shell(built + "quorix map in.mtz - >&- 2>said"), 2);
  EXPECT_NE(read_file("said").find("standard output is closed"), std::string::npos);
}

TEST_F(Interruption, aLineOfTheScriptThatIsNotThereEndsTheRun) {
  for (int line = 1; line <= 21; ++line) {
    const std::string number = std::to_string(line);
    EXPECT_EQ(
        shell("env QX_REFUSE_LINE=" + number + " " + refusing("") + tool("map.ccp4") + " >said"), 1)
        << line;
    EXPECT_EQ(fs::exists("map.ccp4"), line > 19) << line;  // the last section only ends
    EXPECT_NE(read_file("said").find("Failed to compose the section. "), std::string::npos);
  }
}

// The first files that a program opens must not become its standard streams.
TEST_F(Interruption, runsWithoutStandardStreams) {
  for (int i = 0; i < 12; ++i) make("in/x" + std::to_string(i) + ".mtz");
  for (const std::string streams : {">&- 2>&-", "<&- >&- 2>&-", "<&-"}) {
    fs::remove_all("out");
    EXPECT_EQ(shell(built + "quorix batch in -o out -j 4 -- --frac 0.3 " + streams), 0) << streams;
    std::string all = "done";
    for (int i = 1; i < 12; ++i) all += "|done";
    EXPECT_EQ(column("status"), all) << streams;
  }
  EXPECT_EQ(shell(tool("map.ccp4") + " <&- >&- 2>&-"), 0);
  EXPECT_TRUE(read_file("map.ccp4") == whole_);
}

}  // namespace
}  // namespace qx::test
