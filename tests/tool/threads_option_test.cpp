// --threads and QUORIX_THREADS: the same files on any number, bad words told.
#include "tool/fcalc_command.h"

namespace qx::test {
namespace {

class ThreadsOption : public ::testing::Test {
 protected:
  void TearDown() override { unsetenv("QUORIX_THREADS"); }
  static bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }
  ScratchDirectory scratch_;
};

TEST_F(ThreadsOption, filesAreTheSameOnAnyNumber) {
  setenv("SOURCE_DATE_EPOCH", "86400", 1);
  std::string first;
  for (const char* threads : {"1", "2", "5"}) {
    const std::string path = scratch_.file(threads);
    const ProgramResult result =
        fcalc({model, "--hkl", data, "--solvent", "exp", "-o", path + ".mtz", "--map-fofc",
               path + ".map", "--threads", threads});
    ASSERT_EQ(result.status, 0) << result.errors << result.output;
    const std::string files = read_file(path + ".mtz") + read_file(path + ".map");
    if (first.empty()) first = files;
    EXPECT_TRUE(files == first) << threads;
  }
  unsetenv("SOURCE_DATE_EPOCH");
}

TEST_F(ThreadsOption, badNumbersAreToldAndThoseOfTheEnvironmentPassedOver) {
  for (const char* word : {"0", "-1", "many", "1025"}) {
    const ProgramResult result = run_program("quorix", {"info", data, "--threads", word});
    EXPECT_EQ(result.status, 2) << word;
    EXPECT_TRUE(has(result.errors, "--threads")) << result.errors;
  }
  setenv("QUORIX_THREADS", "4 or so", 1);
  const char* told = ": QUORIX_THREADS is no number of threads and is passed over: 4 or so\n";
  const ProgramResult result = run_program("quorix", {"info", data});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "quorix" + std::string(told));
  EXPECT_EQ(run_program("quorix-map", {"--version"}).errors, "quorix-map" + std::string(told));
  setenv("QUORIX_THREADS", "4", 1);
  EXPECT_EQ(run_program("quorix", {"info", data}).errors, "");
}

}  // namespace
}  // namespace qx::test
