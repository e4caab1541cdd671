// quorix report: what the page holds, taken apart again. How it looks in a browser is tested by
// tests/report.
#include "support/engine.h"
#include "support/mtz_maker.h"
#include "support/program.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <numeric>
#include <zlib.h>

namespace qx::test {
namespace {

using Json = nlohmann::json;

const std::string source = QUORIX_SOURCE_DIR;
const std::string example = source + "/examples/1ubq.mtz";
const std::string model = source + "/examples/1ubq.pdb";

std::string unpacked(const std::string& base64) {
  std::string bytes;
  unsigned word = 0;
  int bits = 0;
  for (const char c : base64) {
    const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t digit = digits.find(c);
    if (digit == std::string::npos) break;
    word = word << 6 | static_cast<unsigned>(digit);
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes += static_cast<char>(word >> bits & 255U);
  }
  std::string plain(1 << 22, '\0');
  z_stream stream = {};
  EXPECT_EQ(inflateInit2(&stream, 31), Z_OK);
  stream.next_in = reinterpret_cast<Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(plain.data());
  stream.avail_out = static_cast<uInt>(plain.size());
  EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
  plain.resize(stream.total_out);
  inflateEnd(&stream);
  return plain;
}

class ReportCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::current_path(scratch_.path());
    make_map("map.ccp4", {});
  }
  void TearDown() override { std::filesystem::current_path(before_); }

  static void make_map(const std::string& name, std::vector<std::string> more) {
    more.insert(more.begin(), {"map", example, name, "-q"});
    const ProgramResult result = run_program("quorix", more);
    ASSERT_EQ(result.status, 0) << result.errors;
  }
  static ProgramResult report(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "report");
    return run_program("quorix", arguments);
  }
  // The JSON that a page holds.
  static Json page(const std::string& path) {
    const std::string html = read_file(path);
    const std::string before = "id=\"report\">";
    const std::size_t start = html.find(before);
    const std::size_t end = html.find("</script>", start);
    if (start == std::string::npos || end == std::string::npos) return {};
    return Json::parse(html.substr(start + before.size(), end - start - before.size()));
  }
  static Json page_of(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"-o", "out"});
    const ProgramResult result = report(arguments);
    EXPECT_EQ(result.status, 0) << result.errors;
    return page("out/" + std::filesystem::path(arguments.front()).stem().string() + ".html");
  }

  ScratchDirectory scratch_;
  std::filesystem::path before_ = std::filesystem::current_path();
};

TEST_F(ReportCommand, holdsTheDensityOfTheMap) {
  const Json json = page_of({"map.ccp4", "--model", model, "--whole"});
  const Json& part = json["maps"][0];
  const std::string file = read_file("map.ccp4");
  const std::string bytes = unpacked(part["density"]["data"]);
  ASSERT_EQ(bytes.size(), 90U * 72U * 48U);
  double largest = 0.0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    float value = 0;
    std::memcpy(&value, file.data() + file.size() - 4 * (bytes.size() - i), 4);
    const double shown =
        part["density"]["lowest"].get<double>() +
        part["density"]["step"].get<double>() * static_cast<unsigned char>(bytes[i]);
    largest = std::max(largest, std::fabs(shown - static_cast<double>(value)));
  }
  EXPECT_LE(largest, 0.0501);  // half a step
  const auto counts = part["histogram"]["counts"].get<std::vector<std::int64_t>>();
  EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), std::int64_t{0}), 90 * 72 * 48);
  EXPECT_EQ(json["model"]["atoms"].size(), 660U);
  EXPECT_NE(json["model"]["pdb"].get<std::string>().find(
                "ATOM      1  N   MET A   1      27.340  24.430   2.614  1.00  9.67           N"),
            std::string::npos);
  EXPECT_NEAR(part["scale"]["factor"], 0.51622, 1e-5);
  EXPECT_FALSE(part["difference"]);
  EXPECT_TRUE(part["operators"].empty());
}

double total(const Json& shells, const char* key) {
  double sum = 0.0;
  for (const Json& shell : shells) sum += shell[key].get<double>();
  return sum;
}

TEST_F(ReportCommand, countsTheCoefficientsOfTheMapAndTheDataAlike) {
  // 22 of the example's 6224 reflections have no FWT.
  const Json map = page_of({"map.ccp4"})["completeness"];
  EXPECT_EQ(total(map["shells"], "found"), 6202.0);
  const Json data = page_of({"map.ccp4", "--data", example})["completeness"];
  ASSERT_EQ(map["shells"].size(), data["shells"].size());
  for (std::size_t i = 0; i < data["shells"].size(); ++i) {
    for (const char* key : {"found", "possible"}) {
      EXPECT_EQ(map["shells"][i][key], data["shells"][i][key]) << i << key;
    }
    // The map is scaled: amplitudes differ by its rms.
    EXPECT_NEAR(map["shells"][i]["amplitude"].get<double>() * 0.51622,
                data["shells"][i]["amplitude"].get<double>(),
                1e-3 * data["shells"][i]["amplitude"].get<double>());
  }
  make_map("half.ccp4", {"--dmin", "2.5"});
  EXPECT_NEAR(page_of({"half.ccp4"})["completeness"]["shells"].back()["high"], 2.5, 0.01);
  make_map("part.ccp4", {"--extent", "asu"});
  const Json part = page_of({"part.ccp4"});
  EXPECT_TRUE(part["completeness"]["shells"].empty());
  EXPECT_EQ(part["maps"][0]["operators"].size(), 4U);
}

TEST_F(ReportCommand, showsABoxAboutTheModelOfALargeMap) {
  const Json json = page_of({"map.ccp4", "--model", model, "--points", "0.03"});
  const Json& density = json["maps"][0]["density"];
  const auto counts = density["counts"].get<std::vector<int>>();
  EXPECT_LE(counts[0] * counts[1] * counts[2], 30000);
  EXPECT_GT(counts[0] * counts[1] * counts[2], 25000);
  ASSERT_EQ(json["notices"].size(), 1U);
  // The mean of the atoms is at fractions 0.60, 0.67, 0.30 of the cell.
  const int n[3] = {90, 72, 48};
  double mean[3] = {};
  for (const Json& atom : json["model"]["atoms"]) {
    const double edges[3] = {50.84, 42.77, 28.95};
    for (std::size_t a = 0; a < 3; ++a) mean[a] += atom[a].get<double>() / edges[a] / 660.0;
  }
  for (std::size_t a = 0; a < 3; ++a) {
    const int first = density["starts"][a];
    EXPECT_NEAR(first + 0.5 * counts[a], mean[a] * n[a], 1.01) << a;
    EXPECT_GE(first, 0);
    EXPECT_LE(first + counts[a], n[a]);
  }
}

TEST_F(ReportCommand, knowsDifferenceMapsByLabelNameOrWord) {
  make_map("a.ccp4", {"--difference"});
  EXPECT_TRUE(page_of({"a.ccp4"})["maps"][0]["difference"]);
  EXPECT_FALSE(page_of({"a.ccp4", "--no-difference"})["maps"][0]["difference"]);
  for (const auto& [name, expected] :
       std::vector<std::pair<std::string, bool>>{{"x_mFo-DFc.ccp4", true},
                                                 {"x_2mFo-DFc.ccp4", false},
                                                 {"x_fofc.ccp4", true},
                                                 {"x_2fofc.ccp4", false}}) {
    make_map(name, {"--plain-header"});
    EXPECT_EQ(page_of({name})["maps"][0]["difference"], expected) << name;
  }
}

TEST_F(ReportCommand, noTextOfAFileBecomesAPartOfThePage) {
  std::string bytes = read_file("map.ccp4");
  const std::string bad = "</script><script>alert(1)</script>@DATA@\"'&\xff\x01";
  bytes.replace(224 + 160, bad.size(), bad);
  write_file("bad.ccp4", bytes);
  const Json json = page_of({"bad.ccp4"});
  EXPECT_NE(json["maps"][0]["history"][2].get<std::string>().find("alert(1)"), std::string::npos);
  const std::string html = read_file("out/bad.html");
  EXPECT_EQ(html.find("<script>alert"), std::string::npos);
  EXPECT_EQ(html.find("http://localhost"), std::string::npos);
}

TEST_F(ReportCommand, doesNotCountTheReflectionsOfACellThatIsNone) {
  const std::string good = read_file("map.ccp4");
  for (const auto& [word, value] :
       std::vector<std::pair<std::size_t, float>>{{15, -3e-10F}, {11, NAN}, {12, -20.0F}}) {
    std::string bytes = good;
    std::memcpy(bytes.data() + 4 * word, &value, 4);
    write_file("bad.ccp4", bytes);
    const ProgramResult result = report({"bad.ccp4", "-o", "out"});
    if (result.status != 0) continue;  // refused as a whole
    EXPECT_TRUE(page("out/bad.html")["completeness"]["shells"].empty()) << word;
  }
}

// The example without its phases, and without one of the model's sides of it.
void write_phaseless(const std::string& name) {
  std::string bytes = read_file(example);
  for (std::size_t at = bytes.rfind("COLUMN H"); at != std::string::npos;
       at = bytes.find("COLUMN ", at + 1)) {
    if (bytes[at + 38] == 'P') bytes[at + 38] = 'R';
  }
  write_file(name, bytes);
}

std::string lowest_of(const Json& residues) {
  const auto least = std::min_element(residues.begin(), residues.end(), [](auto& a, auto& b) {
    return a[5].template get<double>() < b[5].template get<double>();
  });
  return (*least)[1].get<std::string>() + " " + (*least)[2].get<std::string>();
}

// The road from reflections: the values of quorix map, the correlations of quorix validate.
TEST_F(ReportCommand, showsBothMapsOfAReflectionFile) {
  const Json json = page_of({example, model});
  ASSERT_EQ(json["maps"].size(), 2U);
  make_map("raw.ccp4", {"--no-scale", "--difference"});
  const Json raw = page_of({"raw.ccp4"});
  EXPECT_TRUE(json["maps"][1]["difference"]);
  EXPECT_EQ(json["maps"][1]["rms_unit"], raw["maps"][0]["rms_unit"]);
  EXPECT_EQ(json["maps"][1]["histogram"], raw["maps"][0]["histogram"]);
  for (const Json& part : json["maps"]) EXPECT_EQ(part["scale"]["factor"], 1.0);
  EXPECT_EQ(total(json["completeness"]["shells"], "found"), 6202.0);
  EXPECT_TRUE(json["scripts"].empty());

  const ProgramResult validated = run_program("quorix", {"validate", model, example, "--json"});
  const Json rows = Json::parse(validated.output)["density"]["residues"];
  ASSERT_EQ(json["residues"].size(), 134U);  // 76 residues, 58 waters
  ASSERT_EQ(rows.size(), 134U);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_NEAR(json["residues"][i][5], rows[i]["correlation"].get<double>(), 6e-4) << i;
  }
  EXPECT_EQ(json["residues"][0][1], "MET");
  EXPECT_EQ(json["residues"][133][3], "w");

  const Json& peaks = json["peaks"];
  ASSERT_GT(peaks.size(), 2U);
  EXPECT_NEAR(peaks[0]["height"], raw["peaks"][0]["height"].get<double>(), 0.01);
  EXPECT_LT(peaks[0]["distance"], 6.0);
  EXPECT_EQ(json["start"], Json({{"kind", "peak"}, {"number", 0}}));  // there is no ligand
}

// Beyond the neighbourhood nothing is held; what is held is what the whole map has there.
TEST_F(ReportCommand, holdsTheNeighbourhoodOfTheModel) {
  const Json cut = page_of({"map.ccp4", model})["maps"][0];
  const Json all = page_of({"map.ccp4", model, "--whole"})["maps"][0];
  const std::string some = unpacked(cut["density"]["data"]);
  const std::string every = unpacked(all["density"]["data"]);
  const auto n = cut["density"]["counts"].get<std::vector<int>>();
  const auto first = cut["density"]["starts"].get<std::vector<int>>();
  const int cell[3] = {90, 72, 48};
  std::size_t held = 0;
  for (int i = 0; i < static_cast<int>(some.size()); ++i) {
    const int place[3] = {i % n[0], i / n[0] % n[1], i / n[0] / n[1]};
    std::size_t at[3] = {};
    for (int a = 0; a < 3; ++a) {
      at[a] = static_cast<std::size_t>((place[a] + first[static_cast<std::size_t>(a)] + cell[a]) %
                                       cell[a]);
    }
    const char byte = some[static_cast<std::size_t>(i)];
    if (byte == '\xff') continue;
    ++held;
    ASSERT_EQ(byte, every[(at[2] * 72 + at[1]) * 90 + at[0]]) << i;
  }
  EXPECT_GT(held, every.size() / 4);
  EXPECT_LT(held, every.size() * 3 / 4);
  EXPECT_EQ(cut["operators"].size(), 4U);
}

TEST_F(ReportCommand, weighsAmplitudesWithTheModelWhereNothingElseIsThere) {
  write_phaseless("phaseless.mtz");
  const Json json = page_of({"phaseless.mtz", model});
  ASSERT_EQ(json["maps"].size(), 2U);
  EXPECT_EQ(json["maps"][0]["name"], "2mFo-DFc");
  ASSERT_EQ(
      run_program("quorix", {"maps", model, example, "-o", "w.mtz", "--maps", "w", "-q"}).status,
      0);
  const Json same = page_of({"w_mFo-DFc.ccp4"})["maps"][0];
  EXPECT_EQ(json["maps"][1]["histogram"], same["histogram"]);
  EXPECT_EQ(same["scale"]["text"], "e/Å³");
  EXPECT_EQ(lowest_of(json["residues"]), lowest_of(page_of({example, model})["residues"]));
}

TEST_F(ReportCommand, tellsNoFolderOfTheMachine) {
  std::filesystem::create_directory("in");
  for (const auto& [from, to] : {std::pair(example, "in/d.mtz"), std::pair(model, "in/m.pdb")}) {
    std::filesystem::copy_file(from, to);
  }
  const std::string folder = scratch_.path().string();
  make_map(folder + "/in/map.ccp4", {"--provenance"});
  ASSERT_EQ(report({folder + "/in/map.ccp4", folder + "/in/m.pdb", "--data", folder + "/in/d.mtz",
                    "-o", folder + "/out"})
                .status,
            0);
  ASSERT_EQ(report({folder + "/in/d.mtz", folder + "/in/m.pdb", "-o", "out"}).status, 0);
  for (const char* name : {"map.html", "d.html", "map_coot.py", "map_chimerax.cxc"}) {
    const std::string text = read_file(std::string("out/") + name);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text.find(folder), std::string::npos) << name;
  }
}

TEST_F(ReportCommand, failsWithALineAndLeavesTheOlderPage) {
  ASSERT_EQ(report({"map.ccp4", "-o", "out", "-q"}).status, 0);
  const std::string before = read_file("out/map.html");
  write_file("flat.ccp4", read_file("map.ccp4").substr(0, 1024) + std::string(320, ' ') +
                              std::string(4 * 90 * 72 * 48, '\0'));
  write_file("short.ccp4", read_file("map.ccp4").substr(0, 5000));
  std::string other = read_file(model);
  other.replace(other.find("50.840"), 6, "90.840");
  write_file("other.pdb", other);
  write_phaseless("phaseless.mtz");
  struct Case {
    std::vector<std::string> arguments;
    int status;
    std::string said;
  };
  for (const Case& c : {
           Case{{"none.ccp4"}, 2, "there is no file none.ccp4"},
           Case{{"flat.ccp4"}, 2, "flat.ccp4 is flat"},
           Case{{"short.ccp4"}, 1, "the engine reported a failure"},
           Case{{model}, 2, "1ubq.pdb holds coordinates: name a map or reflections as well"},
           Case{{example, "map.ccp4"}, 2, "a page shows the maps of reflections, or those named"},
           Case{{example, "none.pdb"}, 2, "there is no file none.pdb"},
           Case{{example, "other.pdb"}, 2, "other.pdb is a model of another crystal: its cell is"},
           Case{{"map.ccp4", "other.pdb"},
                2,
                "other.pdb is a model of another crystal: its cell is"},
           Case{{"phaseless.mtz"}, 2, "no amplitude has a phase"},
           Case{{"map.ccp4", "--model", "none.pdb"}, 2, "cannot read none.pdb"},
           Case{{"map.ccp4", "--data", example, "--column", "X"}, 2, "does not have one column X"},
           Case{{"map.ccp4", "-o", "map.ccp4"}, 2, "cannot write map.ccp4/map.html"},
       }) {
    std::vector<std::string> arguments = c.arguments;
    if (c.said.find("map.html") == std::string::npos) {
      arguments.insert(arguments.end(), {"-o", "out"});
    }
    const ProgramResult result = report(arguments);
    EXPECT_EQ(result.status, c.status) << c.said;
    EXPECT_NE(result.errors.find(c.said), std::string::npos) << result.errors;
  }
  EXPECT_EQ(read_file("out/map.html"), before);
  for (const auto& entry : std::filesystem::directory_iterator("out")) {
    EXPECT_TRUE(entry.path().filename().string().starts_with("map")) << entry.path();
  }
}

}  // namespace
}  // namespace qx::test
