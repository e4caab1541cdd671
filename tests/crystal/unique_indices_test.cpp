// Unique reflections against orbits made one index after the other.
#include "crystal/unique_indices.h"

#include "support/random_crystal.h"

#include <gtest/gtest.h>
#include <set>

namespace qx::test {
namespace {

struct Group {
  const char* name;
  std::vector<std::string> generators;
  double form[6];  // of a cell that the group allows
};

class UniqueIndices : public ::testing::TestWithParam<Group> {};

IndexOperations operations_of(const std::vector<Operator>& group) {
  IndexOperations out;
  for (const Operator& op : group) {
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) out.rotation[out.n][3 * i + j] = op.r[i][j];
      out.shift[out.n][i] = op.t24[i];
    }
    ++out.n;
  }
  return out;
}

TEST_P(UniqueIndices, areOneOfEachOrbitThatIsNotExtinguished) {
  const std::vector<Operator> group = closed_group(GetParam().generators);
  IndexSearch search = {9, 9, 9, 0.00213, 0.055171, {}};
  std::copy_n(GetParam().form, 6, search.form);
  const double(&c)[6] = search.form;
  std::set<Hkl> wanted;  // the smallest index of each orbit
  for (int h = -9; h <= 9; ++h) {
    for (int k = -9; k <= 9; ++k) {
      for (int l = -9; l <= 9; ++l) {
        const double s2 =
            c[0] * h * h + c[1] * k * k + c[2] * l * l + c[3] * h * k + c[4] * h * l + c[5] * k * l;
        if (s2 < search.low || s2 > search.high) continue;
        const Hkl own = {h, k, l};
        Hkl least = own;
        bool extinct = false;
        for (const Operator& op : group) {
          const Hkl mate = own * op;
          least = std::min({least, mate, -mate});
          const int turn = h * op.t24[0] + k * op.t24[1] + l * op.t24[2];
          extinct = extinct || (!(mate < own) && !(own < mate) && turn % 24 != 0);
        }
        if (!extinct) wanted.insert(least);
      }
    }
  }
  const IndexOperations operations = operations_of(group);
  std::vector<std::uint64_t> orbits(indices_within(search));
  orbits.resize(unique_orbits(operations, search, orbits.data()));
  EXPECT_EQ(orbits.size(), wanted.size());
  for (const std::uint64_t orbit : orbits) {
    std::int32_t hkl[3];
    representative(orbit, hkl);
    Hkl least = {hkl[0], hkl[1], hkl[2]};
    for (const Operator& op : group) {
      const Hkl mate = Hkl{hkl[0], hkl[1], hkl[2]} * op;
      least = std::min({least, mate, -mate});
      EXPECT_EQ(orbit_of(operations, mate.h, mate.k, mate.l), orbit);
      EXPECT_EQ(orbit_of(operations, -mate.h, -mate.k, -mate.l), orbit);
    }
    EXPECT_EQ(wanted.erase(least), 1U);
  }
}

INSTANTIATE_TEST_SUITE_P(
    groups, UniqueIndices,
    ::testing::Values(
        Group{"P1", {"x,y,z"}, {1e-3, 1.3e-3, 0.9e-3, 2e-4, -3e-4, 1e-4}},
        Group{"C2", {"-x,y,-z", "x+1/2,y+1/2,z"}, {1e-3, 1.3e-3, 0.9e-3, 0, -3e-4, 0}},
        Group{"P212121", {"-x+1/2,-y,z+1/2", "-x,y+1/2,-z+1/2"}, {1e-3, 1.3e-3, 8e-4, 0, 0, 0}},
        Group{"P43212",
              {"-y+1/2,x+1/2,z+3/4", "y,x,-z", "-x,-y,z+1/2"},
              {1e-3, 1e-3, 0.9e-3, 0, 0, 0}},
        Group{"P6122", {"x-y,x,z+1/6", "y,x,-z+1/3"}, {1e-3, 1e-3, 0.9e-3, 1e-3, 0, 0}},
        Group{"I23", {"z,x,y", "-x,-y,z", "x+1/2,y+1/2,z+1/2"}, {1e-3, 1e-3, 1e-3, 0, 0, 0}}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace qx::test
