// quorix batch interrupted, resumed, and divided among processes.
#include "tool/batch_command.h"

namespace qx::test {
namespace {

namespace fs = std::filesystem;

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

bool any_record(const std::string& folder) {
  std::error_code error;
  for (const auto& entry : fs::recursive_directory_iterator(folder, error)) {
    if (entry.path().filename() == "result.json") return true;
  }
  return false;
}

bool is_running(pid_t process) {
  const std::string state = read_file("/proc/" + std::to_string(process) + "/stat");
  return !state.empty() && state.find(") Z") == std::string::npos;
}

class Resume : public BatchCommand {};

TEST_F(Resume, afterAKillTheResultsAreThoseOfARunInOnePiece) {
  make_large(12);
  ASSERT_EQ(batch(fine({"large", "-o", "whole"})).status, 0);
  {
    Background killed(fine({"large", "-o", "out", "-j", "2", "-q"}));
    ASSERT_TRUE(eventually([] { return any_record("out"); }));
    EXPECT_EQ(killed.end(SIGKILL), -SIGKILL);
  }
  EXPECT_FALSE(fs::exists("out/results.tsv"));
  EXPECT_EQ(batch(fine({"large", "-o", "out"})).status, 2);  // told to choose
  const ProgramResult resumed = batch(fine({"large", "-o", "out", "--resume"}));
  EXPECT_EQ(resumed.status, 0) << resumed.errors;
  EXPECT_FALSE(has(resumed.output, " 0 of them taken over")) << resumed.output;
  EXPECT_FALSE(has(resumed.output, " 12 of them taken over")) << resumed.output;
  EXPECT_EQ(contents("out"), contents("whole"));
}

TEST_F(Resume, childrenDoNotOutliveTheBatch) {
  make_large(2);
  std::vector<pid_t> children;
  Background killed({"large", "-o", "out", "-j", "2", "-q", "--", "--spacing", "0.15"});
  ASSERT_TRUE(eventually([&] { return (children = killed.children()).size() == 2; }));
  // They share the processors already; before it is the program a child has its parent's words.
  EXPECT_TRUE(eventually([&] {
    const std::string words = read_file("/proc/" + std::to_string(children.front()) + "/environ");
    return has(words, std::string("QUORIX_THREADS=1") + '\0');
  }));
  EXPECT_EQ(killed.end(SIGKILL), -SIGKILL);
  for (const pid_t child : children) EXPECT_TRUE(eventually([&] { return !is_running(child); }));
  for (const auto& entry : fs::recursive_directory_iterator("out")) {
    EXPECT_NE(entry.path().extension(), ".ccp4");  // nor write into the next one
  }
}

TEST_F(Resume, anInterruptedRunLeavesATableAndNothingHalf) {
  make_large(40);
  for (const int signal : {SIGINT, SIGTERM}) {
    Background run(fine({"large", "-o", "out", "-j", "2", "--overwrite"}));
    ASSERT_TRUE(eventually([] { return any_record("out"); }));
    EXPECT_EQ(run.end(signal), 128 + signal);
    const std::string statuses = column("status");
    EXPECT_TRUE(has(statuses, "done|")) << statuses;
    EXPECT_TRUE(has(statuses, "not done")) << statuses;
    EXPECT_EQ(table().size(), 40U);
    for (const auto& entry : fs::recursive_directory_iterator("out")) {
      EXPECT_NE(entry.path().filename(), ".work");
    }
    for (const Row& row : table()) {
      EXPECT_EQ(fs::exists("out/" + row.at("name") + "/" + row.at("name") + "_mFo-DFc.ccp4"),
                row.at("status") == "done");
    }
    fs::remove_all("out");
  }
}

TEST_F(Resume, trustsOnlyWhatIsWholeAndOfTheSameInputAndOptions) {
  for (const char* name : {"in/a.mtz", "in/b.mtz", "in/c.mtz"}) make(name);
  write_file("in/d.mtz", "no reflections");
  ASSERT_EQ(batch({"in", "-o", "out"}).status, 1);
  const auto first = contents("out");
  const auto resume = [](Arguments options = {}) {
    options.insert(options.begin(), {"in", "-o", "out", "--resume"});
    return batch(options).output;
  };
  EXPECT_TRUE(has(resume(), "3 done, 1 failed, 3 of them taken over"));

  const std::string map = "out/a/a_2mFo-DFc.ccp4";
  const std::string bytes = read_file(map);
  const std::string damages[] = {bytes.substr(0, bytes.size() - 4), bytes.substr(0, 100),
                                 std::string(bytes.size(), '\0')};
  for (const std::string& damaged : damages) {
    write_file(map, damaged);
    EXPECT_TRUE(has(resume(), "3 done, 1 failed, 2 of them taken over")) << damaged.size();
    EXPECT_EQ(contents("out"), first);
  }
  fs::remove(map);
  EXPECT_TRUE(has(resume(), "2 of them taken over"));
  for (const char* record : {"", "{\"status\": \"done\"}", "{\"status\": 3", "[1]", "null"}) {
    write_file("out/b/result.json", record);
    EXPECT_TRUE(has(resume(), "2 of them taken over")) << record;
  }
  EXPECT_EQ(contents("out"), first);

  fs::last_write_time("in/c.mtz", fs::last_write_time("in/c.mtz") + std::chrono::nanoseconds(1000));
  EXPECT_TRUE(has(resume(), "2 of them taken over"));
  make("in/d.mtz");  // what failed is tried again
  EXPECT_TRUE(has(resume(), "4 data sets, 4 done, 3 of them taken over"));
  EXPECT_FALSE(fs::exists("out/d/log.txt"));
  EXPECT_TRUE(has(resume({"--", "--difference"}), "4 done, 0 of them taken over"));
  EXPECT_FALSE(fs::exists("out/a/a_2mFo-DFc.ccp4"));  // no map without its record
  write_file("out/a/mine.ccp4", "kept");
  EXPECT_TRUE(has(resume(), "4 done, 0 of them taken over"));
  EXPECT_EQ(read_file("out/a/mine.ccp4"), "kept");
}

TEST_F(Resume, aFileThatAnOptionNamesCountsAsInput) {
  make("in/a.mtz");
  const std::string atom =
      "ATOM      1  CA  GLY A   1       5.000   5.000   5.000  1.00 20.00           C\n";
  write_file("model.pdb", atom + "END\n");
  const Arguments options = {"in", "-o", "out", "--resume", "--", "--extent", "model", "model.pdb"};
  ASSERT_EQ(batch(options).status, 0);
  EXPECT_TRUE(has(batch(options).output, "1 of them taken over"));
  write_file("model.pdb", "REMARK moved\n" + atom + "END\n");
  EXPECT_TRUE(has(batch(options).output, "0 of them taken over"));
}

TEST_F(Resume, partsMakeTheWhole) {
  for (int i = 0; i < 7; ++i) make("in/x" + std::to_string(i) + ".mtz");
  write_file("in/x3.mtz", "no reflections");
  ASSERT_EQ(batch({"in", "-o", "whole"}).status, 1);
  {
    Background first({"in", "-o", "out", "--range", "1/3", "-q"});
    Background second({"in", "-o", "out", "--range", "2/3", "-q"});
    EXPECT_EQ(first.end(0), 0);
    EXPECT_EQ(second.end(0), 1);
  }
  EXPECT_EQ(batch({"in", "-o", "out", "--gather"}).status, 1);
  EXPECT_EQ(column("status"), "done|done|done|failed|not done|not done|not done");
  EXPECT_EQ(batch({"in", "-o", "out", "--range", "3/3"}).status, 0);
  EXPECT_EQ(batch({"in", "-o", "out", "--range", "3/3"}).status, 2);
  EXPECT_EQ(batch({"in", "-o", "out", "--gather"}).status, 1);
  std::string names;
  for (const char* part : {"1", "2", "3"}) {
    const std::string path = std::string("out/results.") + part + "-of-3.tsv";
    names += column("name", path) + "|";
  }
  EXPECT_EQ(names, "x0|x1|x2|x3|x4|x5|x6|");
  EXPECT_EQ(contents("out"), contents("whole"));
  // More parts than data sets: some have nothing to do.
  EXPECT_EQ(batch({"in/x0.mtz", "-o", "few", "--range", "1/2"}).status, 0);
  EXPECT_EQ(batch({"in/x0.mtz", "-o", "few", "--range", "2/2"}).status, 0);
}

TEST_F(Resume, noTwoBatchesWorkOnTheSameDataSets) {
  make_large(4);
  Background run({"large", "-o", "out", "--range", "1/2", "-q", "--", "--spacing", "0.15"});
  ASSERT_TRUE(eventually([] { return fs::exists("out/x0/.work"); }));
  run.pause();
  for (const Arguments& range : {Arguments{"--range", "1/2"}, {"--range", "2/4"}, {}}) {
    Arguments arguments = {"large", "-o", "out", "--resume"};
    arguments.insert(arguments.end(), range.begin(), range.end());
    const ProgramResult result = batch(fine(arguments));
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(has(result.errors, "another batch is at work")) << result.errors;
  }
  EXPECT_EQ(batch({"large", "-o", "out", "--range", "2/2"}).status, 0);
  EXPECT_EQ(run.end(SIGKILL), -SIGKILL);
  EXPECT_EQ(batch({"large", "-o", "out", "--range", "1/2", "--resume"}).status, 0);
}

}  // namespace
}  // namespace qx::test
