// Maps that are made plane by plane: against the road that transforms a whole block, in every
// setting of every group; the same bytes on any number of threads and in any kind of output.
#include "map/recipe.h"

#include "map_engine.h"

#include <quorix/views.h>

#include <algorithm>
#include <cmath>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace qx::test {
namespace {

std::vector<std::string> settings() {
  std::vector<std::string> all;
  std::ifstream file(data_directory() / "xray" / "spgbase.dat");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("fspgname ", 0) == 0) all.push_back(line.substr(9));
  }
  return all;
}

class Recipe : public MapEngine {
 protected:
  // A crystal without atoms; the group is chosen by name.
  void install_group(const std::string& name, const std::array<int, 3>& n) {
    install(RandomCrystal(closed_group({}), {20, 21, 22, 90, 90, 90}, 1), n);
    ASSERT_EQ(qx_new_qxspg(), ok);
    ASSERT_EQ(qx_set_qxspg_spgname(name.c_str()), ok);
    ASSERT_EQ(qx_run_qxspg_checker(), ok) << name;
  }

  // Random terms, opposites beside each other.
  static std::vector<Row> random_rows(std::mt19937& random, int most, int count) {
    std::vector<Row> rows = {{{0, 0, 0}, 30.0, 0.0}};
    const auto index = [&] {
      return static_cast<int>(random() % (2U * static_cast<unsigned>(most) + 1)) - most;
    };
    for (int i = 0; i < count; ++i) {
      const Hkl hkl = {index(), index(), index()};
      const double amplitude = 10.0 + static_cast<double>(random() % 90);
      const double phase = static_cast<double>(random() % 360);
      rows.push_back({hkl, amplitude, phase});
      rows.push_back({-hkl, amplitude, -phase});
    }
    return rows;
  }

  static std::vector<double> points() {
    const qxmap& map = *qx_get_qxmap();
    const std::size_t n = static_cast<std::size_t>(map.xhigh - map.xlow + 1) *
                          static_cast<std::size_t>(map.yhigh - map.ylow + 1) *
                          static_cast<std::size_t>(map.zhigh - map.zlow + 1);
    const double* values = map_density(*qx_get_qxmap())[0][0];
    return {values, values + n};
  }

  using Point = std::array<int, 3>;

  static Status generate_box(const std::vector<Row>& rows, Point low, Point high, Point n) {
    qxmap& map = *qx_get_qxmap();
    map.extent = frac_extent;
    for (std::size_t i = 0; i < 3; ++i) {
      map.limits[2 * i] = static_cast<double>(low[i]) / n[i];
      map.limits[2 * i + 1] = static_cast<double>(high[i]) / n[i];
    }
    return generate(rows);
  }

  static void expect_box_of(const std::vector<double>& cell, Point low, Point high, Point n) {
    const auto wrapped = [&](int i, std::size_t axis) { return (i % n[axis] + n[axis]) % n[axis]; };
    const double* box = map_density(*qx_get_qxmap())[0][0];
    for (int z = low[2]; z <= high[2]; ++z) {
      for (int y = low[1]; y <= high[1]; ++y) {
        for (int x = low[0]; x <= high[0]; ++x) {
          const int at = (wrapped(z, 2) * n[1] + wrapped(y, 1)) * n[0] + wrapped(x, 0);
          ASSERT_NEAR(*box++, cell[static_cast<std::size_t>(at)], 1e-5) << x << " " << y;
        }
      }
    }
  }

  static Status write(const std::string& path) {
    qxmap& map = *qx_get_qxmap();
    (void)xfree(std::exchange(map.path, nullptr));
    return open_text(map.path, path.c_str(), "path") == ok ? qx_wr_ccp4_map() : failed;
  }

  ScratchDirectory scratch_;
};

TEST_F(Recipe, isTheMapOfTheGeneralRoadInEverySetting) {
  std::mt19937 random(3);
  const std::vector<std::string> all = settings();
  ASSERT_GE(all.size(), 500U);
  int spared = 0;
  for (const std::string& setting : all) {
    (void)qx_create_quorix();
    install_group(setting, {24, 24, 24});
    const std::vector<Row> rows = random_rows(random, 3, 25);
    ASSERT_EQ(generate(rows), ok);
    const MapRecipe* recipe = qx_get_qxmap()->recipe;
    ASSERT_NE(recipe, nullptr);
    if (recipe->relations.nplanes < 24 || recipe->relations.nrows < 24) ++spared;
    const std::vector<double> planes = points();
    qx_get_qxrefdata()->friedel_flag = 1;
    ASSERT_EQ(generate(rows), ok);
    ASSERT_EQ(qx_get_qxmap()->recipe, nullptr);
    const std::vector<double> block = points();
    const double rms = qx_get_qxmap()->rms;
    double worst = 0;
    for (std::size_t i = 0; i < block.size(); ++i) {
      worst = std::max(worst, std::abs(planes[i] - block[i]));
    }
    EXPECT_LT(worst, 1e-5 * (rms + 1e-3)) << setting;
  }
  EXPECT_GT(spared, 480);
}

// Counts that the operators do not map onto themselves: nothing is taken for an image then.
TEST_F(Recipe, isRightOnGridsThatLackTheSymmetry) {
  std::mt19937 random(4);
  const std::vector<Row> rows = random_rows(random, 3, 25);
  for (const char* group : {"P 41 21 2", "P 31 2 1", "C 1 2 1", "I 41/a m d :2", "P 21 3"}) {
    for (const std::array<int, 3>& n : {std::array{18, 20, 15}, {16, 16, 25}, {15, 15, 27}}) {
      (void)qx_create_quorix();
      install_group(group, n);
      ASSERT_EQ(generate(rows), ok);
      const std::vector<double> planes = points();
      qx_get_qxrefdata()->friedel_flag = 1;
      ASSERT_EQ(generate(rows), ok);
      const std::vector<double> block = points();
      for (std::size_t i = 0; i < block.size(); ++i)
        ASSERT_NEAR(planes[i], block[i], 1e-5) << group;
    }
  }
}

// Terms with h + k even are kept in half the room, whether the group says so or not; a box may lie
// in the half of the rows that repeats the other.
TEST_F(Recipe, isRightWhereEverySecondTermIsMissing) {
  std::mt19937 random(8);
  std::vector<Row> rows = random_rows(random, 9, 900);
  std::erase_if(rows, [](const Row& row) { return (row.hkl.h + row.hkl.k) % 2 != 0; });
  for (const char* group : {"P 1", "C 1 2 1", "F 2 2 2"}) {
    for (const std::array<int, 3>& n : {std::array{40, 24, 20}, {24, 45, 20}, {45, 24, 20}}) {
      (void)qx_create_quorix();
      install_group(group, n);
      ASSERT_EQ(generate(rows), ok);
      EXPECT_EQ(qx_get_qxmap()->recipe->disc.alternates, n[0] % 2 == 0 && n[1] % 2 == 0);
      const std::vector<double> planes = points();
      qx_get_qxrefdata()->friedel_flag = 1;
      ASSERT_EQ(generate(rows), ok);
      const std::vector<double> block = points();
      for (std::size_t i = 0; i < block.size(); ++i) ASSERT_NEAR(planes[i], block[i], 1e-5);
      qx_get_qxrefdata()->friedel_flag = 0;
      ASSERT_EQ(generate_box(rows, {-3, n[1] / 2 - 4, 2}, {5, n[1] + 2, 9}, n), ok);
      expect_box_of(block, {-3, n[1] / 2 - 4, 2}, {5, n[1] + 2, 9}, n);
    }
  }
}

// Reads a pipe to its end.
std::string drained(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY);
  std::string bytes;
  char piece[4096];
  for (ssize_t n = 0; (n = read(descriptor, piece, sizeof piece)) > 0;) {
    bytes.append(piece, static_cast<std::size_t>(n));
  }
  close(descriptor);
  return bytes;
}

TEST_F(Recipe, isTheSameFileOnAnyNumberOfThreadsAndThroughAPipe) {
  std::mt19937 random(5);
  const std::vector<Row> rows = random_rows(random, 20, 400);
  const std::string pipe = scratch_.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const char* group : {"P 1", "P 43 21 2", "C 1 2 1", "P 31"}) {
    (void)qx_create_quorix();
    install_group(group, {72, 72, 72});
    std::string first;
    for (const int threads : {1, 2, 3, 8}) {
      qx_set_threads(threads);
      ASSERT_EQ(generate(rows), ok);
      const std::string path = scratch_.file("map");
      ASSERT_EQ(write(path), ok);
      const std::string bytes = read_file(path);
      if (first.empty()) first = bytes;
      EXPECT_EQ(bytes == first, true) << group << threads;
      std::string piped;
      std::thread reader([&] { piped = drained(pipe); });
      ASSERT_EQ(write(pipe), ok);
      reader.join();
      EXPECT_EQ(piped == first, true) << group << threads;
    }
    qx_set_threads(0);
  }
}

// Planes on demand, some of them or all, are those that stay when the points are asked for.
TEST_F(Recipe, givesTheSamePlanesToEverybody) {
  std::mt19937 random(6);
  install_group("P 43 21 2", {24, 24, 40});
  qx_get_qxmap()->scale = 1;
  ASSERT_EQ(generate(random_rows(random, 7, 60)), ok);
  qx_map_view view;
  ASSERT_EQ(qx_get_map_view(&view), 1);
  EXPECT_EQ(view.density, nullptr);
  EXPECT_NEAR(view.written_rms, 1.0, 1e-12);
  std::vector<float> some(24UL * 24 * 7);
  ASSERT_EQ(qx_copy_map_planes_float(13, 7, some.data()), 1);
  EXPECT_EQ(qx_copy_map_planes_float(34, 7, some.data()), 0);
  ASSERT_EQ(qx_make_map_density(), ok);
  ASSERT_EQ(qx_get_map_view(&view), 1);
  const double* planes = view.density + 24L * 24 * 13;
  for (std::size_t i = 0; i < some.size(); ++i) ASSERT_EQ(some[i], static_cast<float>(planes[i]));
  const MapStatistics measured = statistics_of({view.density, 40, 24, 24});
  const MapStatistics& known = qx_get_qxmap()->statistics;
  EXPECT_EQ(measured.minimum, known.minimum);
  EXPECT_EQ(measured.maximum, known.maximum);
  EXPECT_NEAR(measured.mean, known.mean, 1e-9);
  EXPECT_NEAR(measured.rms, known.rms, 1e-7);  // 2 pi of the phases is in single precision
}

TEST_F(Recipe, aFullDeviceIsReported) {
  std::mt19937 random(7);
  install_group("P 1", {24, 24, 24});
  ASSERT_EQ(generate(random_rows(random, 7, 60)), ok);
  const std::string output = captured([] { EXPECT_EQ(write("/dev/full"), failed); });
  EXPECT_NE(output.find("\nqx_wr_ccp4_map():\nFailed to write nxdim. \n"), std::string::npos);
}

}  // namespace
}  // namespace qx::test
