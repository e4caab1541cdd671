// What is fuzzed: roads that take bytes from outside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace qx::fuzz {

using Bytes = std::span<const std::uint8_t>;

struct Target {
  const char* name;  // also of its corpus' folder
  void (*run)(Bytes input);
  bool text;  // tokens are altered, else words of four bytes
};

std::span<const Target> targets();

// A folder of this process' own that inputs are written to and work is done in.
const std::string& scratch_folder();
// Writes the input as a file there and gives its path.
std::string as_file(Bytes input, const char* name);
// Standard output to nowhere, the engine's allocations limited: once.
void set_up_process();

}  // namespace qx::fuzz
