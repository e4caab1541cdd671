#include "core/parallel.h"

#include "core/processor_count.h"

#include <quorix/engine.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <numeric>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace qx {
namespace {

// Every part runs once, and no two workers of a number at the same time: they would race for its
// sum.
std::int64_t sum_of_parts(std::int32_t parts, std::int32_t threads) {
  std::vector<std::int32_t> runs(static_cast<std::size_t>(parts));
  std::vector<std::int64_t> sums(static_cast<std::size_t>(threads));
  parallel(parts, threads, [&](std::int32_t part, std::int32_t worker) {
    ++runs[static_cast<std::size_t>(part)];
    sums[static_cast<std::size_t>(worker)] += part;
  });
  EXPECT_EQ(std::count(runs.begin(), runs.end(), 1), parts);
  return std::accumulate(sums.begin(), sums.end(), std::int64_t{0});
}

std::int64_t sum_below(std::int64_t parts) { return parts * (parts - 1) / 2; }

TEST(Parallel, runsEveryPartOnceWithScratchOfItsOwn) {
  for (const std::int32_t threads : {1, 2, 3, 8, 40}) {
    for (const std::int32_t parts : {0, 1, 2, 7, 1000}) {
      EXPECT_EQ(sum_of_parts(parts, threads), sum_below(parts));
    }
  }
}

TEST(Parallel, servesSeveralCallersAndCallsFromWithin) {
  std::vector<std::thread> callers;
  for (std::int32_t caller = 0; caller < 6; ++caller) {
    callers.emplace_back([caller] {
      for (std::int32_t i = 0; i < 200; ++i)
        EXPECT_EQ(sum_of_parts(50 + caller, 3), sum_below(50 + caller));
    });
  }
  for (std::thread& caller : callers) caller.join();
  parallel(4, 4, [](std::int32_t part, std::int32_t) {
    EXPECT_EQ(sum_of_parts(10 + part, 3), sum_below(10 + part));
  });
}

std::int32_t own_threads() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return static_cast<std::int32_t>(std::distance(begin(tasks), end(tasks)));
}

// 0: the child's work was right, and it had so many threads then.
int status_of_child(void (*prepare)(), std::int32_t threads) {
  const pid_t child = fork();
  if (child == 0) {
    prepare();
    const bool right = sum_of_parts(100, 4) == sum_below(100);
    _exit(right && own_threads() == threads ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

// The limit does not hold for the administrator.
void allow_no_threads() {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_NPROC, &none);
  if (geteuid() == 0 && setuid(65534) != 0) _exit(2);
}

TEST(Parallel, worksInAChildAndWithoutThreads) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "a child of several threads starts none under this sanitizer";
#endif
  EXPECT_EQ(sum_of_parts(100, 4), sum_below(100));
  EXPECT_EQ(status_of_child([] {}, 4), 0);
  EXPECT_EQ(status_of_child(allow_no_threads, 1), 0);
}

TEST(Parallel, cutsItemsWithoutGapOrOverlap) {
  for (const std::int64_t count : {0, 5, 16, 1000003}) {
    std::int64_t largest = 0;
    for (std::int32_t part = 0; part < 16; ++part) {
      const std::int64_t size = part_begin(count, 16, part + 1) - part_begin(count, 16, part);
      EXPECT_GE(size, count / 16);
      largest = std::max(largest, size);
    }
    EXPECT_LE(largest, count / 16 + 1);
    EXPECT_EQ(part_begin(count, 16, 0), 0);
    EXPECT_EQ(part_begin(count, 16, 16), count);
  }
}

TEST(ThreadCount, isTheSettingElseTheEnvironmentElseTheProcessors) {
  setenv("QUORIX_THREADS", "3", 1);
  setenv("OMP_NUM_THREADS", "5,2", 1);
  EXPECT_EQ(qx_get_threads(), 3);
  qx_set_threads(7);
  EXPECT_EQ(qx_get_threads(), 7);
  std::thread([] { EXPECT_EQ(qx_get_threads(), 3); }).join();  // another engine
  qx_set_threads(0);
  for (const char* unusable : {"", "many", "-2", "0", "3x", "99999999999999999999999"}) {
    setenv("QUORIX_THREADS", unusable, 1);
    EXPECT_EQ(qx_get_threads(), unusable[0] == '9' ? 1024 : 5) << unusable;
  }
  unsetenv("QUORIX_THREADS");
  unsetenv("OMP_NUM_THREADS");
  EXPECT_EQ(qx_get_threads(), usable_processors());
  qx_set_threads(7);
  EXPECT_EQ(threads_worth(1000.0), 1);
  EXPECT_EQ(threads_worth(1e12), 7);
  qx_set_threads(0);
}

class Quota : public ::testing::Test {
 protected:
  void TearDown() override { std::filesystem::remove_all(folder_); }

  void write(const std::string& path, const std::string& text) {
    std::filesystem::create_directories((folder_ / path).parent_path());
    std::ofstream(folder_ / path) << text;
  }
  std::int32_t read() {
    return processors_of_quota((folder_ / "membership").c_str(), folder_.c_str());
  }

  std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("quota" + std::to_string(getpid()));
};

TEST_F(Quota, isTheTightestOfAllGroupsAbove) {
  write("membership", "4:memory:/other\n0::/user/job\n");
  write("user/job/cpu.max", "max 100000\n");
  EXPECT_EQ(read(), 0);
  write("cpu.max", "800000 100000\n");
  EXPECT_EQ(read(), 8);
  write("user/cpu.max", "250000 100000\n");
  EXPECT_EQ(read(), 2);
  write("user/job/cpu.max", "50000 100000\n");
  EXPECT_EQ(read(), 1);
}

TEST_F(Quota, isReadOfTheFirstGenerationAlsoFromWithinAContainer) {
  write("membership", "9:cpuset:/\n3:cpu,cpuacct:/not/visible\n");
  EXPECT_EQ(read(), 0);
  write("cpu/cpu.cfs_quota_us", "-1\n");
  write("cpu/cpu.cfs_period_us", "100000\n");
  EXPECT_EQ(read(), 0);
  write("cpu/cpu.cfs_quota_us", "300000\n");
  EXPECT_EQ(read(), 3);
}

}  // namespace
}  // namespace qx
