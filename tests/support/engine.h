// A fresh engine per test, captured output, sections as text, a scratch directory.
#pragma once

#include <quorix/engine.h>

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace qx::test {

// Everything that `work` prints to standard output through C stdio.
std::string captured(const std::function<void()>& work);

// Loads a text of one section and dispatches it, as a front end does; true if no die ran.
bool run_section_text(const std::string& text);

// The same with its output.
struct SectionResult {
  bool ok;
  std::string output;
};
SectionResult section(const std::string& text);

// The folder that QUORIX_REAL_DATA names, else ../shared/data/real beside the checkout; empty when
// it is not there, and tests of real files are skipped.
std::filesystem::path real_data();
// data/xray's parent in the source tree, to be put into ZENVI_DATA.
std::filesystem::path data_directory();

// A directory that is removed again.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory();
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

void write_file(const std::string& path, const std::string& bytes);
std::string read_file(const std::string& path);

// Root created before, terminated after; ZENVI_DATA points at the source tree's data.
class Engine : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

}  // namespace qx::test
