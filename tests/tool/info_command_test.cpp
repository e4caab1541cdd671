// quorix info: what it says about reflections and maps that are made, or counted, right here.
#include "support/engine.h"
#include "support/mtz_maker.h"
#include "support/program.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

namespace qx::test {
namespace {

using Json = nlohmann::json;

const std::string example = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.mtz";

Json info(const std::string& path) {
  const ProgramResult result = run_program("quorix", {"info", path, "--json"});
  EXPECT_EQ(result.status, 0) << path << result.errors << result.output;
  return result.status == 0 ? Json::parse(result.output) : Json();
}

std::string told(const std::string& path) {
  const ProgramResult result = run_program("quorix", {"info", path});
  EXPECT_EQ(result.status, 0) << result.errors;
  return result.output;
}

TEST(InfoCommand, countsWhatAReflectionFileHolds) {
  const auto indices = half_sphere(1, 2, 3);  // cell 10 x 20 x 30: a box within 5.8 A
  MtzMaker maker(indices);
  std::vector<float> f(indices.size());
  for (std::size_t i = 0; i < f.size(); ++i) f[i] = static_cast<float>(i) - 2.5F;
  f[4] = f[9] = NAN;
  maker.add("FWT", 'F', f).add("PHWT", 'P', std::vector<float>(f.size(), 7.0F));
  maker.add("FP", 'F', f).add("EMPTY", 'R', std::vector<float>(f.size(), NAN));
  const ScratchDirectory scratch;
  const std::string path = scratch.file("in.mtz");
  write_file(path, maker.bytes());
  const Json json = info(path);
  EXPECT_EQ(json["format"], "MTZ");
  EXPECT_EQ(json["title"], "made by the tests");
  EXPECT_EQ(json["reflections"], indices.size());
  EXPECT_EQ(json["cell"], Json({10.0, 20.0, 30.0, 90.0, 90.0, 90.0}));
  const double highest = std::sqrt(0.01 + 0.01 + 0.01);  // 1 2 3
  EXPECT_NEAR(json["resolution"][0], 1 / highest, 1e-6);
  EXPECT_NEAR(json["resolution"][1], 30.0, 1e-6);
  int points = 0;  // both Friedel mates
  for (int h = -9; h <= 9; ++h) {
    for (int k = -9; k <= 9; ++k) {
      for (int l = -9; l <= 9; ++l) {
        const double s = std::sqrt(h * h / 100.0 + k * k / 400.0 + l * l / 900.0);
        if (s > 0 && s <= highest + 1e-9) ++points;
      }
    }
  }
  EXPECT_EQ(json["reflections_expected"], points / 2);
  const Json column = json["columns"][3];
  EXPECT_EQ(column["label"], "FWT");
  EXPECT_EQ(column["missing"], 2);
  EXPECT_EQ(column["minimum"], -2.5);
  EXPECT_EQ(column["maximum"], static_cast<double>(f.back()));
  EXPECT_NEAR(column["completeness"], 2.0 * (static_cast<double>(f.size()) - 2) / points, 1e-9);
  EXPECT_FALSE(json["columns"][6].contains("minimum"));
  EXPECT_EQ(json["map_candidates"], Json::parse(R"([["FWT", "PHWT"]])"));
  EXPECT_EQ(json["default_map"], Json({"FWT", "PHWT"}));
  EXPECT_TRUE(json["default_difference_map"].is_null());
  EXPECT_NE(told(path).find("maps        FWT/PHWT (default)\n"), std::string::npos);
}

TEST(InfoCommand, knowsUnmergedData) {
  if (real_data().empty()) GTEST_SKIP();
  const std::string text = told((real_data() / "insulin_I23_unmerged_batches.mtz").string());
  EXPECT_NE(text.find("batches     45: unmerged data\n"), std::string::npos);
  EXPECT_NE(text.find("maps        none"), std::string::npos);
}

class InfoOfAMap : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(run_program("quorix", {"map", example, path_, "-q"}).status, 0);
    bytes_ = read_file(path_);
    ASSERT_EQ(bytes_.size(), data_ + 4 * 90 * 72 * 48);
  }
  // Reverses the bytes of every number, as a big-endian machine would write them.
  [[nodiscard]] std::string swapped(const char* stamp = "\x11\x11") const {
    std::string bytes = bytes_;
    for (std::size_t at = 0; at < bytes.size(); at += 4) {
      const bool text =
          (at >= 180 && at < 196) || at == 208 || at == 212 || (at >= 224 && at < data_);
      if (!text)
        std::reverse(bytes.begin() + static_cast<long>(at),
                     bytes.begin() + static_cast<long>(at) + 4);
    }
    return bytes.replace(212, 4, std::string(stamp) + std::string(2, '\0'));
  }

  static constexpr std::size_t data_ = 1024 + 320;
  ScratchDirectory scratch_;
  std::string path_ = scratch_.file("m.ccp4");
  std::string bytes_;
};

TEST_F(InfoOfAMap, saysWhatItsHeaderAndItsDensitySay) {
  const Json json = info(path_);
  EXPECT_EQ(json["points"], Json({90, 72, 48}));
  EXPECT_EQ(json["covers"], "the whole cell");
  EXPECT_EQ(json["axis_order"], "xyz");
  EXPECT_EQ(json["space_group"], "P 21 21 21");
  EXPECT_EQ(json["symmetry_records"].size(), 4U);
  EXPECT_EQ(json["origin"], "0 0 0");
  EXPECT_EQ(json["labels"], Json({"Map generated from Quorix", "Map type: 2mFo-DFc (FWT/PHWT)",
                                  "Density: scaled to rms 1 from 0.51622 e/A^3"}));
  double squares = 0;
  float highest = 0;
  for (std::size_t at = data_; at < bytes_.size(); at += 4) {
    float value = 0;
    std::memcpy(&value, bytes_.data() + at, 4);
    squares += static_cast<double>(value) * static_cast<double>(value);
    highest = std::max(highest, value);
  }
  const Json found = json["statistics"]["recomputed"];
  EXPECT_EQ(found["maximum"], static_cast<double>(highest));
  EXPECT_NEAR(found["rms_about_zero"], std::sqrt(squares / (90 * 72 * 48)), 1e-9);
  EXPECT_EQ(json["statistics"]["word_55"], "rms, about zero and about the mean alike");
  EXPECT_EQ(json["symmetry"]["obeyed"], true);
  EXPECT_GT(json["symmetry"]["correlation"], 0.999999);
  EXPECT_LT(json["symmetry"]["largest_difference"], 1e-4);
}

TEST_F(InfoOfAMap, tellsWhatWord55IsAlsoWhenTheMeanIsSmall) {
  double squares = 0;
  for (std::size_t at = data_; at < bytes_.size(); at += 4) {
    float value = 0;
    std::memcpy(&value, bytes_.data() + at, 4);
    value -= 0.0126F;
    squares += static_cast<double>(value) * static_cast<double>(value);
    std::memcpy(bytes_.data() + at, &value, 4);
  }
  const double about_zero = std::sqrt(squares / (90 * 72 * 48));
  const double about_mean = std::sqrt(about_zero * about_zero - 0.0126 * 0.0126);
  for (const auto& [word, said] :
       {std::pair{about_zero, "rms about zero"}, std::pair{about_mean, "deviation about the mean"},
        std::pair{2.0, "neither rms nor deviation of this density"}}) {
    const auto single = static_cast<float>(word);
    std::memcpy(bytes_.data() + 216, &single, 4);
    write_file(scratch_.file("shifted"), bytes_);
    EXPECT_EQ(info(scratch_.file("shifted"))["statistics"]["word_55"], said);
  }
}

TEST_F(InfoOfAMap, isTheSameSwappedAndPacked) {
  Json plain = info(path_);
  const std::string other = scratch_.file("other");
  write_file(other, swapped());
  Json json = info(other);
  EXPECT_EQ(json["byte_order"], "big-endian");
  json["byte_order"] = plain["byte_order"];
  json["file"] = plain["file"];
  EXPECT_EQ(json, plain);
  // Stamped as another machine's in one number format only: all of its words are read in one way.
  write_file(other, swapped("\x44\x11"));
  json = info(other);
  EXPECT_EQ(json["byte_order"], "big-endian");
  EXPECT_EQ(json["statistics"], plain["statistics"]);
  EXPECT_EQ(json["labels"], plain["labels"]);
  EXPECT_EQ(json["symmetry"], plain["symmetry"]);

  gzFile file = gzopen(other.c_str(), "wb");
  ASSERT_GT(gzwrite(file, bytes_.data(), static_cast<unsigned>(bytes_.size())), 0);
  gzclose(file);
  json = info(other);
  json["file"] = plain["file"];
  EXPECT_EQ(json, plain);
}

TEST_F(InfoOfAMap, seesADensityThatBreaksItsSymmetry) {
  // A third of the sections from elsewhere.
  const std::size_t section = 4 * 90 * 72;
  std::string bytes = bytes_;
  bytes.replace(data_, 16 * section, bytes_.substr(data_ + 20 * section, 16 * section));
  write_file(path_, bytes);
  EXPECT_EQ(info(path_)["symmetry"]["obeyed"], false);
  EXPECT_NE(told(path_).find("symmetry    NOT OBEYED"), std::string::npos);
  for (const char* record : {"A+B", "99999999999999999999*x,y,z", "x,2147483647/1,z"}) {
    std::string with = bytes_;
    write_file(path_, with.replace(1024 + 80, std::strlen(record), record));
    EXPECT_NE(told(path_).find("symmetry    not checked: "), std::string::npos) << record;
  }
}

TEST_F(InfoOfAMap, tellsWhatWord55Is) {
  if (real_data().empty()) GTEST_SKIP();
  const auto word = [](const char* name) {
    return info((real_data() / name).string())["statistics"]["word_55"];
  };
  EXPECT_EQ(word("EMD-3197_axes123.map"), "deviation about the mean");
  EXPECT_EQ(word("1mru_P21_asu_mode0.map"), "neither rms nor deviation of this density");
  EXPECT_EQ(word("iota_axes231.ccp4.gz"), "deviation about the mean");
}

TEST_F(InfoOfAMap, damagedFilesEndWithAReason) {
  const std::string other = scratch_.file("other");
  write_file(other, bytes_.substr(0, 5000));
  const ProgramResult cut = run_program("quorix", {"info", other});
  EXPECT_EQ(cut.status, 1);
  EXPECT_NE(cut.output.find("Failed to read map data "), std::string::npos);
  // Intervals and origin: words 5 to 10.
  for (std::size_t word = 5; word <= 10; ++word) {
    std::string bytes = bytes_;
    write_file(other, bytes.replace(4 * (word - 1), 4, "\xff\xff\xff\x7f"));
    for (const char* command : {"info", "report"}) {
      const ProgramResult result = run_program("quorix", {command, other});
      EXPECT_EQ(result.status, 1) << command << word;
      EXPECT_NE(result.output.find(word < 8 ? "Invalid map origin" : "Invalid grid intervals"),
                std::string::npos);
    }
  }
  write_file(other, "something else");
  EXPECT_EQ(run_program("quorix", {"info", other}).status, 2);
  EXPECT_EQ(run_program("quorix", {"info", scratch_.file("none")}).status, 2);
}

}  // namespace
}  // namespace qx::test
