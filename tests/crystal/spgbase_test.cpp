// Every record of the shipped database, as the engine understands it.
#include "crystal/asu.h"
#include "crystal/matrix.h"
#include "crystal/reflection_zones.h"
#include "crystal/spacegroup.h"
#include "crystal/symop.h"
#include "grid/asu_mask.h"
#include "support/engine.h"

#include <quorix/asu.h>
#include <quorix/crystal.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <sys/wait.h>
#include <vector>

namespace qx::test {
namespace {

struct Record {
  std::string short_name, full_name;
  std::vector<std::string> primitive, centring;
};

std::vector<Record> shipped_records() {
  std::vector<Record> records;
  std::ifstream file(data_directory() / "xray" / "spgbase.dat");
  for (std::string line; std::getline(file, line);) {
    const std::string keyword = line.substr(0, line.find(' '));
    const std::string value = keyword.size() < line.size() ? line.substr(keyword.size() + 1) : "";
    if (keyword == "spgid") records.emplace_back();
    if (keyword == "sspgname" && records.back().short_name.empty())
      records.back().short_name = value;
    if (keyword == "fspgname" && records.back().full_name.empty()) records.back().full_name = value;
    if (keyword == "primoper") records.back().primitive.push_back(value);
    if (keyword == "centoper") records.back().centring.push_back(value);
  }
  return records;
}

class Database : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    ASSERT_EQ(qx_new_qxxcry(), ok);
  }
  static const qxspg& select(const std::string& name) {
    EXPECT_EQ(qx_new_qxspg(), ok);
    EXPECT_EQ(qx_set_qxspg_spgname(name.c_str()), ok);
    EXPECT_EQ(qx_run_qxspg_checker(), ok) << name;
    return *qx_get_qxspg();
  }
};

TEST_F(Database, namesResolveToTheirOwnRecord) {
  const std::vector<Record> records = shipped_records();
  ASSERT_GE(records.size(), 500U);
  for (const Record& record : records) {
    for (const std::string& name : {record.short_name, record.full_name}) {
      const qxspg& spg = select(name);
      EXPECT_EQ(spg.full_name, record.full_name) << name;
      EXPECT_EQ(spg.primitive.count, std::ssize(record.primitive)) << name;
      EXPECT_EQ(spg.centring.count, std::ssize(record.centring)) << name;
      EXPECT_EQ(spg.primitive.texts[0], std::string("x,y,z")) << name;
      EXPECT_EQ(spg.centring.texts[0], std::string("x,y,z")) << name;
    }
  }
}

TEST_F(Database, operatorsResolveToTheirOwnRecord) {
  const std::vector<Record> records = shipped_records();
  for (std::size_t i = 0; i < records.size(); i += 7) {
    ASSERT_EQ(qx_new_qxspg(), ok);
    for (const std::string& text : records[i].primitive) {
      ASSERT_EQ(qx_insert_qxspg_symop_prim(text.c_str()), ok);
    }
    for (const std::string& text : records[i].centring) {
      ASSERT_EQ(qx_insert_qxspg_symop_cent(text.c_str()), ok);
    }
    ASSERT_EQ(qx_run_qxspg_checker(), ok);
    ASSERT_NE(qx_get_qxspg()->full_name, nullptr) << records[i].full_name;
    EXPECT_EQ(qx_get_qxspg()->full_name, records[i].full_name);
  }
}

using Key = std::array<int, 12>;

Key key_of(const double op[16]) {
  Key key;
  for (std::size_t i = 0; i < 12; ++i) {
    key[i] = static_cast<int>(std::lround(op[i] * (i % 4 == 3 ? 24 : 1)));
    if (i % 4 == 3) key[i] = (key[i] % 24 + 24) % 24;
  }
  return key;
}

Key product(const Key& a, const Key& b) {
  Key c;
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 4; ++j) {
      int sum = j == 3 ? a[4 * i + 3] : 0;
      for (std::size_t k = 0; k < 3; ++k) sum += a[4 * i + k] * b[4 * k + j];
      c[4 * i + j] = j == 3 ? (sum % 24 + 24) % 24 : sum;
    }
  }
  return c;
}

TEST_F(Database, operatorsAreAGroupWithTheirInverses) {
  const Key identity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
  for (const Record& record : shipped_records()) {
    const qxspg& spg = select(record.full_name);
    std::vector<Key> keys;
    keys.reserve(static_cast<std::size_t>(spg.nops));
    for (int i = 0; i < spg.nops; ++i) keys.push_back(key_of(spg.ops[i]));
    for (int i = 0; i < spg.nops; ++i) {
      ASSERT_EQ(product(keys[static_cast<std::size_t>(i)], key_of(spg.inverses[i])), identity)
          << record.full_name;
    }
    std::vector<Key> sorted = keys;
    std::sort(sorted.begin(), sorted.end());
    ASSERT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end()) << record.full_name;
    for (const Key& a : keys) {
      for (const Key& b : keys) {
        ASSERT_TRUE(std::binary_search(sorted.begin(), sorted.end(), product(a, b)))
            << record.full_name;
      }
    }
  }
}

bool is_chiral(const qxspg& spg) {
  return std::all_of(spg.ops, spg.ops + spg.nops, [](const double* op) {
    double rotation[9];
    rotation_of(op, rotation);
    return determinant33(rotation) > 0;
  });
}

// Many reflections at once and one by one.
void expect_same_of_many(const qxspg& spg) {
  constexpr int count = 7 * 7 * 7;
  std::vector<std::int32_t> h(count), k(count), l(count), epsilon(count);
  std::vector<std::int16_t> centric(count);
  for (std::size_t n = 0; n < count; ++n) {
    h[n] = static_cast<int>(n) % 7 - 3;
    k[n] = static_cast<int>(n) / 7 % 7 - 3;
    l[n] = static_cast<int>(n) / 49 - 3;
  }
  mark_centric(spg.centric_zones, count, h.data(), k.data(), l.data(), centric.data());
  mark_epsilon(spg.epsilon_zones, count, h.data(), k.data(), l.data(), epsilon.data());
  for (std::size_t n = 0; n < count; ++n) {
    ASSERT_EQ(centric[n], qx_calc_centric_ref(h[n], k[n], l[n]));
    ASSERT_EQ(epsilon[n], qx_calc_epsilon_ref(h[n], k[n], l[n]));
  }
}

// Against the definitions: centric when an operator takes h to -h; epsilon the number of operators
// that leave h alone. The zones are axes: they know nothing of mirror planes, and the body
// diagonals of cubic groups only as (h h h).
TEST_F(Database, zonesAgreeWithTheOperators) {
  for (const Record& record : shipped_records()) {
    const qxspg& spg = select(record.full_name);
    expect_same_of_many(spg);
    if (!is_chiral(spg)) continue;
    for (int n = 1; n < 7 * 7 * 7; ++n) {
      const int hkl[3] = {n % 7 - 3, n / 7 % 7 - 3, n / 49 - 3};
      const auto [h, k, l] = hkl;
      const bool diagonal = std::abs(h) == std::abs(k) && std::abs(k) == std::abs(l);
      if (diagonal && !(h == k && k == l && h != 0)) continue;
      int epsilon = 0;
      int centric = 0;
      for (int i = 0; i < spg.nops; ++i) {
        int rotated[3];
        rotate_index(hkl, spg.ops[i], rotated);
        if (rotated[0] == h && rotated[1] == k && rotated[2] == l) ++epsilon;
        if (rotated[0] == -h && rotated[1] == -k && rotated[2] == -l) centric = 1;
      }
      ASSERT_EQ(qx_calc_epsilon_ref(h, k, l), epsilon)
          << record.full_name << ' ' << h << ' ' << k << ' ' << l;
      ASSERT_EQ(qx_calc_centric_ref(h, k, l), centric)
          << record.full_name << ' ' << h << ' ' << k << ' ' << l;
    }
  }
}

int required_count(const qxspg& spg, int axis) {
  int count = 1;
  for (const Divisors& d : {spg.translation_divisors[axis], spg.asu_divisors[axis]}) {
    for (int i = 0; i < d.count; ++i) count = std::lcm(count, d.values[i]);
  }
  return count;
}

// The box of the limits, cut as a map of the asymmetric unit is, reaches every point of the cell on
// grids that hold the divisors; axes that an operator mixes need the same ones.
TEST_F(Database, limitsHoldAPointOfEveryOrbit) {
  for (const Record& record : shipped_records()) {
    const qxspg& spg = select(record.full_name);
    const int needed[3] = {required_count(spg, 0), required_count(spg, 1), required_count(spg, 2)};
    int factor = 1;
    while (factor * *std::min_element(needed, needed + 3) < 6) ++factor;
    const std::int32_t n[3] = {needed[0] * factor, needed[1] * factor, needed[2] * factor};
    std::vector<std::array<std::int32_t, 9>> rotations(static_cast<std::size_t>(spg.nops));
    std::vector<std::array<std::int32_t, 3>> shifts(rotations.size());
    for (std::size_t i = 0; i < rotations.size(); ++i) {
      ASSERT_TRUE(grid_operator(spg.ops[i], n, rotations[i].data(), shifts[i].data()))
          << record.full_name;
    }
    const GridOperators ops = {spg.nops,
                               reinterpret_cast<const std::int32_t(*)[9]>(rotations.data()),
                               reinterpret_cast<const std::int32_t(*)[3]>(shifts.data())};
    std::int32_t high[3];
    for (int axis = 0; axis < 3; ++axis) {
      high[axis] =
          std::min(static_cast<std::int32_t>(qx_get_qxasu()->high[axis] * n[axis]) + 1, n[axis]);
    }
    std::vector<char> reached(static_cast<std::size_t>(std::int64_t{n[0]} * n[1] * n[2]));
    for (std::int32_t p = 0; p < high[0] * high[1] * high[2]; ++p) {
      const std::int32_t point[3] = {p % high[0], p / high[0] % high[1], p / (high[0] * high[1])};
      for (std::int32_t op = 0; op < ops.count; ++op) {
        std::int32_t mate[3];
        move_point(ops, op, n, point, mate);
        reached.at(static_cast<std::size_t>(mate[2] * std::int64_t{n[1]} * n[0] + mate[1] * n[0] +
                                            mate[0])) = 1;
      }
    }
    EXPECT_EQ(std::count(reached.begin(), reached.end(), 0), 0) << record.full_name;
  }
}

TEST(DatabaseFile, agreesWithGemmisTables) {
  const std::string command = std::string("/usr/bin/python3 '") + QUORIX_SOURCE_DIR +
                              "/tests/crystal/spgbase_check.py' '" +
                              (data_directory() / "xray" / "spgbase.dat").string() + "'";
  const int status = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77 || WEXITSTATUS(status) == 127)
    GTEST_SKIP() << "no gemmi for Python";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace qx::test
