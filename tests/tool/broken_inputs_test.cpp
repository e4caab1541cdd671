// Files that cannot be read as a whole are refused, by every command and naming the place; what is
// taken otherwise than it stands there has a line.
#include "tool/map_command.h"

#include <sstream>
#include <zlib.h>

namespace qx::test {
namespace {

const std::string examples = std::string(QUORIX_SOURCE_DIR) + "/examples/";

std::string packed(const std::string& bytes) {
  const gzFile file = gzopen("packed", "wb");
  EXPECT_EQ(gzwrite(file, bytes.data(), static_cast<unsigned>(bytes.size())),
            static_cast<int>(bytes.size()));
  gzclose(file);
  return read_file("packed");
}

class BrokenInputs : public MapCommand {
 protected:
  static ProgramResult fcalc(const std::string& model, Arguments more = {"--dmin", "6"}) {
    more.insert(more.begin(), {"fcalc", model, "-o", "fc.mtz"});
    return run_program("quorix", more);
  }
  static void expect_refusal(const ProgramResult& result, const std::string& text) {
    EXPECT_EQ(result.status, 2) << text << result.output;
    EXPECT_NE(result.errors.find(text), std::string::npos) << text << '\n' << result.errors;
    EXPECT_FALSE(std::filesystem::exists("fc.mtz"));
    EXPECT_FALSE(std::filesystem::exists("out.ccp4"));
  }
};

TEST_F(BrokenInputs, gzipThatIsCutOrAltered) {
  const std::string text = read_file(examples + "1ubq.pdb");
  const std::string whole = packed(text.substr(0, 40000));
  std::vector<std::string> broken;
  for (std::size_t length = 2; length < whole.size(); length += whole.size() / 19) {
    broken.push_back(whole.substr(0, length));
  }
  for (std::size_t missing = 1; missing < 9; ++missing) {  // of checksum and length
    broken.push_back(whole.substr(0, whole.size() - missing));
    broken.push_back(whole);
    broken.back()[whole.size() - missing] ^= 1;
  }
  for (const std::string& bytes : broken) {
    write_file("m.pdb.gz", bytes);
    expect_refusal(fcalc("m.pdb.gz"), "m.pdb.gz is a damaged gzip file");
  }
  std::string data = packed(read_file(examples + "1ubq.mtz"));
  data[data.size() - 6] ^= 1;
  write_file("d.mtz.gz", data);
  expect_refusal(map({"d.mtz.gz", "out.ccp4"}), "d.mtz.gz is a damaged gzip file");
  expect_refusal(fcalc(examples + "1ubq.pdb", {"--hkl", "d.mtz.gz"}), "damaged gzip file");
  expect_refusal(run_program("quorix", {"info", "d.mtz.gz"}), "damaged gzip file");
  write_file("bomb.pdb.gz", packed(std::string(80 << 20, ' ')));
  expect_refusal(fcalc("bomb.pdb.gz"), "unpacks to more than 100 times its size");
}

constexpr const char* crystal =
    "CRYST1   20.000   21.000   30.000  90.00  90.00  90.00 P 21 21 21\n";
const std::string atom =
    "ATOM      7  CA  ALA B  12       1.000   2.000   3.000  1.00 20.00           C  \n";

std::string pdb_with(std::size_t column, const std::string& value) {
  return crystal + atom + std::string(atom).replace(column, value.size(), value);
}

TEST_F(BrokenInputs, numbersOfCoordinateFiles) {
  struct Row {
    std::size_t column;
    const char *value, *what;
  };
  for (const Row& row : {Row{30, "********", "x coordinate of atom 7 CA ALA B 12"},
                         Row{38, "     nan", "y coordinate"}, Row{46, "        ", "z coordinate"},
                         Row{54, "******", "occupancy"}, Row{54, "  1,00", "occupancy"},
                         Row{60, "   inf", "B factor"}}) {
    write_file("m.pdb", pdb_with(row.column, row.value));
    const std::string report = std::string("m.pdb, line 3: the ") + row.what;
    expect_refusal(fcalc("m.pdb"), report);
    make(two_columns("FWT", "PHWT"));
    expect_refusal(map({"in.mtz", "out.ccp4", "--extent", "model", "m.pdb"}), report);
  }
  write_file("m.pdb", std::string(crystal).replace(15, 9, "*********") + atom);
  expect_refusal(fcalc("m.pdb"), "m.pdb, line 1: the cell edge b is no number: '*********'");

  const std::string cif =
      "data_m\n_cell.length_a 20\n_cell.length_b 21\n_cell.length_c 30\n_cell.angle_alpha 90\n"
      "_cell.angle_beta 90\n_cell.angle_gamma 90\n_symmetry.space_group_name_H-M 'P 21 21 21'\n"
      "loop_\n_atom_site.id\n_atom_site.type_symbol\n_atom_site.label_atom_id\n"
      "_atom_site.label_alt_id\n_atom_site.label_comp_id\n_atom_site.label_asym_id\n"
      "_atom_site.auth_seq_id\n_atom_site.Cartn_x\n_atom_site.Cartn_y\n_atom_site.Cartn_z\n"
      "_atom_site.occupancy\n_atom_site.B_iso_or_equiv\n1 C CA . ALA A 5 1 2 3 1 20\n"
      "2 C CB . ALA A 5 ";
  for (const auto& [rest, what] :
       {std::pair{"X 2 3 1 20", "x coordinate of atom 2 CB ALA 5 is no number: 'X'"},
        std::pair{"1 2 ? 1 20", "z coordinate"}, std::pair{"1 2 3 nan 20", "occupancy"},
        std::pair{"1 2 3 1 1.0.0", "B factor"}}) {
    write_file("m.cif", cif + rest + '\n');
    expect_refusal(fcalc("m.cif"), std::string("m.cif, line 23: the ") + what);
  }
  write_file("m.cif", cif + "1 2 3 . .\n");
  const ProgramResult open = fcalc("m.cif");
  EXPECT_EQ(open.status, 0) << open.errors;
  EXPECT_NE(open.errors.find("1 atoms have no occupancy: 1 is taken"), std::string::npos);
  EXPECT_NE(open.errors.find("1 atoms have no B factor: 50 A^2 is taken"), std::string::npos);
}

// The header behind them holds when it was written.
std::string reflections_of(const std::string& path) {
  const std::string bytes = read_file(path);
  return bytes.substr(80, bytes.find("VERS MTZ") - 80);
}

TEST_F(BrokenInputs, blanksAndFurtherModelsHaveALine) {
  const std::string two =
      std::string("MODEL        1\n") + atom + "ENDMDL\nMODEL        2\n" + atom + "ENDMDL\n";
  write_file("m.pdb", crystal + atom);
  ASSERT_EQ(fcalc("m.pdb").errors, "");
  const std::string one = reflections_of("fc.mtz");
  write_file("m.pdb", crystal + std::string(atom).replace(54, 12, std::string(12, ' ')));
  ProgramResult result = fcalc("m.pdb");
  EXPECT_NE(result.errors.find("1 atoms have no occupancy: 1 is taken"), std::string::npos);
  EXPECT_NE(result.errors.find("1 atoms have no B factor: 20 A^2 is taken"), std::string::npos);
  EXPECT_TRUE(reflections_of("fc.mtz") == one);
  write_file("m.pdb", crystal + two);
  result = fcalc("m.pdb");
  EXPECT_NE(result.errors.find("m.pdb holds 2 models: only the first is used"), std::string::npos);
  EXPECT_TRUE(reflections_of("fc.mtz") == one);
  make(two_columns("FWT", "PHWT"));
  result = map({"in.mtz", "out.ccp4", "--extent", "model", "m.pdb"});
  for (const char* line :
       {"m.pdb holds 2 models", "the model is in P 21 21 21, the reflections are in P 1",
        "the model's cell is 20 21 30 90 90 90, the reflections' 10 20 30 90 90 90"}) {
    EXPECT_NE(result.errors.find(line), std::string::npos) << line << '\n' << result.errors;
  }
}

TEST_F(BrokenInputs, dataThatAreNotTheModels) {
  MtzMaker maker = two_columns("FP", "PHI");
  maker.cell = "20.0 21.0 30.0 90.0 90.0 90.0";
  make(maker);
  write_file("m.pdb", crystal + atom);
  const ProgramResult result = fcalc("m.pdb", {"--hkl", "in.mtz"});
  EXPECT_EQ(result.status, 0) << result.errors;
  for (const char* line :
       {"the model is in P 21 21 21, the reflections are in P 1: the model's is",
        "3 reflections that the group extinguishes have amplitudes (up to 10)"}) {
    EXPECT_NE(result.errors.find(line), std::string::npos) << line << '\n' << result.errors;
  }
}

TEST_F(BrokenInputs, dataOfAnotherCrystalForm) {
  make(two_columns("FP", "PHI"));  // 10 20 30
  write_file("m.pdb", crystal + atom);
  expect_refusal(fcalc("m.pdb", {"--hkl", "in.mtz"}), "two crystal forms");
  const Arguments cell = {"--hkl", "in.mtz", "--cell", "10", "20", "30", "90", "90", "90"};
  EXPECT_EQ(fcalc("m.pdb", cell).status, 0);
}

TEST_F(BrokenInputs, columnsThatCanBeNoAmplitude) {
  MtzMaker maker = two_columns("FWT", "PHWT");
  const std::vector<float> values(maker.rows(), 5.0F);
  maker.add("I", 'J', values).add("SIGF", 'Q', values).add("FOM", 'W', values);
  maker.add("FREE", 'I', values).add("D", 'D', values);
  make(maker);
  const auto refused = [](const std::string& f, const std::string& phi, const std::string& text) {
    expect_refusal(map({"in.mtz", "out.ccp4", "--f", f, "--phi", phi}), text);
  };
  refused("I", "PHWT", "column I is no amplitude but an intensity");
  refused("SIGF", "PHWT", "is no amplitude but a standard deviation");
  refused("PHWT", "PHWT", "is no amplitude but a phase");
  refused("FREE", "PHWT", "is no amplitude but an integer");
  refused("FWT", "FOM", "column FOM is no phase but a weight");
  write_file("m.pdb", crystal + atom);
  expect_refusal(fcalc("m.pdb", {"--hkl", "in.mtz", "--labels", "I"}),
                 "is no amplitude but an int");
  EXPECT_EQ(map({"in.mtz", "out.ccp4", "--f", "D", "--phi", "PHWT"}).errors, "");
}

}  // namespace
}  // namespace qx::test
