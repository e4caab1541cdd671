// A subcommand that takes made MTZ files, run in a folder of its own.
#pragma once

#include "support/engine.h"
#include "support/mtz_maker.h"
#include "support/program.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace qx::test {

class MtzCommand : public ::testing::Test {
 protected:
  explicit MtzCommand(const char* subcommand) : subcommand_(subcommand) {}

  [[nodiscard]] std::string save(const MtzMaker& maker, const std::string& name) const {
    write_file(scratch_.file(name), maker.bytes());
    return scratch_.file(name);
  }
  ProgramResult run(std::vector<std::string> words) const {
    words.insert(words.begin(), subcommand_);
    return run_program("quorix", words);
  }
  nlohmann::json json_of(std::vector<std::string> words) const {
    words.emplace_back("--json");
    const ProgramResult r = run(words);
    EXPECT_EQ(r.status, 0) << r.output << r.errors;
    return r.status == 0 ? nlohmann::json::parse(r.output) : nlohmann::json();
  }

  ScratchDirectory scratch_;

 private:
  const char* subcommand_;
};

}  // namespace qx::test
