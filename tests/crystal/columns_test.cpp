#include "crystal/columns.h"

#include "support/engine.h"

#include <quorix/memory.h>

#include <cstring>
#include <set>

namespace qx::test {
namespace {

class Columns : public Engine {};

TEST_F(Columns, wordsHaveTheirNumbers) {
  const std::pair<const char*, int> some[] = {
      {"h", 1},           {"FOBS", 4},  {"fp", 15},    {"FM", 16},        {"SIGFP", 17},
      {"SIGFM", 18},      {"IP", 19},   {"Im", 20},    {"SIGIP", 21},     {"HLD", 27},
      {"FOM", 28},        {"Test", 29}, {"IMEAN", 31}, {"MAP_COEFF", 36}, {"map_coeffa", 37},
      {"MAP_COEFFP", 38}, {"BATCH", 40}};
  for (const auto& [word, wanted] : some) {
    std::int32_t number = 0;
    EXPECT_EQ(qx_get_string_coid(word, &number), ok);
    EXPECT_EQ(number, wanted) << word;
  }
  std::int32_t number = 0;
  EXPECT_EQ(captured([&] { EXPECT_EQ(qx_get_string_coid("MAP_COEFFB", &number), failed); }),
            "\nqx_get_string_coid():\nUnknown string column label id \"MAP_COEFFB\" \n");
  EXPECT_EQ(qx_exist_quorix(), 0);
}

TEST_F(Columns, everyNumberHasAnArrayOfItsOwn) {
  qxrefdata refdata;
  std::set<const void*> blocks;
  char storage[coid_count + 1];
  for (const Column& column : columns()) {
    void* block = storage + column.number;
    if (column.indices) refdata.*column.indices = static_cast<std::int32_t*>(block);
    if (column.values) refdata.*column.values = static_cast<float*>(block);
    if (column.flags) refdata.*column.flags = static_cast<std::int16_t*>(block);
  }
  for (std::int32_t number = 1; number <= coid_count; ++number) {
    std::int32_t* indices = nullptr;
    std::int16_t* flags = nullptr;
    float* values = nullptr;
    ASSERT_EQ(qx_get_col_based_coid(&refdata, number, &indices, &flags, &values), ok);
    EXPECT_EQ(indices != nullptr, number <= 3);
    EXPECT_EQ(flags != nullptr, number == 29);
    const void* block =
        indices ? static_cast<void*>(indices) : (flags ? static_cast<void*>(flags) : values);
    EXPECT_EQ(block, storage + number);
    blocks.insert(block);
  }
  EXPECT_EQ(blocks.size(), 40U);
  EXPECT_EQ(refdata.fm, reinterpret_cast<float*>(storage + 16));
  EXPECT_EQ(refdata.sigfp, reinterpret_cast<float*>(storage + 17));
}

TEST_F(Columns, numbersOutsideTheTableAreFatal) {
  for (const int number : {0, 41, -1}) {
    if (!qx_exist_quorix()) SetUp();
    const qxrefdata refdata;
    std::int32_t* indices = nullptr;
    std::int16_t* flags = nullptr;
    float* values = nullptr;
    const std::string report = captured([&] {
      EXPECT_EQ(qx_get_col_based_coid(&refdata, number, &indices, &flags, &values), failed);
    });
    EXPECT_EQ(report, "\nqx_get_col_based_coid():\nInvalid coid number: " + std::to_string(number) +
                          " \nWrong array pointed\n");
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
}

}  // namespace
}  // namespace qx::test
