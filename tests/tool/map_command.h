// Running quorix map in a folder of its own, and small files for it.
#pragma once

#include "support/engine.h"
#include "support/mtz_maker.h"
#include "support/program.h"

#include <gtest/gtest.h>

namespace qx::test {

using Arguments = std::vector<std::string>;

// A folder of its own, in which files without a path appear.
class MapCommand : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::current_path(scratch_.path()); }
  void TearDown() override { std::filesystem::current_path(before_); }

  static ProgramResult map(Arguments arguments) {
    arguments.insert(arguments.begin(), "map");
    return run_program("quorix", arguments);
  }
  static void make(const MtzMaker& maker) { write_file("in.mtz", maker.bytes()); }

  ScratchDirectory scratch_;
  std::filesystem::path before_ = std::filesystem::current_path();
};

// Every reflection of a small cell with one amplitude and one phase.
inline MtzMaker two_columns(const std::string& f, const std::string& phi) {
  const auto indices = half_sphere(2, 2, 2);
  MtzMaker maker(indices);
  maker.add(f, 'F', std::vector<float>(indices.size(), 10.0F));
  maker.add(phi, 'P', std::vector<float>(indices.size(), 30.0F));
  return maker;
}

}  // namespace qx::test
