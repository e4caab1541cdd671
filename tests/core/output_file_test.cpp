#include "core/output_file.h"

#include "support/engine.h"

#include <sys/stat.h>

namespace qx::test {
namespace {

namespace fs = std::filesystem;

std::size_t entries(const fs::path& folder) {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

TEST(OutputFile, replacesItsTargetOnlyWhenWhole) {
  ScratchDirectory scratch;
  const std::string target = scratch.file("map");
  write_file(target, "good");
  {
    OutputFile file;
    ASSERT_TRUE(file.open(target.c_str()));
    std::fputs("half", file.stream());
  }
  EXPECT_EQ(read_file(target), "good");
  {
    OutputFile file;
    ASSERT_TRUE(file.open(target.c_str()));
    std::fputs("better", file.stream());
    EXPECT_TRUE(file.commit());
  }
  EXPECT_EQ(read_file(target), "better");
  EXPECT_EQ(entries(scratch.path()), 1U);
}

TEST(OutputFile, keepsModesAndFollowsLinks) {
  ScratchDirectory scratch;
  const std::string target = scratch.file("real");
  write_file(target, "old");
  chmod(target.c_str(), 0640);
  fs::create_symlink("real", scratch.path() / "link");
  OutputFile file;
  ASSERT_TRUE(file.open(scratch.file("link").c_str()));
  std::fputs("new", file.stream());
  ASSERT_TRUE(file.commit());
  EXPECT_TRUE(fs::is_symlink(scratch.path() / "link"));
  EXPECT_EQ(read_file(target), "new");
  EXPECT_EQ(fs::status(target).permissions(), static_cast<fs::perms>(0640));
}

TEST(OutputFile, writesDevicesDirectlyAndNoticesAFullOne) {
  OutputFile null;
  ASSERT_TRUE(null.open("/dev/null"));
  std::fputs("x", null.stream());
  EXPECT_TRUE(null.commit());
  OutputFile full;
  if (!full.open("/dev/full")) GTEST_SKIP();
  std::fputs("x", full.stream());
  EXPECT_FALSE(full.commit());
}

TEST(OutputFile, cannotBeOpenedWhereNothingCanBeWritten) {
  ScratchDirectory scratch;
  OutputFile file;
  EXPECT_FALSE(file.open(scratch.path().c_str()));
  EXPECT_FALSE(file.open(scratch.file("no/such/folder").c_str()));
  EXPECT_FALSE(file.open(""));
  EXPECT_FALSE(file.open(scratch.file(std::string(300, 'n')).c_str()) && file.commit());
}

}  // namespace
}  // namespace qx::test
