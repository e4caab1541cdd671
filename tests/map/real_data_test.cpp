// Maps of real reflection files: every structure of the pairs in its own group and expanded to P1.
#include "grid/grid.h"
#include "map/map.h"
#include "support/engine.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace qx::test {
namespace {

// Space group and cell as the file's own header records say them.
struct Header {
  std::string group;
  std::string cell;
};

Header header_of(const std::filesystem::path& path) {
  const std::string bytes = read_file(path.string());
  const auto record = [&](const std::string& key) {
    const std::size_t at = bytes.find(key);
    return at == std::string::npos ? std::string() : bytes.substr(at + key.size(), 76);
  };
  const std::string symmetry = record("SYMINF ");
  const std::size_t quote = symmetry.find('\'') + 1;
  Header header = {symmetry.substr(quote, symmetry.find('\'', quote) - quote), record("CELL ")};
  // A bare R means hexagonal axes.
  const bool hexagonal = header.cell.find(" 120.") != std::string::npos;
  if (header.group[0] == 'R' && !hexagonal) header.group += " :R";
  return header;
}

class RealData : public Engine {
 protected:
  void SetUp() override {
    if (real_data().empty()) GTEST_SKIP();
    Engine::SetUp();
  }
  // The map of a file on a given grid ("" for the grid that suits it); empty after a report.
  static std::vector<double> map_of(const std::filesystem::path& path, const std::string& amplitude,
                                    const std::string& phase, const std::string& grid,
                                    std::string& output) {
    (void)qx_create_quorix();
    const Header header = header_of(path);
    const auto run = [&](const std::string& text) {
      const auto result = section(text);
      output += result.output;
      return result.ok;
    };
    if (!run("xcry\nspgname " + header.group + "\ncell " + header.cell + "\nread refl mtz file \"" +
             path.string() + "\" coid MAP_COEFFA=" + amplitude + " MAP_COEFFP=" + phase +
             "\nxend\n") ||
        !run("xgrid\n" + (grid.empty() ? std::string("frac 0.33") : grid) + "\nxend\n") ||
        !run("xmap\nmapdef generated with amplitude input phase input\ngenerate\nxend\n")) {
      return {};
    }
    const qxgrid* g = qx_get_qxgrid();
    const double* data = map_density(*qx_get_qxmap())[0][0];
    return {data, data + static_cast<std::ptrdiff_t>(g->nx) * g->ny * g->nz};
  }
};

TEST_F(RealData, ownGroupAndExpandedToP1GiveTheSameMap) {
  int pairs = 0;
  for (const auto& entry : std::filesystem::directory_iterator(real_data() / "sg_pairs")) {
    const std::string stem = entry.path().stem().string();
    if (stem.size() != 4) continue;
    std::string output;
    const std::vector<double> own = map_of(entry.path(), "FMODEL", "PHIFMODEL", "", output);
    ASSERT_FALSE(own.empty()) << stem << output;
    const qxgrid* g = qx_get_qxgrid();
    const std::string grid = "ngrid nx=" + std::to_string(g->nx) + " ny=" + std::to_string(g->ny) +
                             " nz=" + std::to_string(g->nz);
    const std::vector<double> p1 = map_of(entry.path().parent_path() / (stem + "_p1.mtz"), "FMODEL",
                                          "PHIFMODEL", grid, output);
    ASSERT_EQ(own.size(), p1.size()) << stem << output;
    double worst = 0;
    for (std::size_t i = 0; i < own.size(); ++i) worst = std::max(worst, std::abs(own[i] - p1[i]));
    EXPECT_LT(worst, 2e-5 * qx_get_qxmap()->rms) << stem;
    EXPECT_GT(qx_get_qxmap()->rms, 0) << stem;
    ++pairs;
  }
  EXPECT_EQ(pairs, 32);
}

TEST_F(RealData, filesOfAllKindsGiveMaps) {
  const std::vector<std::array<std::string, 3>> files = {
      {"1rx2_P212121.mtz", "FWT", "PHWT"},
      {"5orl_P6122.mtz", "FWT", "PHWT"},
      {"hewl_ssad_P43212.mtz", "FOFCWT", "PHFOFCWT"},
      {"1g8a_P21_omit.mtz", "2FOFCWT", "PH2FOFCWT"},
      {"poor_map_P1.mtz", "FWT", "PHWT"}};
  for (const auto& [name, amplitude, phase] : files) {
    std::string output;
    EXPECT_FALSE(map_of(real_data() / name, amplitude, phase, "", output).empty())
        << name << output;
    EXPECT_GT(qx_get_qxmap()->rms, 0.01) << name;
  }
}

}  // namespace
}  // namespace qx::test
