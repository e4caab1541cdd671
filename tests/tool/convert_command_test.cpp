// quorix convert: through every format and back, as other libraries read them; merging; refusals.
#include "support/mtz_columns.h"
#include "support/mtz_command.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace qx::test {
namespace {

using Json = nlohmann::json;
using Index = std::vector<int>;

class ConvertCommand : public MtzCommand {
 protected:
  ConvertCommand() : MtzCommand("convert") {}
  static std::vector<Index> indices() {
    std::vector<Index> all;
    for (int h = 1; h < 8; ++h) {
      for (int k = 1; k < 8; ++k) {
        for (int l = 1; l < 9; ++l) all.push_back({h, k, l});
      }
    }
    return all;
  }
  static MtzMaker in_group(const std::vector<Index>& rows) {
    MtzMaker maker(rows);
    maker.cell = "40 50 60 90 90 90";
    maker.symmetry = "4 4 P 19 'P 21 21 21' PG222";
    maker.operators = {"X,Y,Z", "1/2-X,-Y,1/2+Z", "-X,1/2+Y,1/2-Z", "1/2+X,1/2-Y,-Z"};
    return maker;
  }
  static MtzMaker merged() {
    const auto rows = indices();
    MtzMaker maker = in_group(rows);
    maker.history = {"first"};
    std::mt19937 random(3);
    std::uniform_real_distribution<float> value(1.0F, 5000.0F);
    const struct {
      const char* label;
      char type;
    } columns[] = {{"IMEAN", 'J'},   {"SIGIMEAN", 'Q'}, {"I(+)", 'K'},
                   {"SIGI(+)", 'M'}, {"I(-)", 'K'},     {"SIGI(-)", 'M'}};
    for (const auto& c : columns) {
      std::vector<float> values(rows.size());
      for (float& v : values) v = std::round(10 * value(random)) / 10;
      maker.add(c.label, c.type, values);
    }
    for (const std::size_t c : {7U, 8U}) maker.columns[c].values[5] = NAN;
    std::vector<float> flags(rows.size());
    for (std::size_t i = 0; i < flags.size(); ++i) flags[i] = static_cast<float>(i % 20);
    maker.add("FREE", 'I', flags);
    return maker;
  }
};

TEST_F(ConvertCommand, otherLibrariesReadWhatItWritesAndItReadsItself) {
  const std::string in = save(merged(), "in.mtz");
  std::string written;
  for (const char* ending : {"cif", "cns", "hkl", "sca", "ref"}) {
    const std::string out = scratch_.file(std::string("out.") + ending);
    const Json json = json_of({in, out});
    ASSERT_FALSE(json.is_null());
    EXPECT_FALSE(json["not_held"].empty());
    written += " '" + out + "'";
    const std::string back = scratch_.file(std::string("back_") + ending + ".mtz");
    std::vector<std::string> words = {out, back};
    if (std::string(ending) == "hkl") {
      EXPECT_NE(run(words).errors.find("HKL input has no cell: give --cell"), std::string::npos);
      words.insert(words.end(),
                   {"--cell", "40", "50", "60", "90", "90", "90", "--spacegroup", "P212121"});
    }
    const Json again = json_of(words);
    ASSERT_FALSE(again.is_null()) << ending;
    EXPECT_EQ(again["crystal"], "40 50 60 A, 90 90 90 degrees, P 21 21 21") << ending;
    const bool told = std::string(ending) == "hkl" || std::string(ending) == "sca";
    EXPECT_NEAR(again["wavelength"].get<double>(), told ? 0.0 : 0.9793, 1e-5) << ending;
    const bool mates = std::string(ending) == "sca";
    const auto value = column_of(back, mates                          ? "I(+)"
                                       : std::string(ending) == "hkl" ? "I"
                                                                      : "IMEAN");
    const auto first = column_of(in, mates ? "I(+)" : "IMEAN");
    // CNS has no parentheses, and names of its own.
    ASSERT_EQ(value.size(), first.size()) << ending;
    for (std::size_t i = 0; i < value.size(); ++i) EXPECT_NEAR(value[i], first[i], 0.051) << ending;
    const auto history = Json::parse(run_program("quorix", {"info", back, "--json"}).output);
    EXPECT_NE(history["history"][0].get<std::string>().find("quorix convert: from"),
              std::string::npos);
  }
  const std::string command = "/usr/bin/python3 '" + std::string(QUORIX_SOURCE_DIR) +
                              "/tests/tool/check_tables.py' '" + in + "'" + written + " >'" +
                              scratch_.file("log") + "' 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0) << read_file(scratch_.file("log"));
  // The free set says the same everywhere.
  const auto cns = column_of(scratch_.file("back_cns.mtz"), "TEST");
  const auto hkl = column_of(scratch_.file("back_hkl.mtz"), "FreeR_flag");
  for (std::size_t i = 0; i < cns.size(); ++i) {
    EXPECT_EQ(cns[i], i % 20 == 0 ? 1.0F : 0.0F);
    EXPECT_EQ(hkl[i], i % 20 == 0 ? -1.0F : 1.0F);
  }
}

// Observations with a known scatter about known intensities.
TEST_F(ConvertCommand, mergesObservationsAndTellsHowTheyAgree) {
  constexpr int times = 8;
  constexpr double error = 40.0;
  const auto unique = indices();
  std::mt19937 random(7);
  std::normal_distribution<double> scatter(0.0, error);
  std::exponential_distribution<double> wilson(1.0 / 100.0);
  std::vector<Index> rows;
  std::vector<float> isym, batch, value, sigma, truth;
  for (const Index& hkl : unique) {
    const double intensity = wilson(random) + 20;
    for (int n = 0; n < times; ++n) {
      rows.push_back(hkl);
      isym.push_back(static_cast<float>(1 + n));  // even ones are of the Friedel mate
      batch.push_back(1.0F);
      value.push_back(static_cast<float>(intensity + scatter(random)));
      sigma.push_back(static_cast<float>(error * (n < 4 ? 1.0 : 2.0)));
    }
  }
  MtzMaker maker = in_group(rows);
  maker.add("M/ISYM", 'Y', isym).add("BATCH", 'B', batch).add("I", 'J', value);
  maker.add("SIGI", 'Q', sigma);
  MadeBatch header = {1, "one", std::vector<std::int32_t>(29), std::vector<float>(156)};
  header.integers[0] = 185;
  header.integers[1] = 29;
  header.integers[2] = 156;
  header.integers[20] = 1;
  const float cell[6] = {40, 50, 60, 90, 90, 90};
  std::copy_n(cell, 6, header.reals.begin());
  maker.batches = {header};
  maker.extra = {"BATCH      1"};
  const std::string in = save(maker, "unmerged.mtz");
  const std::string out = scratch_.file("merged.mtz");
  EXPECT_NE(run({in, scratch_.file("x.sca")}).errors.find("--merge merges them"),
            std::string::npos);
  const Json json = json_of({in, out, "--merge", "--anomalous", "--shells", "3"});
  ASSERT_FALSE(json.is_null());
  const auto mean = column_of(out, "IMEAN"), sig = column_of(out, "SIGIMEAN");
  const auto plus = column_of(out, "I(+)"), minus = column_of(out, "I(-)");
  ASSERT_EQ(mean.size(), unique.size());
  double deviation = 0, meas = 0, pim = 0, sum = 0;
  for (std::size_t i = 0; i < unique.size(); ++i) {
    double w = 0, wi = 0, wp = 0, wpi = 0;
    for (std::size_t n = 0; n < times; ++n) {
      const std::size_t at = times * i + n;
      const double weight = 1.0 / std::pow(static_cast<double>(sigma[at]), 2);
      w += weight;
      wi += weight * value[at];
      if (n % 2 == 0) wp += weight, wpi += weight * value[at];
    }
    EXPECT_NEAR(mean[i], wi / w, 1e-3);
    EXPECT_NEAR(sig[i], 1 / std::sqrt(w), 1e-3);
    EXPECT_NEAR(plus[i], wpi / wp, 1e-3);
    EXPECT_NEAR(minus[i], (wi - wpi) / (w - wp), 1e-3);
    for (std::size_t n = 0; n < times; ++n) {
      deviation += std::fabs(value[times * i + n] - wi / w);
      sum += value[times * i + n];
    }
  }
  meas = deviation * std::sqrt(8.0 / 7.0);
  pim = deviation * std::sqrt(1.0 / 7.0);
  const Json& all = json["merging"]["overall"];
  EXPECT_NEAR(all["r_merge"].get<double>(), deviation / sum, 1e-5);
  EXPECT_NEAR(all["r_meas"].get<double>(), meas / sum, 1e-5);
  EXPECT_NEAR(all["r_pim"].get<double>(), pim / sum, 1e-5);
  EXPECT_EQ(all["multiplicity"], times);
  EXPECT_EQ(all["unique"], unique.size());
  EXPECT_EQ(json["merging"]["shells"].size(), 3U);
  // The correlation of halves drawn at random, many times.
  double correlation = 0;
  constexpr int draws = 40;
  for (int draw = 0; draw < draws; ++draw) {
    double x = 0, y = 0, xx = 0, yy = 0, xy = 0;
    for (std::size_t i = 0; i < unique.size(); ++i) {
      auto first = value.begin() + static_cast<std::ptrdiff_t>(times * i);
      std::shuffle(first, first + times, random);
      double a = 0, b = 0;
      for (int n = 0; n < times; ++n) (n < times / 2 ? a : b) += first[n];
      x += a, y += b, xx += a * a, yy += b * b, xy += a * b;
    }
    const auto n = static_cast<double>(unique.size());
    correlation += (xy - x * y / n) / std::sqrt((xx - x * x / n) * (yy - y * y / n)) / draws;
  }
  EXPECT_NEAR(all["cc_half"].get<double>(), correlation, 0.01);
}

// What other commands make of the formats that are converted: they read them by the same road.
TEST_F(ConvertCommand, otherCommandsReadTablesThatTellTheirCrystal) {
  const std::string in = save(merged(), "in.mtz");
  const Json whole = Json::parse(run_program("quorix", {"info", in, "--json"}).output);
  for (const char* format : {"cns", "sca", "dtr", "hkl"}) {
    const std::string table = scratch_.file("in." + std::string(format));
    ASSERT_EQ(run({in, table, "--to", format}).status, 0) << format;
    const ProgramResult told = run_program("quorix", {"info", table, "--json"});
    ASSERT_EQ(told.status, 0) << told.output << told.errors;
    const Json json = Json::parse(told.output);
    EXPECT_EQ(json["reflections"], whole["reflections"]) << format;
    EXPECT_GE(json["columns"].size(), 5U) << format;
    const bool crystal = std::string(format) != "hkl";
    EXPECT_EQ(json["space_group"], crystal ? "P 21 21 21" : "") << format;
    ASSERT_EQ(json["cell"].is_null(), !crystal) << format;
    ASSERT_EQ(json["resolution"].is_null(), !crystal) << format;
    if (crystal) {
      EXPECT_NEAR(json["resolution"][0], whole["resolution"][0], 1e-3) << format;
    }
    const std::string lines = run_program("quorix", {"info", table}).output;
    EXPECT_EQ(lines.find("cell        not told") == std::string::npos, crystal) << lines;
    if (std::string(format) == "sca") continue;  // of Friedel mates
    EXPECT_EQ(run_program("quorix", {"stats", table}).status, crystal ? 0 : 2) << format;
  }
}

TEST_F(ConvertCommand, aTableWithoutACrystalIsRefusedWithWhatToType) {
  const std::string examples = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq";
  const std::string model = examples + ".pdb", table = scratch_.file("x.hkl");
  const std::string out = scratch_.file("out");
  ASSERT_EQ(run({examples + ".mtz", table, "-q"}).status, 0);
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"map", table, "--prefix", out},
                                             {"maps", model, table, "-o", out},
                                             {"fcalc", model, "--hkl", table, "-o", out},
                                             {"report", table, model, "-o", out},
                                             {"stats", table},
                                             {"peaks", table}}) {
    const ProgramResult r = run_program("quorix", words);
    EXPECT_EQ(r.status, 2) << words[0];
    EXPECT_NE(r.errors.find("quorix convert " + table +
                            " x.mtz --cell A B C ALPHA BETA GAMMA --spacegroup NAME"),
              std::string::npos)
        << words[0] << r.errors;
  }
  write_file(scratch_.file("cut.hkl"),
             "   1   2   3   10.00    1.00\n   1   2   4   10.00    1.00\n"
             "   1   2   5   1x.00    1.00\n");
  const ProgramResult cut = run_program("quorix", {"info", scratch_.file("cut.hkl")});
  EXPECT_EQ(cut.status, 2);
  EXPECT_NE(cut.errors.find("Line 3 of"), std::string::npos) << cut.errors;
}

TEST_F(ConvertCommand, aCnsFileServesAsTheMtzFileThatItWasMadeOf) {
  const std::string examples = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq";
  const std::string table = scratch_.file("x.cns"), mtz = scratch_.file("x.mtz");
  ASSERT_EQ(run({examples + ".mtz", table, "-q"}).status, 0);
  ASSERT_EQ(run({table, mtz, "-q"}).status, 0);
  const auto ends = [&](const std::string& input, const std::string& name) {
    const std::string map = scratch_.file(name);
    const ProgramResult r =
        run_program("quorix", {"map", input, map, "--plain-header", "--no-scale", "-q"});
    EXPECT_EQ(r.status, 0) << r.errors;
    return read_file(map).substr(1024);
  };
  EXPECT_TRUE(ends(table, "a.ccp4") == ends(mtz, "b.ccp4"));
  const auto fit = [&](const std::string& input) {
    const ProgramResult r = run_program("quorix", {"validate", examples + ".pdb", input, "--json"});
    EXPECT_EQ(r.status, 0) << r.errors;
    return Json::parse(r.output)["r"];
  };
  EXPECT_EQ(fit(table), fit(mtz));
  // A batch takes it for a data set, not for a list of files.
  const ProgramResult batch = run_program("quorix", {"batch", table, "-o", scratch_.file("out")});
  EXPECT_EQ(batch.output.find("1 data set, 1 done"), 0U) << batch.output << batch.errors;
}

TEST_F(ConvertCommand, refusesWhatItCannotDo) {
  const std::string in = save(merged(), "in.mtz");
  const std::string out = scratch_.file("out.sca");
  write_file(scratch_.file("text.txt"), "some words\n");
  write_file(scratch_.file("cut.hkl"),
             "   1   2   3   10.00    1.00\n   1   2   4   1x.00    1.00\n");
  write_file(scratch_.file("model.pdb"), "ATOM      1  N   ALA A   1\n");
  MtzMaker amplitudes = in_group({{1, 2, 3}});
  amplitudes.add("FP", 'F', {1.0F});
  const struct {
    std::vector<std::string> words;
    const char* text;
  } cases[] = {
      {{in, scratch_.file("out.xyz")}, "tells no format"},
      {{in, in}, "is an input"},
      {{in, scratch_.file("model.pdb"), "--to", "cns"}, "is there and is a file of coordinates"},
      {{scratch_.file("text.txt"), out}, "is in no format that is known"},
      {{scratch_.file("none.hkl"), out}, "there is no file"},
      {{in, out, "--labels", "NONE"}, "has no column NONE: it has H, K, L, IMEAN"},
      {{in, out, "--merge"}, "cannot be merged: expected unmerged file"},
      {{in, out, "--spacegroup", "Q 1"}, "unknown space group 'Q 1'"},
      {{in, scratch_.file("o.x"), "--to", "pdf"}, "there is no format 'pdf'"}};
  for (const auto& c : cases) {
    const ProgramResult r = run(c.words);
    EXPECT_EQ(r.status, 2) << c.text;
    EXPECT_NE(r.errors.find(c.text), std::string::npos) << c.text << '\n' << r.errors;
    EXPECT_FALSE(std::filesystem::exists(out)) << c.text;
  }
  const ProgramResult cut = run({scratch_.file("cut.hkl"), out, "--from", "hkl"});
  EXPECT_NE(cut.status, 0);
  EXPECT_NE(cut.output.find("Line 2 of"), std::string::npos) << cut.output << cut.errors;
  MtzMaker others = in_group({{1, 2, 3}});
  others.add("WT", 'R', {1.0F});
  const struct {
    std::vector<std::string> words;
    const char *report, *advice;
  } lacking[] = {{{save(amplitudes, "f.mtz"), out},
                  "There are no intensities with errors",
                  "take a format that holds what the file has"},
                 {{save(others, "wt.mtz"), scratch_.file("out.cif")},
                  "There are no columns that mmCIF has items for",
                  "take a format that holds what the file has"}};
  for (const auto& c : lacking) {
    const ProgramResult r = run(c.words);
    EXPECT_NE(r.status, 0) << c.report;
    EXPECT_NE(r.output.find(c.report), std::string::npos) << r.output << r.errors;
    EXPECT_NE(r.errors.find(c.advice), std::string::npos) << r.output << r.errors;
  }
  EXPECT_FALSE(std::filesystem::exists(out));
}

}  // namespace
}  // namespace qx::test
