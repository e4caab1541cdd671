// MTZ files made in memory, byte by byte, with nothing of the engine: what the reader is held
// against. Every record can be altered before it is laid down.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qx::test {

struct MadeColumn {
  std::string label;
  char type;
  int dataset;
  std::vector<float> values;
};

struct MadeDataset {
  int id;
  std::string project, crystal, name;
  double wavelength;
};

struct MadeBatch {
  int number;
  std::string title;
  std::vector<std::int32_t> integers;
  std::vector<float> reals;
};

class MtzMaker {
 public:
  bool big_endian = false;
  bool wide_location = false;  // -1 in the header word, the 64-bit location behind the stamp
  std::string version = "MTZ:V1.1";
  std::string title = "made by the tests";
  std::string cell = "10.0 20.0 30.0 90.0 90.0 90.0";
  std::string symmetry = "1 1 P 1 'P 1' PG1";  // after SYMINF
  std::vector<std::string> operators = {"x,y,z"};
  std::string missing = "NAN";
  std::vector<MadeDataset> datasets = {{0, "HKL_base", "HKL_base", "HKL_base", 0.0},
                                       {1, "project", "crystal", "data", 0.9793}};
  std::vector<MadeColumn> columns;
  std::vector<std::string> history;
  std::vector<MadeBatch> batches;
  // Records by their first letters: replaced by the text, or left out when it is empty.
  std::vector<std::pair<std::string, std::string>> edits;
  std::vector<std::string> extra;  // further records before END

  // H, K, L of every reflection.
  explicit MtzMaker(const std::vector<std::vector<int>>& indices);
  MtzMaker& add(const std::string& label, char type, std::vector<float> values, int dataset = 1);

  [[nodiscard]] std::size_t rows() const;
  // Byte at which the header records start.
  [[nodiscard]] std::size_t header_start() const;
  [[nodiscard]] std::string bytes() const;

 private:
  std::string record(const std::string& text) const;
  std::string word(std::uint32_t value) const;
  std::string main_header() const;
  std::string trailer() const;
};

// Every reflection with |h| <= most[0] ... once, without (0,0,0) and Friedel opposites.
std::vector<std::vector<int>> half_sphere(int hmax, int kmax, int lmax);

}  // namespace qx::test
