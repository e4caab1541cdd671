// No command reads a reflection file twice: counted by the kernel, in this very process.
#include "driver/commands/app.h"
#include "driver/commands/command_error.h"
#include "driver/commands/reflection_file.h"
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <quorix/mtz.h>
#include <quorix/reflections.h>
#include <quorix/views.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <thread>

namespace qx::test {
namespace {

// By this process, from files of any kind.
std::uintmax_t bytes_read() {
  std::ifstream io("/proc/self/io");
  std::string word;
  std::uintmax_t count = 0;
  io >> word >> count;
  EXPECT_EQ(word, "rchar:");
  return count;
}

std::uintmax_t bytes_read_by(const std::vector<std::string>& words) {
  CLI::App app;
  int status = 0;
  build_app(app, status);
  std::vector<std::string> reversed(words.rbegin(), words.rend());
  const std::uintmax_t before = bytes_read();
  ::testing::internal::CaptureStdout();
  app.parse(reversed);
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(status, 0) << words.front();
  return bytes_read() - before;
}

class ReadingOnce : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("ZENVI_DATA", data_directory().c_str(), 1);
    MtzMaker maker(half_sphere(14, 16, 18));
    maker.cell = "40 45 50 90 90 90";
    const std::size_t n = maker.rows();
    const auto values = [&](float first) {
      std::vector<float> column(n);
      for (std::size_t i = 0; i < n; ++i) column[i] = first + static_cast<float>(i % 97);
      return column;
    };
    for (const char* f : {"FWT", "DELFWT", "FP"}) maker.add(f, 'F', values(10));
    for (const char* phi : {"PHWT", "PHDELWT", "PHIC"}) maker.add(phi, 'P', values(-40));
    maker.add("SIGFP", 'Q', values(1));
    write_file(first_, maker.bytes());
    write_file(second_, maker.bytes());
    size_ = maker.bytes().size();
  }
  void expect_once(const std::vector<std::string>& words, std::uintmax_t files = 1) {
    constexpr std::uintmax_t others = 150'000;  // beginnings of files, groups, form factors
    EXPECT_LT(bytes_read_by(words), files * (size_ + size_ / 10) + others) << words.front();
  }

  ScratchDirectory scratch_;
  const std::string first_ = scratch_.file("first.mtz"), second_ = scratch_.file("second.mtz");
  std::size_t size_ = 0;
};

TEST_F(ReadingOnce, holdsOfEveryCommand) {
  ASSERT_GT(size_, 500'000U);
  const std::string pdb = scratch_.file("atom.pdb");
  write_file(pdb,
             "CRYST1   40.000   45.000   50.000  90.00  90.00  90.00 P 1\n"
             "ATOM      1  CA  ALA A   1      11.000  12.000  13.000  1.00 20.00           C\n");
  const std::string out = scratch_.file("out.mtz");
  expect_once({"info", first_});
  expect_once({"stats", first_, "-q"});
  expect_once({"map", first_, "--prefix", scratch_.file("one"), "-q"});
  expect_once({"map", first_, second_, "--prefix", scratch_.path().string() + "/", "-q"}, 2);
  expect_once({"map", first_, "--grid", "20", "20", "20", "--show-grid", "-q"});
  expect_once({"fcalc", pdb, "--hkl", first_, "-o", out, "-q"});
  expect_once({"maps", pdb, first_, "-o", out, "-q"});
  expect_once({"validate", pdb, first_, "-q"});
  expect_once({"fofo", first_, second_, "--phases", "PHIC", "-o", out, "-q"}, 2);
  expect_once({"fofo", first_, second_, "--model", pdb, "-o", out, "-q"}, 2);
}

// What is held is the file that was read, however many sets share it and whichever goes first.
TEST_F(ReadingOnce, isOfTheFileThatStandsThere) {
  qx::Engine engine(false);
  const ReflectionFile file = read_reflections(engine, first_);
  ASSERT_EQ(file.columns.size(), 10U);
  const auto read = [&](const char* phase) {
    engine.renew();
    engine.run(SectionText("xcry")
                   .line("spgname P1")
                   .line("cell 40 45 50 90 90 90")
                   .line("read refl mtz file " + quoted_name(first_) +
                         " coid MAP_COEFFA=FWT MAP_COEFFP=" + phase));
    qx_reflections_view set = {};
    engine.call([&] { return qx_get_reflections_view(&set) == 1 ? ok : failed; });
    return set.n;
  };
  const std::uintmax_t before = bytes_read();
  EXPECT_EQ(read("PHWT"), static_cast<std::int32_t>(file.rows));
  EXPECT_EQ(read("PHIC"), static_cast<std::int32_t>(file.rows));
  EXPECT_LT(bytes_read() - before, size_ / 2);
  EXPECT_EQ(file.find("PHWT").front()->values[3], -37.0F);  // through two renewals
  MtzMaker other(half_sphere(2, 2, 2));
  other.add("FWT", 'F', std::vector<float>(other.rows(), 1.0F));
  other.add("PHIC", 'P', std::vector<float>(other.rows(), 1.0F));
  write_file(first_, other.bytes());
  EXPECT_EQ(read("PHIC"), static_cast<std::int32_t>(other.rows()));
}

// A file that left its engine is lent to others, of several threads at a time; what stands under
// its name by then does not matter.
TEST_F(ReadingOnce, isLentToEnginesOfOtherThreads) {
  const auto file = std::make_shared<const ReflectionFile>(read_reflections(first_, false));
  write_file(first_, "nothing of use");
  std::vector<float> sums(4);
  const auto work = [&](std::size_t at) {
    for (int i = 0; i < 5; ++i) {
      qx::Engine engine(false);
      file->lend();
      for (const bool again : {false, true}) {
        if (again) engine.renew();
        engine.run(SectionText("xcry")
                       .line("spgname P1")
                       .line("cell 40 45 50 90 90 90")
                       .line("read refl mtz file " + quoted_name(first_) +
                             " coid MAP_COEFFA=FWT MAP_COEFFP=PHWT"));
      }
      qx_reflections_view set = {};
      engine.call([&] { return qx_get_reflections_view(&set) == 1 ? ok : failed; });
      sums[at] += static_cast<float>(set.n);
    }
  };
  std::vector<std::thread> threads;
  for (std::size_t at = 0; at < sums.size(); ++at) threads.emplace_back(work, at);
  for (std::thread& thread : threads) thread.join();
  for (const float sum : sums) EXPECT_EQ(sum, 5.0F * static_cast<float>(file->rows));
  EXPECT_EQ(file->find("PHWT").front()->values[3], -37.0F);
  qx::Engine engine(false);  // to which nothing is lent
  ::testing::internal::CaptureStdout();
  EXPECT_THROW(engine.run(SectionText("xcry").line("read refl mtz file " + quoted_name(first_) +
                                                   " coid MAP_COEFFA=FWT MAP_COEFFP=PHWT")),
               CommandError);
  EXPECT_NE(::testing::internal::GetCapturedStdout().find("is not a valid mtz file"),
            std::string::npos);
}

TEST_F(ReadingOnce, aHeaderAloneIsNeverHeldNorBuiltFrom) {
  qx::Engine engine(false);
  const ReflectionFile file = read_labels(engine, first_, readable_mtz(first_));
  ASSERT_EQ(file.columns.size(), 10U);
  EXPECT_TRUE(file.columns[3].values.empty());
  EXPECT_EQ(file.rows, MtzMaker(half_sphere(14, 16, 18)).rows());
  ::testing::internal::CaptureStdout();
  EXPECT_THROW(engine.call([&] {
    qxrefdata* set = qx_new_qxrefdata_obj();
    if (!set || qx_read_refdata_mtz_header_obj(set, first_.c_str()) != ok) return ok;
    return qx_hold_refdata_mtz(set);
  }),
               CommandError);
  EXPECT_NE(::testing::internal::GetCapturedStdout().find("has not been created yet"),
            std::string::npos);
}

}  // namespace
}  // namespace qx::test
