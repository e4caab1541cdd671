// quorix batch: which data sets it finds, what it calls them, what it tells of those that fail.
#include "tool/batch_command.h"

#include <nlohmann/json.hpp>

namespace qx::test {
namespace {

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(BatchCommand, namesThatCollideAreToldApart) {
  for (const char* path : {"in/a/final.mtz", "in/b/final.mtz", "in/solo.mtz", "in/c/x.mtz",
                           "in/c/x.ent", "in/with space/\xc3\xbc.mtz", "in/with_space/\xc3\xbc.mtz",
                           "in/d/a_final.mtz", "in/results.tsv.mtz", "in/bad\xff.mtz"}) {
    make(path);
  }
  write_file("in/c/x.ent", "HEADER of coordinates\n");  // no reflections: not a data set
  write_file("in/c/ligand.cif", "data_LIG\nloop_\n_chem_comp_atom.id\nC1\n");
  make("in/.hidden/h.mtz");
  make("in/c/.h.mtz");
  make("in/out/earlier.mtz");
  std::filesystem::create_directory_symlink("..", "in/c/circle");
  std::filesystem::create_symlink("solo.mtz", "in/same.mtz");
  const ProgramResult result = batch({"in", "-o", "in/out"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_TRUE(has(result.errors, "in/solo.mtz is named twice")) << result.errors;
  EXPECT_EQ(column("name", "in/out/results.tsv"),
            "a_final|b_final|bad_|x|d_a_final|_results.tsv|same|\xc3\xbc|\xc3\xbc_2");
}

TEST_F(BatchCommand, listsHoldWhatPeopleWrite) {
  make("data/one.mtz");
  make("data/a b#c.mtz");
  make("data/sub/three.mtz");
  make("data/line\nbreak.mtz");
  write_file("data/list.txt",
             "\xef\xbb\xbf# today\r\n\r\n  one.mtz  # the first\r\na b#c.mtz\n./one.mtz\nsub\n"
             "tab\there.mtz");
  const ProgramResult result =
      batch({"data/list.txt", "data/line\nbreak.mtz", "-o", "out", "-j", "2"});
  EXPECT_EQ(result.status, 1) << result.errors;
  const std::vector<Row> rows = table();
  ASSERT_EQ(rows.size(), 5U) << read_file("out/results.tsv");
  EXPECT_EQ(column("status"), "done|done|done|failed|done");
  EXPECT_TRUE(has(rows[3].at("reason"), "data/tab\\there.mtz")) << rows[3].at("reason");
  EXPECT_TRUE(has(rows[4].at("input"), "data/line\\nbreak.mtz")) << rows[4].at("input");
  EXPECT_TRUE(has(result.errors, "./one.mtz is named twice")) << result.errors;
}

TEST_F(BatchCommand, makesTheMapsOfQuorixMapAndTellsWhatItSays) {
  make("in/x.mtz");
  ASSERT_EQ(batch({"in", "-o", "out", "--", "--frac", "0.25", "--no-scale"}).status, 0);
  const ProgramResult alone =
      run_program("quorix", {"map", "in/x.mtz", "--frac", "0.25", "--no-scale", "--json"});
  ASSERT_EQ(alone.status, 0) << alone.errors;
  for (const std::string kind : {"2mFo-DFc", "mFo-DFc"}) {
    EXPECT_EQ(read_file("out/x/x_" + kind + ".ccp4"), read_file("x_" + kind + ".ccp4")) << kind;
  }
  const auto said = nlohmann::json::parse(alone.output);
  const auto row = nlohmann::json::parse(read_file("out/results.json")).at(0);
  EXPECT_EQ(row["rms"], said[0]["rms_about_zero"]);
  EXPECT_EQ(row["rms_difference"], said[1]["rms_about_zero"]);
  EXPECT_EQ(row["resolution"], said[0]["resolution"][0]);
  EXPECT_EQ(row["grid"], said[0]["grid"]);
  EXPECT_EQ(row["reflections"], said[0]["reflections_used"]);
  EXPECT_EQ(row["map"], "x/x_2mFo-DFc.ccp4");
  EXPECT_EQ(row["difference_map"], "x/x_mFo-DFc.ccp4");

  write_file("m.pdb",
             "ATOM      1  CA  ALA A   1       1.000   2.000   3.000  1.00 20.00           C  \n");
  const Arguments handed_on = {"in",           "-o",        "more",     "--",    "--check",
                               "--provenance", "--scripts", "--extent", "model", "m.pdb"};
  ASSERT_EQ(batch(handed_on).status, 0);
  const std::string script = read_file("more/x/x_coot.py");
  EXPECT_TRUE(has(script, "(folder, \"x_mFo-DFc.ccp4\")")) << script;
  EXPECT_TRUE(has(script, "(folder, \"../../m.pdb\")")) << script;
  EXPECT_TRUE(has(read_file("more/x/result.json"), "largest_deviation_rms"));
}

TEST_F(BatchCommand, oneThatFailsStopsNoOther) {
  for (const char* name : {"in/a.mtz", "in/b.mtz", "in/c.mtz", "in/d.mtz", "in/e.mtz"}) make(name);
  write_file("in/b.mtz", read_file("in/a.mtz").substr(0, 700));
  const auto indices = half_sphere(1, 1, 1);
  MtzMaker odd(indices);
  odd.add("FC", 'F', std::vector<float>(indices.size(), 1.0F));
  odd.add("PHIC", 'P', std::vector<float>(indices.size(), 1.0F));
  write_file("in/c.mtz", odd.bytes());
  write_file("in/d.mtz", "");
  const ProgramResult result = batch({"in", "-o", "out", "-j", "2"});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(has(result.output, "5 data sets, 2 done, 3 failed")) << result.output;
  EXPECT_EQ(column("status"), "done|failed|failed|failed|done");
  const std::vector<Row> rows = table();
  EXPECT_TRUE(has(rows[2].at("reason"), "in/c.mtz has none of the pairs")) << rows[2].at("reason");
  EXPECT_TRUE(has(rows[3].at("reason"), "neither an MTZ")) << rows[3].at("reason");
  for (const Row& row : {rows[1], rows[2], rows[3]}) {
    EXPECT_FALSE(row.at("reason").empty());
    EXPECT_TRUE(has(result.errors, row.at("name") + ": " + row.at("reason"))) << result.errors;
    EXPECT_TRUE(row.at("map").empty());
  }
  EXPECT_TRUE(has(read_file("out/c/log.txt"), "FC/PHIC"));  // the advice behind the reason
  EXPECT_FALSE(std::filesystem::exists("out/c/.work"));
}

TEST_F(BatchCommand, aChildThatHangsOrCrashesIsRecorded) {
  make_large(2);
  ASSERT_EQ(batch(fine({"large", "-o", "late", "--timeout", "0.001"})).status, 1);
  EXPECT_EQ(column("status", "late/results.tsv"), "timed out|timed out");
  EXPECT_EQ(column("reason", "late/results.tsv"), "no end after 0.001 s|no end after 0.001 s");
  // A limit that the maps exceed and nothing else does.
  const std::string command = "ulimit -f 200; ZENVI_DATA='" + data_directory().string() + "' '" +
                              QUORIX_BINARY_DIR + "/bin/quorix' batch large -q -o out";
  const int status = std::system(("bash -c \"" + command + "\"").c_str());
  EXPECT_EQ(WEXITSTATUS(status), 1);
  const std::string reason = "Failed to write map data: is the disk full?";
  EXPECT_EQ(column("reason"), reason + "|" + reason);
  EXPECT_FALSE(std::filesystem::exists("out/x0/.work"));
  std::vector<pid_t> children;
  Background crashing({"large", "-o", "crashed", "-j", "2", "--", "--spacing", "0.2"});
  ASSERT_TRUE(eventually([&] { return (children = crashing.children()).size() == 2; }));
  for (const pid_t child : children) kill(child, SIGSEGV);
  EXPECT_EQ(crashing.end(0), 1);
  EXPECT_EQ(column("reason", "crashed/results.tsv"),
            "ended by signal SIGSEGV|ended by signal SIGSEGV");
}

TEST_F(BatchCommand, dataSetsOfAGroupShareAGrid) {
  make("in/a.mtz", "10 12 20 90 90 90");
  make("in/b.mtz", "15 12 14 90 90 90");
  write_file("in/broken.mtz", "MTZ ");
  const auto indices = half_sphere(3, 3, 3);
  MtzMaker other(indices);
  other.symmetry = "4 2 P 19 'P 21 21 21' PG222";
  other.operators = {"X,Y,Z", "1/2-X,-Y,1/2+Z", "-X,1/2+Y,1/2-Z", "1/2+X,1/2-Y,-Z"};
  other.add("FWT", 'F', std::vector<float>(indices.size(), 1.0F));
  other.add("PHWT", 'P', std::vector<float>(indices.size(), 0.0F));
  write_file("in/other.mtz", other.bytes());
  const Arguments frac = {"--", "--frac", "0.2"};
  const auto with = [&](Arguments arguments) {
    arguments.insert(arguments.end(), frac.begin(), frac.end());
    return batch(arguments);
  };
  ASSERT_EQ(with({"in", "-o", "apart"}).status, 1);
  const std::vector<Row> apart = table("apart/results.tsv");
  ASSERT_EQ(apart.size(), 4U);
  int largest[3] = {};
  for (const std::size_t i : {0U, 1U}) {
    std::istringstream counts(apart[i].at("grid"));
    for (int& most : largest) {
      int n = 0;
      counts >> n;
      most = std::max(most, n);
    }
  }
  std::ostringstream expected;
  expected << largest[0] << ' ' << largest[1] << ' ' << largest[2];
  EXPECT_NE(apart[0].at("grid"), apart[1].at("grid"));

  ASSERT_EQ(with({"in", "-o", "out", "--shared-grid"}).status, 1);
  const std::vector<Row> rows = table();
  EXPECT_EQ(rows[0].at("grid"), expected.str());
  EXPECT_EQ(rows[1].at("grid"), expected.str());
  EXPECT_EQ(rows[2].at("status"), "failed");
  EXPECT_EQ(rows[3].at("grid"), apart[3].at("grid"));  // a group of its own
  const auto before = contents("out");
  const ProgramResult again = with({"in", "-o", "out", "--shared-grid", "--resume"});
  EXPECT_TRUE(has(again.output, "3 of them taken over")) << again.output;
  EXPECT_EQ(contents("out"), before);
  // A part knows the grid of the whole.
  EXPECT_EQ(with({"in", "-o", "parts", "--shared-grid", "--range", "1/4"}).status, 0);
  EXPECT_EQ(column("grid", "parts/results.1-of-4.tsv"), expected.str());
}

TEST_F(BatchCommand, refusesWhatCannotWorkBeforeAnythingRuns) {
  make("in/x.mtz");
  make("--help.mtz");
  const struct {
    Arguments arguments;
    const char* text;
  } cases[] = {
      {{"in", "-o", "out", "--", "other.ccp4"}, "other.ccp4 cannot be handed on"},
      {{"in", "-o", "out", "--", "-"}, "- cannot be handed on"},
      {{"in", "-o", "out", "--", "--json"}, "--json cannot be handed on"},
      {{"in", "-o", "out", "--", "--show-grid"}, "--show-grid cannot"},
      {{"in", "-o", "out", "--", "--print-sections"}, "--print-sections cannot"},
      {{"in", "-o", "out", "--", "--frac", "0.9"}, "--frac"},
      {{"in", "-o", "out", "--", "--no-such"}, "--no-such"},
      {{"in", "-o", "out", "--shared-grid", "--", "--grid", "8", "8", "8"}, "--shared-grid"},
      {{"in", "-o", "out", "--range", "3/2"}, "--range takes I/N"},
      {{"in", "-o", "out", "--range", "1/2x"}, "--range takes I/N"},
      {{"in", "-o", "out", "-j", "0"}, "--jobs"},
      {{"gone", "-o", "out"}, "there is no file or folder gone"},
      {{"in", "-o", "in"}, "no data sets"},
      {{"in", "-o", "in/x.mtz/out"}, "cannot make"},
      {{"in", "-o", "/proc/self"}, "cannot write in /proc/self"},
  };
  for (const auto& [arguments, text] : cases) {
    const ProgramResult result = batch(arguments);
    EXPECT_EQ(result.status, 2) << text;
    EXPECT_TRUE(has(result.errors, text)) << text << ": " << result.errors << result.output;
  }
  EXPECT_FALSE(std::filesystem::exists("out"));
  EXPECT_EQ(batch({"./--help.mtz", "-o", "out"}).status, 0);
  write_file("binary", std::string("\1\0\2\n", 4));
  EXPECT_TRUE(has(batch({"binary", "-o", "new"}).errors, "neither a reflection file nor a list"));
}

}  // namespace
}  // namespace qx::test
