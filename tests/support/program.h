// Running the built programs.
#pragma once

#include <string>
#include <vector>

namespace qx::test {

struct ProgramResult {
  int status;  // exit status; -1 when a signal ended the program
  std::string output, errors;
};

// Runs bin/<name> of the build with the given arguments and standard input. ZENVI_DATA is the
// source tree's; without `data` it is unset, and the program a copy that has none beside it.
ProgramResult run_program(const std::string& name, const std::vector<std::string>& arguments,
                          const std::string& input = {}, bool data = true);

// `name` somewhere on the machine, or empty.
std::string find_program(const std::string& name);

}  // namespace qx::test
