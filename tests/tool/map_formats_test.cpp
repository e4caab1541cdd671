// CNS maps and lists of points: written by sections, read by quorix info and by another library.
#include "support/engine.h"
#include "support/program.h"

#include <cmath>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace qx::test {
namespace {

using Json = nlohmann::json;

class MapFormats : public ::testing::Test {
 protected:
  // One map in all formats.
  void SetUp() override {
    const std::string text =
        "xcry\nspgname P 21 21 21\ncell 50.84 42.77 28.95\nreso 4 50\nread refl mtz file \"" +
        std::string(QUORIX_SOURCE_DIR) +
        "/examples/1ubq.mtz\" coid MAP_COEFFA=FWT MAP_COEFFP=PHWT\nxend\nxgrid\nfrac 0.25\nxend\n"
        "xfft\nxend\nxmap\nmapdef generated with amplitude input phase input\n"
        "param type unweighted u 1 v 0 scale yes\n"
        "extent frac xmin=-0.1 xmax=0.3 ymin=0 ymax=0.5 zmin=0.1 zmax=0.6\ngenerate\n"
        "write ccp4 file \"" +
        path("m.ccp4") + "\"\nwrite cns formatted file \"" + path("m.xplor") +
        "\"\nwrite cns unformatted file \"" + path("m.bin") + "\"\nwrite xyz file \"" +
        path("m.xyz") + "\"\nxend\nxter\nxend\n";
    const ProgramResult r = run_program("quorix", {"run", "-"}, text);
    ASSERT_EQ(r.status, 0) << r.output << r.errors;
  }
  [[nodiscard]] std::string path(const std::string& name) const { return scratch_.file(name); }
  static ProgramResult info(const std::string& file) {
    return run_program("quorix", {"info", file, "--json"});
  }
  ScratchDirectory scratch_;
};

TEST_F(MapFormats, allHoldTheSameDensity) {
  const Json first = Json::parse(info(path("m.ccp4")).output);
  for (const char* name : {"m.xplor", "m.bin", "m.xyz"}) {
    const ProgramResult r = info(path(name));
    ASSERT_EQ(r.status, 0) << name << r.output << r.errors;
    const Json json = Json::parse(r.output);
    for (const char* key : {"points", "starts", "intervals", "covers", "axis_order"}) {
      EXPECT_EQ(json[key], first[key]) << name << key;
    }
    for (std::size_t i = 0; i < 6; ++i) {
      EXPECT_NEAR(json["cell"][i].get<double>(), first["cell"][i].get<double>(), 1e-3) << name;
    }
    for (const auto& [key, value] : first["statistics"]["recomputed"].items()) {
      EXPECT_NEAR(json["statistics"]["recomputed"][key].get<double>(), value.get<double>(), 1e-4)
          << name << key;
    }
    EXPECT_NE(json["format"], first["format"]);
  }
  const std::string command = "/usr/bin/python3 '" + std::string(QUORIX_SOURCE_DIR) +
                              "/tests/tool/compare_cns_map.py' '" + path("m.xplor") + "' '" +
                              path("m.ccp4") + "' >'" + path("log") + "' 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0) << read_file(path("log"));
  // A point stands where it says: the first one at -0.1 0 0.1 of the cell, as far as the grid goes.
  const std::string list = read_file(path("m.xyz"));
  const std::size_t at = list.find('\n', list.find("# box")) + 1;
  double x = 0, y = 0, z = 0, density = 0;
  ASSERT_EQ(std::sscanf(list.c_str() + at, "%lf %lf %lf %lf", &x, &y, &z, &density), 4);
  const double nx = first["intervals"][0].get<double>(), nz = first["intervals"][2].get<double>();
  EXPECT_NEAR(x, 50.84 * first["starts"][0].get<double>() / nx, 1e-3);
  EXPECT_NEAR(y, 0.0, 1e-3);
  EXPECT_NEAR(z, 28.95 * first["starts"][2].get<double>() / nz, 1e-3);
}

TEST_F(MapFormats, damagedFilesAreRefused) {
  for (const char* name : {"m.xplor", "m.bin", "m.xyz"}) {
    const std::string whole = read_file(path(name));
    for (const double part : {0.1, 0.5, 0.99}) {
      write_file(
          path("cut"),
          whole.substr(0, static_cast<std::size_t>(part * static_cast<double>(whole.size()))));
      const ProgramResult r = info(path("cut"));
      EXPECT_EQ(r.status, 2) << name << part << r.output;
      EXPECT_NE(r.errors.find("the map "), std::string::npos) << r.errors;
    }
  }
  const struct {
    const char* name;
    const char* what;
    const char* by;
    const char* says;
  } cases[] = {{"m.xplor", "E+00", "x+00", "where a number should be"},
               {"m.xplor", "ZYX", "XYZ", "another order than ZYX"},
               {"m.xplor", "   -9999", "   -9998", "does not end behind its last section"},
               {"m.xyz", "# box -", "# box 1e9 -", "a wrong line of its box"},
               {"m.xyz", "# grid ", "# grid -", "impossible numbers"}};
  for (const auto& c : cases) {
    std::string text = read_file(path(c.name));
    text.replace(text.find(c.what), std::string(c.what).size(), c.by);
    write_file(path("altered"), text);
    const ProgramResult r = info(path("altered"));
    EXPECT_EQ(r.status, 2) << c.says;
    EXPECT_NE(r.errors.find(c.says), std::string::npos) << c.says << r.errors << r.output;
  }
  std::string huge = read_file(path("m.bin"));
  const std::size_t nine = 4 + 164 + 4 + 4;  // behind the titles
  huge.replace(nine + 8, 4, std::string("\xff\xff\x3f\x00", 4));
  write_file(path("altered"), huge);
  EXPECT_NE(info(path("altered")).errors.find("shorter than its numbers of points"),
            std::string::npos);
}

}  // namespace
}  // namespace qx::test
