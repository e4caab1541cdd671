// Reflections that two data sets have in common.
#pragma once

#include "core/tagged.h"

struct qxrefdata;
struct qxspg;

namespace qx {

// For each reflection of the first set, where the second one's observations of it are.
struct Partners {
  Tagged<double> f, sigma;  // of the second set; an f that is no number: none. Unknown errors: 0
  std::int32_t pairs = 0, first_only = 0, second_only = 0;
};

// Matches the observed amplitudes of both by indices through the group and Friedel's law;
// reflections that the second set has several times count by their mean. Reports under `heading`
// what is missing.
Status find_partners(const char* heading, const qxrefdata& first, const qxrefdata& second,
                     const qxspg& group, Partners& out);

}  // namespace qx
