// The words of quorix map: labels given in part or not at all, limits, what a map says that it is,
// packed outputs, and runs whose output a program reads.
#include "tool/map_command.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <zlib.h>

namespace qx::test {
namespace {

const std::string example = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.mtz";

class MapWords : public MapCommand {
 protected:
  static nlohmann::json told(Arguments arguments) {
    arguments.emplace_back("--json");
    const ProgramResult result = map(arguments);
    EXPECT_EQ(result.status, 0) << result.errors;
    return result.status == 0 ? nlohmann::json::parse(result.output) : nlohmann::json();
  }
  static std::string second_label(const std::string& path) {
    std::string label = read_file(path).substr(224 + 80, 80);
    label.erase(label.find_last_not_of(' ') + 1);
    return label;
  }
};

std::string unpacked(const std::string& path) {
  const gzFile file = gzopen(path.c_str(), "rb");
  std::string bytes(8 << 20, '\0');
  bytes.resize(static_cast<std::size_t>(
      std::max(0, gzread(file, bytes.data(), static_cast<unsigned>(bytes.size())))));
  gzclose(file);
  return bytes;
}

TEST_F(MapWords, failuresLeaveTheOutputToPrograms) {
  write_file("cut.mtz", read_file(example).substr(0, 5000));
  write_file("text", "no reflections");
  struct Case {
    Arguments arguments;
    const char* said;
  };
  for (const Case& c : {Case{{"map", example, "--json", "--spacegroup", "P 99"},
                             "name the group with --spacegroup"},
                        Case{{"map", "cut.mtz", "--json"}, "appears broken: get a whole copy"},
                        Case{{"map", example, "-", "--dmin", "70", "--dmax", "80"},
                             "There is no reflection survived.: are the limits"},
                        Case{{"map", example, "none/x.ccp4", "--json"}, "is it there"},
                        Case{{"info", "cut.mtz", "--json"}, "appears broken: get a whole copy"}}) {
    const ProgramResult result = run_program("quorix", c.arguments);
    EXPECT_EQ(result.status, 1) << c.said;
    EXPECT_EQ(result.output, "") << c.said;
    const std::size_t last = result.errors.rfind("quorix: ");
    ASSERT_NE(last, std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find(c.said, last), std::string::npos) << result.errors;
    EXPECT_EQ(result.errors.find('\n', last) + 1, result.errors.size()) << result.errors;
  }
  const ProgramResult plain = map({example, "a.ccp4", "--spacegroup", "P 99"});
  EXPECT_NE(plain.output.find("Failed to get proper space group"), std::string::npos);
  EXPECT_NE(plain.errors.find("the engine reported a failure: name the group with --spacegroup"),
            std::string::npos)
      << plain.errors;
  const ProgramResult verbose = map({example, "--json", "--verbose"});
  EXPECT_EQ(nlohmann::json::parse(verbose.output).size(), 2U);
  EXPECT_NE(verbose.errors.find("begin map generation:"), std::string::npos);
}

TEST_F(MapWords, gzippedOutputs) {
  ASSERT_EQ(map({example, "a.ccp4"}).status, 0);
  ASSERT_EQ(map({example, "b.ccp4.gz", "--check"}).status, 0);
  EXPECT_EQ(read_file("b.ccp4.gz").substr(0, 2), "\x1f\x8b");
  EXPECT_TRUE(unpacked("b.ccp4.gz") == read_file("a.ccp4"));
  const std::string model = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.pdb";
  ASSERT_EQ(run_program("quorix", {"fcalc", model, "--hkl", example, "--dmin", "4", "-o",
                                   "f.mtz.gz", "--map-2fofc", "f.map.gz"})
                .status,
            0);
  EXPECT_EQ(unpacked("f.mtz.gz").substr(0, 4), "MTZ ");
  EXPECT_EQ(unpacked("f.map.gz").substr(208, 4), "MAP ");
  EXPECT_EQ(map({example, "/no/folder/b.ccp4.gz"}).status, 2);
}

TEST_F(MapWords, oneLabelFindsTheOther) {
  MtzMaker maker = two_columns("FP", "PHIB");
  const std::vector<float> values(maker.rows(), 5.0F);
  for (const char* label : {"FC", "FC_ALL", "X"}) maker.add(label, 'F', values);
  for (const char* label : {"PHIC", "PHIC_ALL", "PHX", "Q"}) maker.add(label, 'P', values);
  maker.add("Y", 'F', values).add("Z", 'P', values).add("Lone", 'F', values);
  make(maker);
  using Pair = std::pair<const char*, const char*>;
  for (const auto& [f, phi] : {Pair{"FP", "PHIB"}, Pair{"FC", "PHIC"}, Pair{"FC_ALL", "PHIC_ALL"},
                               Pair{"X", "PHX"}, Pair{"Y", "Z"}}) {
    EXPECT_EQ(told({"in.mtz", "--f", f}).at(0)["labels"][1], phi);
    EXPECT_EQ(told({"in.mtz", "--phi", phi}).at(0)["labels"][0], f);
  }
  EXPECT_NE(map({"in.mtz", "--f", "Lone"}).errors.find("name it with --phi"), std::string::npos);
  EXPECT_NE(map({"in.mtz", "--phi", "Q"}).errors.find("name it with --f"), std::string::npos);
}

TEST_F(MapWords, weightsMultiplyMeasuredAmplitudes) {
  MtzMaker maker = two_columns("FWT", "PHWT");
  std::vector<float> f, phi, fom, product;
  for (std::size_t i = 0; i < maker.rows(); ++i) {
    const auto n = static_cast<float>(i);
    f.push_back(10.0F + n);
    phi.push_back(7.0F * n);
    fom.push_back(i % 5 == 4 ? NAN : 0.25F * static_cast<float>(i % 5));
    product.push_back(std::isnan(fom.back()) ? 0.0F : fom.back() * f.back());
  }
  maker.add("FP", 'F', f).add("PHIB", 'P', phi).add("FOM", 'W', fom);
  maker.add("MF", 'F', product).add("PHM", 'P', phi).add("SIGF", 'Q', f);
  make(maker);
  const Arguments weighted = {"in.mtz", "a.ccp4", "--f", "FP", "--weight", "FOM", "--no-scale"};
  const auto json = told(weighted).at(0);
  EXPECT_EQ(json["labels"][1], "PHIB");
  EXPECT_NE(json["warnings"].dump().find("12 of 62 reflections have no FP or no PHIB or no FOM"),
            std::string::npos)
      << json["warnings"];
  ASSERT_EQ(map({"in.mtz", "b.ccp4", "--f", "MF", "--phi", "PHM", "--no-scale"}).status, 0);
  EXPECT_TRUE(read_file("a.ccp4").substr(1024) == read_file("b.ccp4").substr(1024));
  EXPECT_EQ(second_label("a.ccp4"), "Map type: FP/PHIB times FOM");
  Arguments print = weighted;
  print.emplace_back("--print-sections");
  const std::string made = read_file("a.ccp4");
  ASSERT_EQ(run_program("quorix", {"run", "--force"}, map(print).output).status, 0);
  EXPECT_TRUE(read_file("a.ccp4") == made);

  for (const auto& [arguments, text] :
       {std::pair{Arguments{"--f", "FWT", "--weight", "FOM"}, "FWT is weighted already"},
        std::pair{Arguments{"--f", "FP", "--weight", "SIGF"}, "no weight but a standard deviation"},
        std::pair{Arguments{"--weight", "FOM"}, "2 amplitudes with a phase could be weighted"}}) {
    Arguments all = {"in.mtz", "out.ccp4"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const ProgramResult refused = map(all);
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.errors.find(text), std::string::npos) << refused.errors;
  }
}

TEST_F(MapWords, whatIsNotTakenIsSaid) {
  MtzMaker maker = two_columns("FC", "PHIC");
  const std::vector<float> values(maker.rows(), 5.0F);
  maker.add("FMODEL", 'F', values).add("PHIFMODEL", 'P', values);
  maker.add("2FOFCWT_fill", 'F', values).add("PH2FOFCWT_fill", 'P', values);
  make(maker);
  const ProgramResult none = map({"in.mtz"});
  EXPECT_EQ(none.status, 2);
  EXPECT_NE(none.errors.find("--f '2FOFCWT_fill' --phi 'PH2FOFCWT_fill'"), std::string::npos)
      << none.errors;
  maker.add("FWT", 'R', values).add("PHWT", 'P', values);
  maker.add("FOFCWT", 'F', values).add("PHFOFCWT", 'P', values);
  make(maker);
  const auto maps = told({"in.mtz"});
  ASSERT_EQ(maps.size(), 1U);
  const std::string warnings = maps[0]["warnings"].dump();
  EXPECT_NE(warnings.find("2FOFCWT_fill is passed over: it is none of"), std::string::npos);
  EXPECT_NE(warnings.find("FWT is passed over: its type R tells no amplitude; --f 'FWT' takes"),
            std::string::npos);
  EXPECT_EQ(told({"in.mtz", "--f", "FWT"}).at(0)["labels"][1], "PHWT");
  EXPECT_EQ(told({"in.mtz", "--difference"}).at(0)["warnings"].dump(), "[]");
}

TEST_F(MapWords, limitsInEitherOrder) {
  const auto one = told({example, "a.ccp4", "--dmin", "2.5", "--dmax", "20"}).at(0);
  const auto other = told({example, "b.ccp4", "--dmin", "20", "--dmax", "2.5"}).at(0);
  EXPECT_EQ(one["warnings"], other["warnings"]);
  EXPECT_TRUE(read_file("a.ccp4") == read_file("b.ccp4"));
}

TEST_F(MapWords, theSecondLabelTellsWhatTheMapIs) {
  ASSERT_EQ(map({example}).status, 0);
  EXPECT_EQ(second_label("1ubq_2mFo-DFc.ccp4"), "Map type: 2mFo-DFc (FWT/PHWT)");
  EXPECT_EQ(second_label("1ubq_mFo-DFc.ccp4"), "Map type: mFo-DFc (DELFWT/PHDELWT)");
  ASSERT_EQ(map({example, "fc.ccp4", "--f", "FC"}).status, 0);
  EXPECT_EQ(second_label("fc.ccp4"), "Map type: FC/PHIC");
  // Words of the texts are no options.
  std::filesystem::copy(example, "symm no kind of origin.mtz");
  ASSERT_EQ(map({"symm no kind of origin.mtz", "a.ccp4", "--provenance"}).status, 0);
  EXPECT_EQ(second_label("a.ccp4"), "Map type: 2mFo-DFc (FWT/PHWT)");
  EXPECT_EQ(read_file("a.ccp4").substr(92, 4), std::string("\x40\x01\0\0", 4));
}

}  // namespace
}  // namespace qx::test
