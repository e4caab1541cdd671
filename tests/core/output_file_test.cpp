#include "core/output_file.h"

#include "support/engine.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

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

// Where the system can, nothing is seen of it before it is whole.
TEST(OutputFile, whatIsBeingWrittenIsNotClearedUp) {
  ScratchDirectory scratch;
  const std::string target = scratch.file("map");
  OutputFile file;
  ASSERT_TRUE(file.open(target.c_str()));
  std::fputs("whole", file.stream());
  for (const auto& entry : fs::directory_iterator(scratch.path())) {
    EXPECT_FALSE(remove_stray(entry.path().c_str()));
  }
  const std::string stray = scratch.file(std::string(temporary_prefix) + "1");
  write_file(stray, "left");
  const int writer = open(stray.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(writer, LOCK_EX), 0);
  EXPECT_FALSE(remove_stray(stray.c_str()));
  EXPECT_TRUE(fs::exists(stray));
  close(writer);
  EXPECT_TRUE(remove_stray(stray.c_str()));
  EXPECT_FALSE(fs::exists(stray));
  EXPECT_TRUE(file.commit());
  EXPECT_EQ(read_file(target), "whole");
  EXPECT_EQ(entries(scratch.path()), 1U);
}

// As a front end does that hands the file on: its name is one of the process only.
TEST(OutputFile, writesAFileWithoutANameDirectly) {
  ScratchDirectory scratch;
  const int file = open(scratch.path().c_str(), O_TMPFILE | O_RDWR, 0600);
  if (file < 0) GTEST_SKIP();
  OutputFile output;
  ASSERT_TRUE(output.open(("/proc/self/fd/" + std::to_string(file)).c_str()));
  std::fputs("text", output.stream());
  EXPECT_TRUE(output.commit());
  char bytes[5] = {};
  EXPECT_EQ(pread(file, bytes, 4, 0), 4);
  EXPECT_STREQ(bytes, "text");
  close(file);
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
