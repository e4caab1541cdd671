// CCP4 files by byte offsets written by hand.
#include "map/map_engine.h"
#include "map/other_maps.h"

#include <quorix/memory.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sys/stat.h>

namespace qx::test {
namespace {

template <class T>
T word(const std::string& bytes, std::size_t number) {
  T value;
  std::memcpy(&value, bytes.data() + 4 * (number - 1), 4);
  return value;
}

template <class T>
void put(std::string& bytes, std::size_t number, T value) {
  std::memcpy(bytes.data() + 4 * (number - 1), &value, 4);
}

std::string padded(const std::string& text) { return text + std::string(80 - text.size(), ' '); }

class Ccp4 : public MapEngine {
 protected:
  void SetUp() override {
    MapEngine::SetUp();
    install({closed_group({"-x,y+1/2,-z"}), {31, 22, 43, 90, 101.5, 90}, 5}, {36, 24, 48});
    qx_get_qxspg()->spg_id = 4;
  }
  // Puts a box of nx x ny x nz points that starts at (-2, 3, 5) on the map; value of point i is
  // f(i).
  template <class F>
  void put_box(int nx, int ny, int nz, F&& f) {
    qxmap* map = qx_get_qxmap();
    ASSERT_EQ(drop_density(*map), ok);
    map->density = xopen_3d_double(nz, ny, nx, "test");
    for (int i = 0; i < nx * ny * nz; ++i) map->density[0][0][i] = f(i);
    map->xlow = -2;
    map->xhigh = nx - 3;
    map->ylow = 3;
    map->yhigh = ny + 2;
    map->zlow = 5;
    map->zhigh = nz + 4;
  }
  static Status write(const std::string& path) {
    qxmap* map = qx_get_qxmap();
    EXPECT_EQ(release(map->path), ok);
    map->path = duplicate_text(path.c_str(), "test");
    return qx_wr_ccp4_map();
  }
  ScratchDirectory scratch_;
};

TEST_F(Ccp4, everyHeaderWordIsInItsPlace) {
  put_box(3, 4, 5, [](int i) { return i == 7 ? -2.5 : 0.25 * i; });
  qx_get_qxmap()->u = 1.0;
  qx_get_qxmap()->v = -0.6;
  const std::string path = scratch_.file("a map.ccp4");
  ASSERT_EQ(write(path), ok);
  const std::string bytes = read_file(path);
  ASSERT_EQ(bytes.size(), 1024U + 60U * 4U);
  const std::int32_t first[10] = {3, 4, 5, 2, -2, 3, 5, 36, 24, 48};
  for (std::size_t i = 0; i < 10; ++i) EXPECT_EQ(word<std::int32_t>(bytes, i + 1), first[i]) << i;
  const float cell[6] = {31, 22, 43, 90, 101.5, 90};
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(word<float>(bytes, i + 11), cell[i]) << i;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(word<std::int32_t>(bytes, static_cast<std::size_t>(17 + i)), i + 1);
  }
  const double sum = 0.25 * 59 * 60 / 2 - 1.75 - 2.5;
  const double squares = 0.0625 * 59 * 60 * 119 / 6 - 1.75 * 1.75 + 2.5 * 2.5;
  EXPECT_EQ(word<float>(bytes, 20), -2.5F);
  EXPECT_EQ(word<float>(bytes, 21), 14.75F);
  EXPECT_FLOAT_EQ(word<float>(bytes, 22), static_cast<float>(sum / 60));
  EXPECT_EQ(word<std::int32_t>(bytes, 23), 4);
  EXPECT_EQ(bytes.substr(92, 4 * 22), std::string(4 * 22, '\0'));  // words 24 to 45
  EXPECT_EQ(bytes.substr(180, 24), std::string(24, ' '));
  EXPECT_EQ(bytes.substr(204, 4), std::string(4, '\0'));
  EXPECT_EQ(bytes.substr(208, 8), std::string("MAP \x44\x41\0\0", 8));
  EXPECT_FLOAT_EQ(word<float>(bytes, 55), static_cast<float>(std::sqrt(squares / 60)));
  EXPECT_EQ(word<std::int32_t>(bytes, 56), 2);
  EXPECT_EQ(bytes.substr(224, 800), padded("Map generated from Quorix") +
                                        padded("Map type: 1Fo - -1Fc") + std::string(640, ' '));
  EXPECT_EQ(word<float>(bytes, 257), 0.0F);
  EXPECT_EQ(word<float>(bytes, 257 + 7), -2.5F);
  EXPECT_EQ(word<float>(bytes, 257 + 59), 14.75F);
}

TEST_F(Ccp4, optionsAddSymmetryRecordsAndAZeroOriginAndNothingElse) {
  put_box(3, 4, 5, [](int i) { return 0.25 * i; });
  const std::string path = scratch_.file("m");
  ASSERT_EQ(write(path), ok);
  const std::string plain = read_file(path);
  qx_get_qxmap()->symmetry_records = true;
  qx_get_qxmap()->zero_origin = true;
  ASSERT_EQ(write(path), ok);
  const std::string bytes = read_file(path);
  EXPECT_EQ(bytes.substr(1024, 160), padded("X,Y,Z") + padded("-X,Y+1/2,-Z"));
  EXPECT_EQ(word<std::int32_t>(bytes, 24), 160);
  EXPECT_EQ(bytes.substr(180, 28), std::string(16, ' ') + std::string(12, '\0'));
  std::string rest = bytes;
  rest.erase(1024, 160).replace(196, 8, std::string(8, ' '));
  put<std::int32_t>(rest, 24, 0);
  EXPECT_TRUE(rest == plain);
}

TEST_F(Ccp4, onePointMap) {
  put_box(1, 1, 1, [](int) { return -3.5; });
  ASSERT_EQ(write(scratch_.file("one")), ok);
  const std::string bytes = read_file(scratch_.file("one"));
  ASSERT_EQ(bytes.size(), 1028U);
  EXPECT_EQ(word<float>(bytes, 20), -3.5F);
  EXPECT_EQ(word<float>(bytes, 21), -3.5F);
  EXPECT_EQ(word<float>(bytes, 22), -3.5F);
  EXPECT_EQ(word<float>(bytes, 55), 3.5F);
}

// What a generated map knows of its density goes into the header without being counted again: it
// must be what a count gives.
TEST_F(Ccp4, statisticsOfAGeneratedMapAreThoseOfItsValues) {
  RandomCrystal crystal(closed_group({"-x,y+1/2,-z"}), {31, 22, 43, 90, 101.5, 90}, 5);
  for (const int extent : {unit_extent, frac_extent}) {
    qxmap* map = qx_get_qxmap();
    map->scale = 1;
    map->extent = extent;
    const double limits[6] = {0, 0.5, 0.1, 1.3, -0.2, 0.2};
    std::copy_n(limits, 6, map->limits);
    ASSERT_EQ(generate(crystal.unique_rows(3.0)), ok);
    ASSERT_EQ(write(scratch_.file("map")), ok);
    const std::string first = read_file(scratch_.file("map"));
    const double said[4] = {map->statistics.minimum, map->statistics.maximum, map->statistics.mean,
                            map->statistics.rms};
    map->statistics_known = false;
    ASSERT_EQ(write(scratch_.file("map")), ok);
    const double counted[4] = {map->statistics.minimum, map->statistics.maximum,
                               map->statistics.mean, map->statistics.rms};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(said[i], counted[i], 1e-12);
    EXPECT_NEAR(counted[3], 1.0, 1e-12);
    EXPECT_EQ(first.substr(1024), read_file(scratch_.file("map")).substr(1024));
  }
}

TEST_F(Ccp4, nothingBrokenIsLeftBehind) {
  put_box(8, 8, 8, [](int i) { return i; });
  const std::string good = scratch_.file("good.map");
  write_file(good, "as it was");
  ASSERT_EQ(write("/dev/null"), ok);
  ASSERT_EQ(write(good), ok);
  EXPECT_EQ(read_file(good).size(), 1024U + 2048U);
  const std::string output = captured([&] { EXPECT_EQ(write("/dev/full"), failed); });
  EXPECT_NE(output.find("\nqx_wr_ccp4_map():\nFailed to write nxdim. \n"), std::string::npos);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

TEST_F(Ccp4, unwritablePathsAreReported) {
  put_box(2, 2, 2, [](int i) { return i; });
  const std::string path = scratch_.file("no such folder") + "/x.map";
  const std::string output = captured([&] { EXPECT_EQ(write(path), failed); });
  EXPECT_EQ(output, "\nqx_wr_ccp4_map():\nFailed to open file \"" + path + "\" \n");
  EXPECT_EQ(qx_exist_quorix(), 0);
}

// ---- reading

// A file of 2 x 3 x 4 points along x, y, z in the given order of axes: value 100 x + 10 y + z.
std::string file_with_axes(const std::array<int, 3>& axes) {
  const int counts[3] = {2, 3, 4};
  const int starts[3] = {-7, 8, 9};
  std::string bytes(1024 + 24 * 4, '\0');
  for (std::size_t i = 0; i < 3; ++i) {
    const auto axis = static_cast<std::size_t>(axes[i] - 1);
    put<std::int32_t>(bytes, 1 + i, counts[axis]);
    put<std::int32_t>(bytes, 5 + i, starts[axis]);
    put<std::int32_t>(bytes, 8 + i, 20 + static_cast<int>(i));
    put<std::int32_t>(bytes, 17 + i, axes[i]);
    put<float>(bytes, 20 + i, 1.5F * static_cast<float>(i));
  }
  put<std::int32_t>(bytes, 4, 2);
  for (std::size_t i = 0; i < 6; ++i) put<float>(bytes, 11 + i, 50.0F + static_cast<float>(i));
  put<std::int32_t>(bytes, 23, 19);
  bytes.replace(208, 8, std::string("MAP \x44\x41\0\0", 8));
  put<float>(bytes, 55, 0.75F);
  std::size_t at = 257;
  int i[3];
  for (i[2] = 0; i[2] < counts[axes[2] - 1]; ++i[2]) {
    for (i[1] = 0; i[1] < counts[axes[1] - 1]; ++i[1]) {
      for (i[0] = 0; i[0] < counts[axes[0] - 1]; ++i[0]) {
        int xyz[3];
        for (int a = 0; a < 3; ++a) xyz[axes[static_cast<std::size_t>(a)] - 1] = i[a];
        put<float>(bytes, at++, static_cast<float>(100 * xyz[0] + 10 * xyz[1] + xyz[2]));
      }
    }
  }
  return bytes;
}

std::string swapped(std::string bytes, const char* stamp = "\x11\x11") {
  for (std::size_t at = 0; at + 4 <= bytes.size(); at += 4) {
    const bool text = at == 208 || at == 212 || (at >= 224 && at < 1024) || (at >= 180 && at < 204);
    if (!text)
      std::reverse(bytes.begin() + static_cast<long>(at),
                   bytes.begin() + static_cast<long>(at) + 4);
  }
  return bytes.replace(212, 4, std::string(stamp) + std::string(2, '\0'));
}

// What is looked at without reading the points: the same header, and how long the file must be.
void expect_header_alone(const std::string& path) {
  qx_ccp4_map map = {};
  EXPECT_EQ(qx_look_at_ccp4_map(path.c_str(), &map),
            static_cast<std::int64_t>(read_file(path).size()));
  EXPECT_EQ(std::vector<int>(map.counts, map.counts + 3), (std::vector<int>{2, 3, 4}));
  EXPECT_EQ(std::vector<int>(map.starts, map.starts + 3), (std::vector<int>{-7, 8, 9}));
  EXPECT_EQ(std::vector<int>(map.intervals, map.intervals + 3), (std::vector<int>{20, 21, 22}));
  EXPECT_EQ(map.cell[5], 55.0);
  EXPECT_EQ(map.rms, 0.75);
  EXPECT_EQ(map.density, nullptr);
}

// The map as floats: the same numbers, whatever the file's mode and order.
void expect_same_floats(const std::string& path, const qx_ccp4_map& map) {
  qx_ccp4_map other = {};
  qx_ccp4_description file = {};
  float* values = nullptr;
  ASSERT_EQ(qx_rd_described_ccp4_floats(path.c_str(), &other, &file, &values), ok);
  ASSERT_TRUE(std::equal(map.counts, map.counts + 3, other.counts));
  const std::ptrdiff_t n = std::ptrdiff_t{map.counts[0]} * map.counts[1] * map.counts[2];
  for (std::ptrdiff_t i = 0; i < n; ++i) {
    ASSERT_EQ(static_cast<double>(values[i]), map.density[0][0][i]);
  }
  EXPECT_TRUE(!file.records || xfree(file.records) == ok);
  EXPECT_EQ(xfree(values), ok);
}

void expect_hundreds_tens_units(const std::string& path) {
  qx_ccp4_map map = {};
  ASSERT_EQ(qx_rd_ccp4_map(path.c_str(), &map), ok);
  EXPECT_EQ(std::vector<int>(map.counts, map.counts + 3), (std::vector<int>{2, 3, 4}));
  EXPECT_EQ(std::vector<int>(map.starts, map.starts + 3), (std::vector<int>{-7, 8, 9}));
  EXPECT_EQ(std::vector<int>(map.intervals, map.intervals + 3), (std::vector<int>{20, 21, 22}));
  EXPECT_EQ(map.cell[5], 55.0);
  EXPECT_EQ(map.maximum, 1.5);
  EXPECT_EQ(map.mean, 3.0);
  EXPECT_EQ(map.rms, 0.75);
  EXPECT_EQ(map.space_group, 19);
  expect_same_floats(path, map);
  for (int z = 0; z < 4; ++z) {
    for (int y = 0; y < 3; ++y) {
      for (int x = 0; x < 2; ++x) ASSERT_EQ(map.density[z][y][x], 100 * x + 10 * y + z);
    }
  }
  EXPECT_EQ(xfree_3d_double(map.density), ok);
}

TEST_F(Ccp4, sixAxisOrdersInBothByteOrders) {
  std::array<int, 3> axes = {1, 2, 3};
  const std::string path = scratch_.file("m");
  do {
    write_file(path, file_with_axes(axes));
    expect_header_alone(path);
    expect_hundreds_tens_units(path);
    // One code of another machine is enough: some programs stamp their reals only.
    for (const char* stamp : {"\x11\x11", "\x44\x11"}) {
      write_file(path, swapped(file_with_axes(axes), stamp));
      expect_header_alone(path);
      expect_hundreds_tens_units(path);
    }
  } while (std::next_permutation(axes.begin(), axes.end()));
}

TEST_F(Ccp4, aStampIsReadWhereItIsSaidToStand) {
  write_file(scratch_.file("m"), std::string("\x11\x22zzzz\x44\x41", 8));
  std::FILE* file = std::fopen(scratch_.file("m").c_str(), "rb");
  ASSERT_EQ(std::fseek(file, 3, SEEK_SET), 0);
  std::int32_t codes[2] = {};
  EXPECT_EQ(qx_read_machine_stamp(file, 0, &codes[0], &codes[1]), ok);
  EXPECT_EQ(codes[0], 2);
  EXPECT_EQ(codes[1], 1);
  EXPECT_EQ(qx_read_machine_stamp(file, 4, &codes[0], &codes[1]), ok);
  EXPECT_EQ(codes[0], 7);
  std::fclose(file);
}

TEST_F(Ccp4, symmetryRecordsSkewAndTrailingBytesAreNoObstacle) {
  std::string bytes = file_with_axes({1, 2, 3});
  put<std::int32_t>(bytes, 24, 160);
  put<std::int32_t>(bytes, 25, 1);
  bytes.insert(1024, std::string(160, 'x'));
  write_file(scratch_.file("m"), bytes + "more");
  ASSERT_EQ(chmod(scratch_.file("m").c_str(), 0444), 0);
  expect_hundreds_tens_units(scratch_.file("m"));
}

TEST_F(Ccp4, aFolderIsNoMapToOpen) {
  qx_ccp4_map map = {};
  const std::string folder = scratch_.path().string();
  const std::string output =
      captured([&] { EXPECT_EQ(qx_rd_ccp4_map(folder.c_str(), &map), failed); });
  EXPECT_EQ(output, "\nqx_rd_ccp4_map():\nFailed to open file \"" + folder + "\" \n");
}

TEST_F(Ccp4, otherDataModes) {
  std::string bytes = file_with_axes({1, 2, 3}).substr(0, 1024);
  put<std::int32_t>(bytes, 1, 2);
  put<std::int32_t>(bytes, 2, 1);
  put<std::int32_t>(bytes, 3, 1);
  struct Mode {
    int number;
    std::string data;
    double values[2];
  };
  for (const Mode& mode :
       {Mode{0, {"\xff\x07", 2}, {-1, 7}}, Mode{1, {"\xfe\xff\x02\x01", 4}, {-2, 258}},
        Mode{6, {"\xfe\xff\x02\x01", 4}, {65534, 258}}}) {
    put<std::int32_t>(bytes, 4, mode.number);
    write_file(scratch_.file("m"), bytes + mode.data);
    qx_ccp4_map map = {};
    ASSERT_EQ(qx_rd_ccp4_map(scratch_.file("m").c_str(), &map), ok);
    EXPECT_EQ(map.density[0][0][0], mode.values[0]);
    EXPECT_EQ(map.density[0][0][1], mode.values[1]);
    expect_same_floats(scratch_.file("m"), map);
    EXPECT_EQ(xfree_3d_double(map.density), ok);
  }
}

struct Damage {
  const char* name;
  std::size_t word;  // 0: cut to `value` bytes
  std::int32_t value;
  const char* text;
};
void PrintTo(const Damage& damage, std::ostream* stream) { *stream << damage.name; }

class Ccp4Damage : public Ccp4, public ::testing::WithParamInterface<Damage> {};

TEST_P(Ccp4Damage, isReportedAndNothingLargeIsAllocated) {
  const Damage& damage = GetParam();
  std::string bytes = file_with_axes({1, 2, 3});
  if (damage.word == 0) {
    bytes.resize(static_cast<std::size_t>(damage.value));
  } else {
    put<std::int32_t>(bytes, damage.word, damage.value);
  }
  write_file(scratch_.file("m"), bytes);
  qx_ccp4_map map = {};
  const std::string output =
      captured([&] { EXPECT_EQ(qx_rd_ccp4_map(scratch_.file("m").c_str(), &map), failed); });
  EXPECT_NE(output.find(damage.text), std::string::npos) << output;
  EXPECT_EQ(output.find("Failed to open memory"), std::string::npos);
  EXPECT_EQ(qx_exist_quorix(), 0);
  EXPECT_EQ(map.density, nullptr);
}

constexpr auto no_data = "\nqx_rd_ccp4_map():\nFailed to read map data \n";
INSTANTIATE_TEST_SUITE_P(
    Files, Ccp4Damage,
    ::testing::Values(
        Damage{"empty", 0, 0, "\nqx_rd_ccp4_map():\nThis is not a CCP4 formated map. \n"},
        Damage{"cut_in_map_word", 0, 211, "This is not a CCP4 formated map. "},
        Damage{"cut_in_stamp", 0, 214, "Failed to get machine stamp"},
        Damage{"cut_before_rms", 0, 216, "Failed to read map rms. "},
        Damage{"cut_before_label_count", 0, 220, "Failed to read number of map labels "},
        Damage{"cut_in_labels", 0, 900, "Failed to read map labels "},
        Damage{"cut_before_data", 0, 1024, no_data}, Damage{"cut_in_data", 0, 1119, no_data},
        Damage{"map_word", 53, 0x2050414e, "This is not a CCP4 formated map. "},
        Damage{"no_columns", 1, 0, "Invalid map dimensions 0 3 4 "},
        Damage{"negative_rows", 2, -3, "Invalid map dimensions 2 -3 4 "},
        Damage{"one_section_more", 3, 5, no_data},
        Damage{"columns_beyond_file", 1, INT32_MAX, no_data},
        Damage{"mode_3", 4, 3, "Map data mode 3 is not supported. "},
        Damage{"mode_negative", 4, -1, "Map data mode -1 is not supported. "},
        Damage{"axis_0", 17, 0, "Invalid axis order 0 2 3 "},
        Damage{"axis_twice", 18, 1, "Invalid axis order 1 1 3 "},
        Damage{"axis_4", 19, 4, "Invalid axis order 1 2 4 "},
        Damage{"no_intervals", 8, 0, "Invalid grid intervals 0 21 22 "},
        Damage{"intervals_huge", 10, INT32_MAX, "Invalid grid intervals 20 21 2147483647 "},
        Damage{"start_huge", 5, INT32_MAX, "Invalid map origin 2147483647 8 9 "},
        Damage{"start_far_below", 7, INT32_MIN, "Invalid map origin -7 8 -2147483648 "},
        Damage{"cell_nan", 12, 0x7fc00000, "Invalid cell 50 nan 52 53 54 55 "},
        Damage{"angle_infinite", 16, 0x7f800000, "Invalid cell 50 51 52 53 54 inf "},
        Damage{"symmetry_negative", 24, -1, "Failed to read symmetry operations "},
        Damage{"symmetry_beyond_file", 24, 97, "Failed to read symmetry operations "},
        Damage{"symmetry_over_data", 24, 80, no_data}, Damage{"stamp", 54, 0, "is not supported"}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_F(Ccp4Damage, allSizesHuge) {
  std::string bytes = file_with_axes({1, 2, 3});
  for (std::size_t i = 1; i <= 3; ++i) put<std::int32_t>(bytes, i, INT32_MAX);
  write_file(scratch_.file("m"), bytes);
  qx_ccp4_map map = {};
  const std::string output =
      captured([&] { EXPECT_EQ(qx_rd_ccp4_map(scratch_.file("m").c_str(), &map), failed); });
  EXPECT_NE(output.find("Invalid map dimensions"), std::string::npos);
}

TEST_F(Ccp4, realMapsAgreeWithTheirHeaders) {
  if (real_data().empty()) GTEST_SKIP();
  for (const char* name : {"5i55_tiny_axes213.ccp4", "fft_C2_axes312.map", "box_axes321.ccp4",
                           "EMD-3197_axes123.map", "1mru_P21_asu_axes213.map"}) {
    qx_ccp4_map map = {};
    ASSERT_EQ(qx_rd_ccp4_map((real_data() / name).c_str(), &map), ok) << name;
    const MapStatistics found =
        statistics_of({map.density[0][0], map.counts[2], map.counts[1], map.counts[0]});
    EXPECT_FLOAT_EQ(static_cast<float>(found.minimum), static_cast<float>(map.minimum)) << name;
    EXPECT_FLOAT_EQ(static_cast<float>(found.maximum), static_cast<float>(map.maximum)) << name;
    EXPECT_NEAR(found.mean, map.mean, 1e-5 * map.maximum) << name;
    // Other programs write the deviation about the mean.
    const double deviation = std::sqrt(found.rms * found.rms - found.mean * found.mean);
    EXPECT_NEAR(deviation, map.rms, 1e-4 * map.rms) << name;
    EXPECT_EQ(xfree_3d_double(map.density), ok);
  }
}

TEST(CnsMap, valuesStayInTheirFields) {
  for (const double value : {1.23456e-320, -9.99e-100, -1.0e-99, 4.5e-12, 0.0, -1.5e99}) {
    char field[40];
    EXPECT_EQ(std::snprintf(field, sizeof field, "%12.5E", in_cns_field(value)), 12) << value;
    EXPECT_NEAR(std::strtod(field, nullptr), value, 1e-5 * std::fabs(value) + 1e-99);
  }
}

}  // namespace
}  // namespace qx::test
