// quorix batch --peaks: what the maps hold that the models do not.
#include "tool/batch_command.h"

#include <nlohmann/json.hpp>

namespace qx::test {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

class BatchPeaks : public BatchCommand {
 protected:
  static void put(const std::string& example, const std::string& path) {
    fs::create_directories(fs::path(path).parent_path());
    fs::copy_file(fs::path(QUORIX_SOURCE_DIR) / "examples" / example, path);
  }
  // The example's model without what a pattern of PDB lines names.
  static void put_without(const std::string& residues, const std::string& path) {
    std::istringstream in(read_file(fs::path(QUORIX_SOURCE_DIR) / "examples" / "1ubq.pdb"));
    std::string text;
    for (std::string line; std::getline(in, line);) {
      if (line.size() < 26 || line.compare(17, residues.size(), residues) != 0) text += line + '\n';
    }
    fs::create_directories(fs::path(path).parent_path());
    write_file(path, text);
  }
  static Json found(const Arguments& words) {
    const ProgramResult result = run_program("quorix", words);
    EXPECT_EQ(result.status, 0) << result.errors;
    return Json::parse(result.output);
  }
};

TEST_F(BatchPeaks, eachDataSetIsSearchedByItsOwnModel) {
  put("1ubq.mtz", "in/a/final.mtz");
  put("1ubq.pdb", "in/a/final.pdb");
  put("1ubq.mtz", "in/b/none.mtz");
  const Arguments words = {"in", "-o", "out", "--peaks", "-j", "2", "-q"};
  ASSERT_EQ(batch(words).status, 0);
  const std::vector<Row> rows = table();
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(column("model"), "in/a/final.pdb|");
  const Json alone =
      found({"peaks", "out/final/final_mFo-DFc.ccp4", "--model", "in/a/final.pdb", "--json"});
  const Json& first = alone["peaks"][0];
  ASSERT_GT(first["rms"].get<double>(), 0.0);
  EXPECT_EQ(rows[0].at("peak_near"), first["nearest"].get<std::string>());
  EXPECT_NEAR(std::stod(rows[0].at("peak_rms")), first["rms"].get<double>(), 0.006);
  EXPECT_NEAR(std::stod(rows[0].at("peak_distance")), first["distance"].get<double>(), 0.006);
  EXPECT_EQ(rows[0].at("peaks"), std::to_string(alone["peaks_found"].get<int>()));
  EXPECT_EQ(rows[1].at("peak_near"), "");
  EXPECT_EQ(rows[1].at("peak_rms"), rows[0].at("peak_rms"));
  EXPECT_TRUE(fs::exists("out/" + rows[0].at("sites")));
  EXPECT_TRUE(fs::exists("out/final/final_2mFo-DFc.ccp4"));

  // Results without peaks are not those with them, and the other way round.
  const auto again = [&](Arguments more) {
    more.emplace_back("--resume");
    return batch(more).output;
  };
  EXPECT_NE(again({"in", "-o", "out", "--peaks"}).find("2 of them taken over"), std::string::npos);
  EXPECT_NE(again({"in", "-o", "out"}).find("0 of them taken over"), std::string::npos);
  EXPECT_EQ(table()[0].at("peak_rms"), "");
  EXPECT_FALSE(fs::exists("out/final/final_sites.pdb"));
  EXPECT_NE(again({"in", "-o", "out", "--peaks"}).find("0 of them taken over"), std::string::npos);
  put_without("GLY", "in/a/final.pdb");  // another model
  EXPECT_NE(again({"in", "-o", "out", "--peaks"}).find("1 of them taken over"), std::string::npos);
}

TEST_F(BatchPeaks, whatIsNotInTheModelIsTheLargestBlob) {
  put("1ubq.mtz", "in/x.mtz");
  put_without("HIS", "models/x.pdb");
  const Arguments words = {"in", "-o", "out", "--maps", "--peaks", "--model", "models/{name}.pdb",
                           "-q"};
  ASSERT_EQ(batch(words).status, 0);
  const Row row = table().at(0);
  EXPECT_EQ(row.at("sites"), "x/x_sites.pdb");
  EXPECT_FALSE(row.at("r_work").empty());
  std::istringstream in(row.at("blob_xyz"));
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  ASSERT_TRUE(in >> x >> y >> z) << row.at("blob_xyz");
  // Its imidazole ring in the example's model.
  EXPECT_LT(std::hypot(x - 23.0, y - 36.0, z - 18.0), 4.0) << row.at("blob_xyz");
  const Json record = Json::parse(read_file("out/x/result.json"));
  EXPECT_EQ(record["found"]["input"], "x.mtz");
  EXPECT_EQ(record["found"]["unit"], "e/A^3");
}

TEST_F(BatchPeaks, aModelOfAnotherCrystalLeavesTheMapsWithoutPeaks) {
  put("1ubq.mtz", "in/a/x.mtz");
  std::string text = read_file(fs::path(QUORIX_SOURCE_DIR) / "examples" / "1ubq.pdb");
  text.replace(text.find("   50.840"), 9, "   70.840");
  write_file("in/a/x.pdb", text);
  put("1ubq.mtz", "in/b/y.mtz");
  const ProgramResult result = batch({"in", "-o", "out", "--peaks"});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.errors.find("x: no peaks: "), std::string::npos) << result.errors;
  EXPECT_EQ(column("status"), "done|done");
  const std::vector<Row> rows = table();
  EXPECT_NE(rows[0].at("reason").find("the model's cell is 70.84"), std::string::npos);
  EXPECT_TRUE(fs::exists("out/" + rows[0].at("difference_map")));
  for (const char* empty : {"peaks", "peak_rms", "blobs", "blob_xyz", "sites", "model"}) {
    EXPECT_EQ(rows[0].at(empty), "") << empty;
  }
  EXPECT_GT(std::stoi(rows[0].at("warnings")), std::stoi(rows[1].at("warnings")));
  EXPECT_EQ(rows[1].at("reason"), "");
  EXPECT_GT(std::stod(rows[1].at("peak_rms")), 4.0);
  // What has no peaks yet is tried again.
  const ProgramResult again = batch({"in", "-o", "out", "--peaks", "--resume"});
  EXPECT_NE(again.output.find("1 of them taken over"), std::string::npos) << again.output;
  EXPECT_EQ(batch({"in", "-o", "other", "--model", "in/a/x.pdb"}).status, 2);  // serves nothing
}

TEST_F(BatchPeaks, levelsAreThoseOfPeaks) {
  put("1ubq.mtz", "in/x.mtz");
  Arguments words = {"in", "-o", "out", "--peaks", "--level", "5.5", "--blob-level", "4"};
  ASSERT_EQ(batch(words).status, 0);
  const Json alone = found({"peaks", "out/x/x_mFo-DFc.ccp4", "--level", "5.5", "--blob-level", "4",
                            "--json", "-n", "10"});
  const Json record = Json::parse(read_file("out/x/result.json"));
  for (const char* same : {"peaks", "blobs", "peaks_found", "blobs_found"}) {
    EXPECT_EQ(record["found"][same], alone[same]) << same;
  }
  words.emplace_back("--resume");
  EXPECT_NE(batch(words).output.find("1 of them taken over"), std::string::npos);
  words[5] = "6";
  EXPECT_NE(batch(words).output.find("0 of them taken over"), std::string::npos);
  EXPECT_EQ(batch({"in", "-o", "other", "--level", "5"}).status, 2);  // without --peaks
  EXPECT_EQ(batch({"in", "-o", "other", "--peaks", "--level", "-1"}).status, 2);
}

}  // namespace
}  // namespace qx::test
