#include "crystal/reflections.h"
#include "reflio/mtz.h"
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <cstdlib>
#include <cstring>

namespace qx::test {
namespace {

class MtzColumns : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    MtzMaker file({{1, 0, 0}});
    file.datasets.push_back({2, "project", "crystal", "peak", 0.9});
    file.datasets.push_back({3, "project", "other", "data", 0.9});
    file.add("F", 'F', {1}, 1).add("F", 'F', {2}, 2).add("F", 'F', {3}, 3);
    file.add("M/ISYM", 'Y', {1}, 0).add("I(+)/2", 'I', {1}, 1);
    const ScratchDirectory scratch;
    write_file(scratch.file("a.mtz"), file.bytes());
    refdata_ = qx_new_qxrefdata_obj();
    ASSERT_EQ(qx_read_refdata_mtz_file_obj(refdata_, scratch.file("a.mtz").c_str()), ok);
  }

  int position(const char* name) {
    std::int32_t found = -2;
    EXPECT_EQ(qx_get_mtz_col_pos(refdata_->mtz, name, &found), ok) << name;
    return found;
  }

  qxrefdata* refdata_ = nullptr;
};

// Indices are stored as reals: what a conversion has left a little short is still the index.
TEST(MtzIndices, areRounded) {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  ASSERT_EQ(qx_create_quorix(), ok);
  MtzMaker maker({{2, -3, 4}, {1, 1, 1}});
  maker.add("F", 'F', {5, 6});
  std::string bytes = maker.bytes();
  const float indices[3] = {1.9999F, -2.9999F, 4.0001F};
  std::memcpy(bytes.data() + 80, indices, sizeof indices);
  const ScratchDirectory scratch;
  write_file(scratch.file("a.mtz"), bytes);
  ASSERT_TRUE(section("xcry\nspgname P 1\ncell 10 20 30\nread refl mtz file \"" +
                      scratch.file("a.mtz") + "\" coid FOBS=F\nxend\n")
                  .ok);
  const qxrefdata& data = *qx_get_qxrefdata();
  EXPECT_EQ(data.h[0], 2);
  EXPECT_EQ(data.k[0], -3);
  EXPECT_EQ(data.l[0], 4);
  qx_terminate_quorix();
}

TEST_F(MtzColumns, areFoundByLabelOrByPath) {
  EXPECT_EQ(position("H"), 0);
  EXPECT_EQ(position("F"), 3);
  EXPECT_EQ(position("crystal/peak/F"), 4);
  EXPECT_EQ(position("CRYSTAL/Peak/F"), 4);
  EXPECT_EQ(position("other/data/F"), 5);
  EXPECT_EQ(position("M/ISYM"), 6);
  EXPECT_EQ(position("M_ISYM"), 6);
  EXPECT_EQ(position("HKL_base/HKL_base/M/ISYM"), 6);
  EXPECT_EQ(position("I(+)/2"), 7);
  EXPECT_EQ(position("crystal/none/F"), -1);
  EXPECT_EQ(position("none/data/F"), -1);
  EXPECT_EQ(position("f"), -1);
  const char* wanted[] = {"L", "none", "M_ISYM"};
  std::int32_t order[3];
  qx_get_mtz_col_order(refdata_->mtz, 3, wanted, order);
  EXPECT_EQ(order[0], 3);
  EXPECT_EQ(order[1], 0);
  EXPECT_EQ(order[2], 7);
}

TEST_F(MtzColumns, namesThatCannotBeAreReported) {
  for (const std::string name : {"", "a/b", "/b/c", "a//c", "a/b/", "//"}) {
    if (!qx_exist_quorix()) SetUp();
    std::int32_t found = 0;
    EXPECT_EQ(
        captured(
            [&] { EXPECT_EQ(qx_get_mtz_col_pos(refdata_->mtz, name.c_str(), &found), failed); }),
        "\nqx_get_mtz_cry_ds_col_name():\nNot a valid definion for MTZ column: " + name + "\n");
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
}

}  // namespace
}  // namespace qx::test
