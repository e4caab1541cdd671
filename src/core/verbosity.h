// The ten verbosity switches.
#pragma once

#include <quorix/api.h>

#include <cstdint>

struct qxverbsys {
  std::int32_t mtz = 0;
  std::int32_t hkl = 0;
  std::int32_t cns = 0;
  std::int32_t ml = 0;
  std::int32_t ls = 2;
  std::int32_t reserved = 0;
  std::int32_t mem = 0;
  std::int32_t cpu = 0;
  std::int32_t binr = 0;
  std::int32_t debug = 0;
};

namespace qx {

// Sets one switch; a missing record is reported.
Status set_switch(std::int32_t qxverbsys::*field, std::int32_t level);

}  // namespace qx
