// quorix batch --maps: every data set with its own model.
#include "tool/batch_command.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace qx::test {
namespace {

namespace fs = std::filesystem;

class BatchMaps : public BatchCommand {
 protected:
  static void put(const std::string& example, const std::string& path) {
    fs::create_directories(fs::path(path).parent_path());
    fs::copy_file(fs::path(QUORIX_SOURCE_DIR) / "examples" / example, path);
  }
  // By name: its own coordinates among others; the only ones; none; two of other names.
  static void make_screen() {
    put("1ubq.mtz", "in/a/final.mtz");
    put("1ubq.pdb", "in/a/final.pdb");
    put("1ubq.pdb", "in/a/start.pdb");
    put("1ubq.mtz", "in/b/x.mtz");
    put("1ubq.pdb", "in/b/refined.pdb");
    put("1ubq.mtz", "in/c/alone.mtz");
    put("1ubq.mtz", "in/d/y.mtz");
    put("1ubq.pdb", "in/d/one.pdb");
    put("1ubq.pdb", "in/d/two.pdb");
    write_file("in/c/ligand.cif", "data_LIG\nloop_\n_chem_comp_atom.id\nC1\n");
  }
  static Arguments with_limit(Arguments arguments) {
    arguments.insert(arguments.end(), {"--", "--dmin", "3"});
    return arguments;
  }
};

TEST_F(BatchMaps, takesTheModelBesideTheData) {
  make_screen();
  const ProgramResult result = batch(with_limit({"in", "-o", "out", "--maps", "-j", "2"}));
  EXPECT_EQ(result.status, 1) << result.errors;
  const std::vector<Row> rows = table();
  ASSERT_EQ(rows.size(), 4U) << read_file("out/results.tsv");
  EXPECT_EQ(column("status"), "done|done|failed|failed");
  EXPECT_EQ(column("model"), "in/a/final.pdb|in/b/refined.pdb||");
  EXPECT_NE(rows[2].at("reason").find("no model stands beside the data"), std::string::npos);
  EXPECT_NE(rows[3].at("reason").find("one.pdb two.pdb"), std::string::npos);
  const ProgramResult alone =
      run_program("quorix", {"maps", "in/a/final.pdb", "in/a/final.mtz", "-o", "alone.mtz",
                             "--maps", "alone", "--dmin", "3", "--json"});
  ASSERT_EQ(alone.status, 0) << alone.errors;
  const auto json = nlohmann::json::parse(alone.output);
  for (const char* kind : {"_2mFo-DFc.ccp4", "_mFo-DFc.ccp4"}) {
    EXPECT_EQ(read_file(std::string("out/final/final") + kind),
              read_file(std::string("alone") + kind));
  }
  EXPECT_TRUE(fs::exists("out/final/final.mtz"));
  EXPECT_NEAR(std::stod(rows[0].at("r_work")), json["r"]["work"]["r"].get<double>(), 1e-4);
  EXPECT_NEAR(std::stod(rows[0].at("r_free")), json["r"]["free"]["r"].get<double>(), 1e-4);
  EXPECT_NEAR(std::stod(rows[0].at("rms")), json["maps"][0]["rms"].get<double>(), 1e-4);
  EXPECT_EQ(rows[0].at("coefficients"), "final/final.mtz");
  EXPECT_EQ(rows[0].at("space_group"), "P 21 21 21");
  EXPECT_NEAR(std::stod(rows[0].at("resolution")), 3.0, 0.01);
  EXPECT_FALSE(rows[0].at("grid").empty());
}

TEST_F(BatchMaps, oneModelForAllAndWhatResumeTakesOver) {
  put("1ubq.mtz", "in/x.mtz");
  put("1ubq.mtz", "in/y.mtz");
  put("1ubq.pdb", "models/x.pdb");
  put("1ubq.pdb", "models/y.pdb");
  const Arguments words = {"in", "-o", "out", "--maps", "--model", "models/{name}.pdb"};
  const auto again = [&](const char* option) {
    Arguments more = words;
    more.emplace_back(option);
    return batch(with_limit(more));
  };
  ASSERT_EQ(batch(with_limit(words)).status, 0);
  EXPECT_EQ(column("model"), "models/x.pdb|models/y.pdb");
  EXPECT_NE(again("--resume").output.find("2 of them taken over"), std::string::npos);
  std::ofstream("models/y.pdb", std::ios::app) << "REMARK changed\n";
  EXPECT_NE(again("--resume").output.find("1 of them taken over"), std::string::npos);
  // Maps of coefficients are not those of a model.
  EXPECT_EQ(batch({"in", "-o", "out", "--gather"}).status, 1);
  EXPECT_EQ(column("status"), "not done|not done");
  fs::remove("models/x.pdb");
  EXPECT_EQ(again("--overwrite").status, 1);
  EXPECT_EQ(column("status"), "failed|done");
  EXPECT_FALSE(fs::exists("out/x/x.mtz"));
}

TEST_F(BatchMaps, whatWouldFailForAllIsToldBeforeTheFirst) {
  put("1ubq.mtz", "in/x.mtz");
  const auto expect = [&](Arguments words, const std::string& text) {
    words.insert(words.begin(), {"in", "-o", "out"});
    const ProgramResult result = batch(words);
    EXPECT_EQ(result.status, 2) << result.output;
    EXPECT_NE(result.errors.find(text), std::string::npos) << result.errors;
    EXPECT_FALSE(fs::exists("out"));
  };
  expect({"--model", "m.pdb"}, "--model belongs to --maps");
  expect({"--maps", "--shared-grid"}, "--shared-grid is for maps of coefficients");
  expect({"--maps", "--", "--json"}, "cannot be handed on to quorix maps");
  expect({"--maps", "--", "--frac", "0.2"}, "behind --, options of quorix maps");
}

}  // namespace
}  // namespace qx::test
