// The transform object and its plan caches.
#pragma once

#include "fft/plan.h"

#include <quorix/fft.h>

namespace qx {

template <class Plan>
struct PlanEntry {
  std::int32_t length = 0;
  Plan* plan = nullptr;
  PlanEntry* next = nullptr;
};

template <class Plan>
struct PlanBucket {
  PlanEntry<Plan>* first = nullptr;
};

// Plans by length: bucket length mod 20, new entries at the head of their chain, none evicted.
template <class Plan>
struct PlanTable {
  std::int32_t buckets = 20;
  std::int32_t entries = 0;
  PlanBucket<Plan>* heads = nullptr;
};

// The object, created when there is none; null after a report.
qxfft* fft_object();

}  // namespace qx

struct qxfft {
  std::int32_t radix_count = 4;
  std::int32_t* radices = nullptr;  // in the order in which factors are taken off a length
  qx::PlanTable<qxfftplan>* plans = nullptr;
  qx::PlanTable<qxfftrealplan>* real_plans = nullptr;
  qxfftplan* last_plan = nullptr;  // looked at before the tables
  qxfftrealplan* last_real_plan = nullptr;
};
