// An engine for each thread: maps of different crystals at the same time, many of them dying.
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <quorix/cross.h>
#include <quorix/driver.h>
#include <quorix/memory.h>

#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace qx::test {
namespace {

struct Crystal {
  const char* group;
  double cell[6];
};

constexpr std::array<Crystal, 8> crystals = {{
    {"P 1", {11, 12, 13, 80, 95, 101}},
    {"P 21 21 21", {12, 13, 14, 90, 90, 90}},
    {"C 1 2 1", {15, 11, 12, 90, 103, 90}},
    {"P 43 21 2", {13, 13, 16, 90, 90, 90}},
    {"P 1 21 1", {12, 14, 11, 90, 99, 90}},
    {"P 61", {13, 13, 17, 90, 90, 120}},
    {"I 2 3", {14, 14, 14, 90, 90, 90}},
    {"P -1", {10, 13, 15, 82, 96, 108}},
}};

std::string random_file(unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> value(1.0F, 100.0F);
  MtzMaker file(half_sphere(3, 3, 3));
  std::vector<float> f, phi, fom;
  for (std::size_t i = 0; i < file.rows(); ++i) {
    f.push_back(value(random));
    phi.push_back(3.6F * value(random));
    fom.push_back(0.01F * value(random));
  }
  return file.add("F", 'F', f).add("PHI", 'P', phi).add("FOM", 'W', fom).bytes();
}

void keep(void* text, const char* piece, std::size_t size) {
  static_cast<std::string*>(text)->append(piece, size);
}

// One thread's work: maps of its crystal, and in between jobs that die in different places.
class Worker {
 public:
  Worker(const ScratchDirectory& scratch, std::size_t number)
      : crystal_(crystals[number]),
        input_(scratch.file("in" + std::to_string(number))),
        output_(scratch.file("out" + std::to_string(number))),
        nowhere_(scratch.file("no folder/map")) {
    write_file(input_, random_file(static_cast<unsigned>(number)));
  }

  // What the engine says, without addresses; `fault` 0 is a good job.
  std::string run(int fault) const {
    std::string said;
    qx_set_output(keep, &said);
    const char* phase = fault == 1 ? "NONE" : "PHI";
    const char* fom = fault == 2 ? "FOM" : nullptr;  // dies with objects of all kinds around
    const std::string& map = fault == 3 ? nowhere_ : output_;
    const auto deaths = qx_get_die_count();
    const Status status = quorix_zenvi_driver2(crystal_.group, crystal_.cell, input_.c_str(), "F",
                                               phase, fom, map.c_str(), 3.0, 50.0);
    qx_set_output(nullptr, nullptr);
    EXPECT_EQ(status, fault ? failed : ok) << said;
    EXPECT_EQ(qx_get_die_count() - deaths > 0, fault != 0);
    EXPECT_EQ(qx_exist_quorix(), 0);
    return said;
  }
  // Numbers of the map in the file.
  [[nodiscard]] std::string map() const { return read_file(output_).substr(1024); }

  void learn() {
    for (int fault = 0; fault < faults; ++fault)
      said_.at(static_cast<std::size_t>(fault)) = run(fault);
    map_ = map();
  }
  void repeat(int times) const {
    for (int i = 0; i < times; ++i) {
      const int fault = i % 2 == 0 ? 0 : 1 + i / 2 % (faults - 1);
      EXPECT_EQ(run(fault), said_.at(static_cast<std::size_t>(fault)));
      if (i % 50 == 0) {
        EXPECT_EQ(map(), map_);
      }
    }
  }

 private:
  static constexpr int faults = 4;
  const Crystal& crystal_;
  std::string input_, output_, nowhere_;
  std::array<std::string, faults> said_;
  std::string map_;
};

TEST(Engines, ofEightThreadsDoNotDisturbOneAnother) {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  const ScratchDirectory scratch;
  std::vector<Worker> workers;
  for (std::size_t i = 0; i < crystals.size(); ++i) {
    workers.emplace_back(scratch, i);
    workers.back().learn();
  }
  std::vector<std::thread> threads;
  for (const Worker& worker : workers) threads.emplace_back([&] { worker.repeat(1000); });
  for (std::thread& thread : threads) thread.join();
}

TEST(Engines, haveRandomNumbersAndMemoryOfTheirOwn) {
  const auto draw = [] {
    std::int32_t seed = -7;
    std::vector<double> numbers;
    for (int i = 0; i < 1000; ++i) numbers.push_back(qx_get_random_double01(&seed));
    return numbers;
  };
  const std::vector<double> alone = draw();
  ASSERT_EQ(qx_create_quorix(), ok);
  const double memory = qx_get_xmalloc_memory_size();
  void* block = xmalloc(4096, "ours");
  ASSERT_NE(block, nullptr);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      EXPECT_EQ(draw(), alone);
      EXPECT_EQ(quorix, nullptr);
      ASSERT_EQ(qx_create_quorix(), ok);
      EXPECT_EQ(qx_get_xmalloc_memory_size(), memory);
      EXPECT_EQ(do_we_open_this_ptr(block), 0);
      die();
      EXPECT_EQ(die_reentrant, 1);
      EXPECT_EQ(qx_get_die_count(), 1);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(do_we_open_this_ptr(block), 1);
  EXPECT_EQ(xfree(block), ok);
  qx_terminate_quorix();
}

}  // namespace
}  // namespace qx::test
