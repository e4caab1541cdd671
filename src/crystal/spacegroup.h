// The space-group record.
#pragma once

#include <quorix/spacegroup.h>

namespace qx {

// Operator texts that a user gave, grown in steps.
struct OperatorTexts {
  std::int32_t capacity = 20;
  std::int32_t count = 0;
  char** texts = nullptr;
};

// Operators of one kind; matrices 4 x 4 row-major on fractional columns, translations in [0, 1).
struct Operators {
  std::int32_t count = 0;
  char** texts = nullptr;
  double (*matrices)[16] = nullptr;
};

// Distinct divisors other than 1 that the symmetry asks of one axis' grid count.
struct Divisors {
  std::int32_t count = 0;
  std::int32_t* values = nullptr;
};

}  // namespace qx

struct qxspg {
  char* user_name = nullptr;
  std::int32_t growth_step = 20;
  qx::OperatorTexts user_centring;
  qx::OperatorTexts user_primitive;
  std::int32_t spg_id = 0;
  char* short_name = nullptr;
  char* full_name = nullptr;
  char* schoenflies_name = nullptr;
  char* point_group_name = nullptr;
  char* crystal_system_name = nullptr;
  std::int32_t crystal_system = 0;  // 1 triclinic .. 8 cubic
  std::int32_t patterson_id = 0;
  char* patterson_name = nullptr;
  char* laue_name = nullptr;
  qx::Operators primitive;
  qx::Operators centring;
  std::int32_t nops = 0;        // primitive.count x centring.count
  double (*ops)[16] = nullptr;  // centring x primitive, centring outermost
  double (*inverses)[16] = nullptr;
  double (*op_tensors)[36] = nullptr;  // R U R^T of each operator's rotation
  double (*inverse_tensors)[36] = nullptr;
  qx::Divisors translation_divisors[3];
  qx::Divisors asu_divisors[3];
  std::int32_t centric_zones[12] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
  std::int32_t epsilon_zones[13] = {};
  char* xyzasu = nullptr;
  char* hklasu = nullptr;
};
