// Records of the form factors.
#pragma once

#include <quorix/formfactors.h>

namespace qx {

// A chained table from a short text to a number. Longer keys are cut on insertion, so they are
// never found again.
struct TypeEntry {
  char* key = nullptr;
  std::int32_t value = 0;
  TypeEntry* next = nullptr;
};

enum Diffraction : std::int32_t { electron_diffraction = 0, neutron_diffraction = 1 };

}  // namespace qx

struct qxatformfacthash {
  static constexpr std::int32_t nbuckets = 50;
  qx::TypeEntry* buckets[nbuckets] = {};
};

struct atfrmfactbase {
  std::int32_t method = qx::electron_diffraction;
  std::int32_t natomformfactors = 0;  // ng5 + ng2; 0: not filled yet
  std::int32_t ng2atfrmfact = 0;
  std::int32_t ng5atfrmfact = 0;
  char (*names)[5] = nullptr;
  std::int32_t* weight = nullptr;  // carried and printed, filled by nothing
  std::int32_t* electrons = nullptr;
  double (*a)[5] = nullptr;
  double (*b)[5] = nullptr;
  double (*cw)[2] = nullptr;
  double (*mw)[2] = nullptr;
};

struct ioafrmfact {
  double b0 = -99999.0;
  std::int32_t diffraction = qx::electron_diffraction;
  std::int32_t nforced = 0;
  static constexpr std::int32_t nbuckets = 20;
  qx::TypeEntry** forced = nullptr;  // made at the first insertion
};

struct molformfact {
  std::int32_t natom = 0;
  std::int32_t* ngauss = nullptr;  // 2 or 5
  std::int32_t* index = nullptr;   // into the base
};

struct xmolformfact {
  qxatformfacthash* hash5 = nullptr;
  qxatformfacthash* hash2 = nullptr;
  atfrmfactbase* base = nullptr;
  ioafrmfact* settings = nullptr;
  molformfact* pickup = nullptr;
};
