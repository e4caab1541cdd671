// Files and columns with names that sections, shells and terminals give a meaning of their own.
#include "tool/map_command.h"

#include <map>

namespace qx::test {
namespace {

namespace fs = std::filesystem;

class Names : public MapCommand {
 protected:
  void SetUp() override {
    MapCommand::SetUp();
    make(two_columns("FWT", "PHWT"));
    ASSERT_EQ(map({"in.mtz", "plain.ccp4", "-q"}).status, 0);
    plain_ = read_file("plain.ccp4");
  }

  static ProgramResult quorix(const Arguments& arguments, const std::string& input = {}) {
    return run_program("quorix", arguments, input);
  }
  std::string plain_;
};

TEST_F(Names, pathsOfAnyBytesAreTheFilesTheyName) {
  const std::string model = std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.pdb";
  for (const std::string name : {"p\tq", "a#1", "b!", "c\"d\"", " e ", "\"\"f", "g\nh", "%41", "i-",
                                 "j&", "\xff\xfe", "\x1b[31m", "-k", "l=m"}) {
    fs::create_directory("x" + name);
    const std::string input = "x" + name + "/" + name + ".mtz";
    const std::string output = "x" + name + "/" + name + ".ccp4";
    write_file(input, read_file("in.mtz"));
    const ProgramResult result = map({input, output, "--provenance"});
    EXPECT_EQ(result.status, 0) << name << result.errors << result.output;
    EXPECT_TRUE(read_file(output).substr(1024) == plain_.substr(1024)) << name;
    fs::remove(output);
    const ProgramResult text = map({"--print-sections", input, output});
    EXPECT_EQ(quorix({"run"}, text.output).status, 0) << text.output;
    EXPECT_TRUE(read_file(output) == plain_) << text.output;
    EXPECT_EQ(quorix({"fcalc", model, "--hkl", input, "-o", output + ".mtz", "--cell", "60", "60",
                      "60", "90", "90", "90", "--labels", "FWT"})
                  .status,
              0)
        << name;
    EXPECT_TRUE(fs::exists(output + ".mtz")) << name;
    fs::remove_all("x" + name);
  }
  EXPECT_EQ(std::distance(fs::directory_iterator("."), fs::directory_iterator()), 2);
}

TEST_F(Names, columnsOfAnyNameAreFound) {
  const auto indices = half_sphere(2, 2, 2);
  const Arguments labels = {"FWT-", "PHI-", "F&", "P&", "F#1", "P!", "F\"", "\"\"P", "-", "&"};
  MtzMaker maker(indices);
  for (std::size_t i = 0; i < labels.size(); i += 2) {
    const float value = 10.0F * static_cast<float>(1U << i);  // on an rms scale the same
    maker.add(labels[i], 'F', std::vector<float>(indices.size(), value));
    maker.add(labels[i + 1], 'P', std::vector<float>(indices.size(), 30.0F));
  }
  make(maker);
  for (std::size_t i = 0; i < labels.size(); i += 2) {
    const ProgramResult result =
        map({"in.mtz", "o.ccp4", "--f=" + labels[i], "--phi=" + labels[i + 1], "--json"});
    EXPECT_EQ(result.status, 0) << labels[i] << result.errors;
    EXPECT_TRUE(read_file("o.ccp4").substr(1024) == plain_.substr(1024)) << labels[i];
    const ProgramResult tool =
        run_program("quorix-map", {"P 1", "10", "20", "30", "90", "90", "90", "0", "0", "in.mtz",
                                   labels[i], labels[i + 1], "", "tool.ccp4"});
    EXPECT_EQ(tool.status, 0) << labels[i] << tool.output;
    EXPECT_TRUE(fs::exists("tool.ccp4"));
    fs::remove("tool.ccp4");
  }
}

// What a terminal obeys: the two ways to begin a sequence, and 8-bit ones.
TEST_F(Names, controlBytesOfFilesAreShown) {
  MtzMaker maker = two_columns("FWT", "PHWT");
  maker.title = "red \x1b[31m bell \a del \x7f csi \xc2\x9b raw \x9b utf8 \xc3\xbc latin \xfc";
  maker.datasets[1].project = "p\x1b]0;title\a";
  make(maker);
  for (const Arguments& arguments : {Arguments{"info", "in.mtz"},
                                     {"info", "in.mtz", "-v"},
                                     {"info", "in.mtz", "--json"},
                                     {"map", "in.mtz", "--f", "\x1b[31m"},
                                     {"map", "\x1b[31m.mtz"},
                                     {"run", "\x1b[31m"},
                                     {"map", "in.mtz", "no\x9b/folder"},
                                     {"\x1b[2J"},
                                     {"batch", "in.mtz\x1b", "-o", "o"}}) {
    const ProgramResult result = quorix(arguments);
    for (const std::string& text : {result.output, result.errors}) {
      for (const char* raw : {"\x1b", "\a", "\x7f", "\xc2\x9b", "\x9b"}) {
        EXPECT_EQ(text.find(raw), std::string::npos) << arguments.front() << ' ' << text;
      }
    }
  }
  const std::string told = quorix({"info", "in.mtz"}).output;
  EXPECT_NE(told.find("csi \\u009b raw \\u009b utf8"), std::string::npos) << told;
  EXPECT_NE(told.find("utf8 \xc3\xbc latin \xfc"), std::string::npos) << told;
  EXPECT_NE(quorix({"info", "\x1b[31m.mtz"}).errors.find("no file \\u001b[31m.mtz"),
            std::string::npos);
  const ProgramResult tool =
      run_program("quorix-map", {"\x1b[31m", "10", "12", "14", "90", "90", "90", "0", "0", "in.mtz",
                                 "FWT", "PHWT", "", "tool.ccp4"});
  EXPECT_EQ(tool.output.find('\x1b'), std::string::npos) << tool.output;
  // Lines of other systems end as they did, and a byte that waits for the next is not lost.
  const ProgramResult run = quorix({"run"}, "xverbose\r\nxend\r\nxgroup \xc3");
  EXPECT_NE(run.output.find("xverbose\r\nxend\r\n"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("xgroup \xc3\n"), std::string::npos) << run.output;
}

}  // namespace
}  // namespace qx::test
