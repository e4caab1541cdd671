// quorix fcalc and the observations: which reflections are free, in which files they come.
#include "support/mtz_maker.h"
#include "tool/fcalc_command.h"

#include <cmath>

namespace qx::test {
namespace {

// The reflections of the example with flags of another convention.
class FcalcData : public ::testing::Test {
 protected:
  std::string with_flags(const std::string& label, const std::vector<float>& flags) const {
    std::vector<std::vector<int>> indices;
    for (std::size_t i = 0; i < in_.at("H").size(); ++i) {
      indices.push_back({static_cast<int>(in_.at("H")[i]), static_cast<int>(in_.at("K")[i]),
                         static_cast<int>(in_.at("L")[i])});
    }
    MtzMaker maker(indices);
    maker.cell = "50.84 42.77 28.95 90 90 90";
    maker.symmetry = "4 4 P 19 'P 21 21 21' PG222";
    maker.operators = {"x,y,z", "-x+1/2,-y,z+1/2", "-x,y+1/2,-z+1/2", "x+1/2,-y+1/2,-z"};
    maker.add("FP", 'F', in_.at("FP")).add("SIGFP", 'Q', in_.at("SIGFP")).add(label, 'I', flags);
    write_file(scratch_.file("in.mtz"), maker.bytes());
    return scratch_.file("in.mtz");
  }
  std::vector<float> changed(const std::function<float(std::size_t, bool)>& flag) const {
    std::vector<float> flags;
    for (std::size_t i = 0; i < in_.at("FREE").size(); ++i) {
      flags.push_back(flag(i, in_.at("FREE")[i] == 0.0F));
    }
    return flags;
  }
  ProgramResult run(Arguments arguments) const {
    arguments.insert(arguments.begin(), {model, "-o", scratch_.file("out.mtz")});
    return fcalc(arguments);
  }
  // "Working set ..." and the lines behind it.
  static std::string agreement(const ProgramResult& result) {
    const std::size_t at = result.output.find("Overall");
    const std::size_t end = result.output.rfind("\n/");  // the name of the output
    return at == std::string::npos ? result.errors : result.output.substr(at, end - at);
  }

  ScratchDirectory scratch_;
  const Columns in_ = read_columns(data);
};

TEST_F(FcalcData, takesTheFreeSetOfEveryConvention) {
  const std::string expected = agreement(run({"--hkl", data}));
  EXPECT_NE(expected.find("(298 reflections)"), std::string::npos) << expected;
  struct Convention {
    const char* label;
    std::vector<float> flags;
    const char* line;
  };
  const Convention conventions[] = {
      {"R-free-flags", changed([](std::size_t, bool free) { return free ? 1.0F : 0.0F; }),
       "R-free-flags = 1, 305 of 6224 reflections (4.9 %)"},
      {"FreeR_flag", changed([](std::size_t, bool free) { return free ? 1.0F : 0.0F; }),
       "FreeR_flag = 1, 305 of"},
      {"FREER", changed([](std::size_t, bool free) { return free ? -1.0F : 1.0F; }),
       "FREER = -1, 305 of"},
      {"FreeR_flag", changed([](std::size_t i, bool free) {
         return free ? 0.0F : 1.0F + static_cast<float>(i % 19);
       }),
       "FreeR_flag = 0, 305 of"}};
  for (const Convention& row : conventions) {
    const ProgramResult result = run({"--hkl", with_flags(row.label, row.flags)});
    EXPECT_NE(result.output.find(row.line), std::string::npos) << result.output << result.errors;
    EXPECT_EQ(agreement(result), expected) << row.line;
    if (row.label == std::string("FREER")) continue;  // a -1 is a missing flag to the data set
    EXPECT_EQ(read_columns(scratch_.file("out.mtz")).at(row.label), row.flags);
  }
}

TEST_F(FcalcData, takesTheFreeSetThatIsAskedFor) {
  const std::string file =
      with_flags("FREE", changed([](std::size_t i, bool) { return static_cast<float>(i % 4); }));
  const ProgramResult third = run({"--hkl", file, "--free-value", "3"});
  EXPECT_NE(third.output.find("FREE = 3, 1556 of 6224"), std::string::npos) << third.output;
  const ProgramResult ninth = run({"--hkl", file, "--free-value", "9"});
  EXPECT_EQ(ninth.status, 2);
  EXPECT_NE(ninth.errors.find("column FREE holds 0 (1556), 1 (1556), 2 (1556), 3 (1556)"),
            std::string::npos)
      << ninth.errors;
}

TEST_F(FcalcData, saysThatThereIsNoFreeSet) {
  const std::string file = with_flags("FREE", std::vector<float>(in_.at("FREE").size(), 1.0F));
  const ProgramResult result = run({"--hkl", file});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.errors.find("column FREE holds only 1: all reflections count as working"),
            std::string::npos)
      << result.errors;
  EXPECT_NE(result.output.find("All reflections"), std::string::npos) << result.output;
}

}  // namespace
}  // namespace qx::test
