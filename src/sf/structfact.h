// Records of the structure factors.
#pragma once

#include "stats/scale_fit.h"

#include <quorix/structfact.h>

namespace qx {

// Contributions of one part of the system, before the prefactor.
struct PartSums {
  double* re = nullptr;
  double* im = nullptr;
  double scale = 1.0;
  double b = 0.0;  // Angstrom^2: the part counts as scale exp(-b s^2 / 4) F
};

// What the last scaling found; nothing before one. The bins' part is the cross-validation's.
struct ScaleResult {
  bool done = false;
  OverallScale scale;
  bool split = false;    // into a working and a free set
  Agreement work, free;  // work: of all without a split
};

}  // namespace qx

struct qxrefdata;

struct qxstructfact {
  std::int32_t nref = 0;
  std::int32_t nparts = 0;
  qx::PartSums* parts = nullptr;  // atoms, then what the data bring
  qx::PartSums separate;          // part number -1
  double* prefactor = nullptr;    // per reflection
  std::int32_t nprefactor = 0;
  qx::ScaleResult scaling;
};

struct qxsincostab {
  static constexpr std::int32_t n = 100000;
  double* sine = nullptr;
  double* cosine = nullptr;
};

namespace qx {

Status release_all_sums(qxstructfact* sf);
// Opens zeroed arrays for the part (-1: the separate pair) if it has none for `nref` reflections;
// others are released.
Status open_sums(qxstructfact* sf, std::int32_t part, std::int32_t nref);
// What takes the prefactor's sampling volume, that of a cell with right angles, to the cell's.
Status sampling_ratio(const char* heading, double& ratio);
// F of the model at the reflections from `first` on, `n` of them; re and im have n elements.
inline constexpr std::int32_t to_the_last = -1;
Status model_factors(const char* heading, std::int32_t first, std::int32_t n, double* re,
                     double* im);
// Adds sums with their prefactor and the scale of `part` to re and im. All arrays have an element
// per reflection.
Status add_scaled(const char* heading, const qxstructfact& sf, const qxrefdata& data,
                  const PartSums& part, const PartSums& sums, double* re, double* im);

}  // namespace qx
