// Running quorix fcalc, and what it wrote.
#pragma once

#include "support/engine.h"
#include "support/program.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace qx::test {

using Arguments = std::vector<std::string>;

inline const std::string examples = std::string(QUORIX_SOURCE_DIR) + "/examples";
inline const std::string model = examples + "/1ubq.pdb";
inline const std::string data = examples + "/1ubq.mtz";

inline ProgramResult fcalc(Arguments arguments, bool with_data = true) {
  arguments.insert(arguments.begin(), "fcalc");
  return run_program("quorix", arguments, {}, with_data);
}

inline std::string atom_record(const std::string& element, int serial,
                               const std::array<double, 3>& at, double b = 20.0,
                               double occupancy = 1.0) {
  char line[100];
  std::snprintf(line, sizeof line,
                "HETATM%5d %-4s LIG A%4d    %8.3f%8.3f%8.3f%6.2f%6.2f          %2s\n", serial,
                element.c_str(), serial, at[0], at[1], at[2], occupancy, b, element.c_str());
  return line;
}

using Columns = std::map<std::string, std::vector<float>>;

// The columns of an MTZ file by their labels: floats from byte 80 on, header records behind them.
inline Columns read_columns(const std::string& path) {
  const std::string bytes = read_file(path);
  if (bytes.size() < 80) return {};
  std::int32_t header = 0;
  std::memcpy(&header, bytes.data() + 4, 4);
  std::vector<std::string> labels;
  for (std::size_t at = 4 * (static_cast<std::size_t>(header) - 1); at < bytes.size(); at += 80) {
    std::istringstream record(bytes.substr(at, 80));
    std::string keyword;
    std::string label;
    record >> keyword >> label;
    if (keyword == "COLUMN") labels.push_back(label);
  }
  Columns columns;
  const std::size_t words = static_cast<std::size_t>(header) - 1 - 20;
  for (std::size_t i = 0; i < words; ++i) {
    float value = 0;
    std::memcpy(&value, bytes.data() + 80 + 4 * i, 4);
    columns[labels.at(i % labels.size())].push_back(value);
  }
  return columns;
}

inline Columns calculated(const Arguments& arguments) {
  const ScratchDirectory scratch;
  Arguments all = arguments;
  all.insert(all.end(), {"-o", scratch.file("out.mtz")});
  const ProgramResult result = fcalc(all);
  EXPECT_EQ(result.status, 0) << result.output << result.errors;
  return read_columns(scratch.file("out.mtz"));
}

inline bool gemmi_module() {
  return std::system("/usr/bin/python3 -c 'import gemmi, numpy' 2>/dev/null") == 0;
}

// Runs the script beside this file; its output when it fails.
inline std::string script(const std::string& arguments) {
  const ScratchDirectory scratch;
  const std::string command = "/usr/bin/python3 '" + std::string(QUORIX_SOURCE_DIR) +
                              "/tests/tool/compare_structure_factors.py' " + arguments + " >'" +
                              scratch.file("log") + "' 2>&1";
  return std::system(command.c_str()) == 0 ? "" : read_file(scratch.file("log")) + "failed";
}

}  // namespace qx::test
