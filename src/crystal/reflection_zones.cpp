#include "crystal/reflection_zones.h"

#include "crystal/symop.h"

#include <algorithm>

namespace qx {

namespace {

struct Zone {
  int representative[3];
  int condition[3];  // the zone is where h c0 + k c1 + l c2 = 0
};

constexpr Zone centric_zones[centric_zone_count] = {
    {{0, 1, 2}, {1, 0, 0}},   {{1, 0, 2}, {0, 1, 0}},   {{1, 2, 0}, {0, 0, 1}},
    {{1, 1, 10}, {1, -1, 0}}, {{1, 10, 1}, {1, 0, -1}}, {{10, 1, 1}, {0, 1, -1}},
    {{1, -1, 10}, {1, 1, 0}}, {{1, 10, -1}, {1, 0, 1}}, {{10, 1, -1}, {0, 1, 1}},
    {{-1, 2, 10}, {2, 1, 0}}, {{2, -1, 10}, {1, 2, 0}}, {{1, 4, 8}, {0, 0, 0}},
};

// Kept: two conditions packed into one sum with weight 1000, exact for indices below 500.
constexpr Zone epsilon_zones[epsilon_zone_count] = {
    {{1, 0, 0}, {0, 1000, 1}},  {{0, 2, 0}, {1000, 0, 1}},  {{0, 0, 2}, {1000, 1, 0}},
    {{1, 1, 0}, {1, -1, 1000}}, {{1, 0, 1}, {1, 1000, -1}}, {{0, 1, 1}, {1000, 1, -1}},
    {{1, -1, 0}, {1, 1, 1000}}, {{1, 0, -1}, {1, 1000, 1}}, {{0, 1, -1}, {1000, 1, 1}},
    {{-1, 2, 0}, {2, 1, 1000}}, {{2, -1, 0}, {1, 2, 1000}}, {{1, 1, 1}, {1, 1000, -1001}},
    {{0, 0, 0}, {0, 0, 0}},
};

// Unsigned: the sum wraps for indices far beyond any crystal.
bool in_zone(const Zone& zone, std::int32_t h, std::int32_t k, std::int32_t l) noexcept {
  const auto term = [](std::int32_t index, int weight) {
    return static_cast<std::uint32_t>(index) * static_cast<std::uint32_t>(weight);
  };
  const int* c = zone.condition;
  return term(h, c[0]) + term(k, c[1]) + term(l, c[2]) == 0;
}

}  // namespace

std::int32_t centric_operator(int zone, std::int32_t nops, const double (*ops)[16]) noexcept {
  const int* hkl = centric_zones[zone].representative;
  for (std::int32_t i = 0; i < nops; ++i) {
    int rotated[3];
    rotate_index(hkl, ops[i], rotated);
    if (rotated[0] == -hkl[0] && rotated[1] == -hkl[1] && rotated[2] == -hkl[2]) return i;
  }
  return -1;
}

std::int32_t zone_epsilon(int zone, std::int32_t nprimitive, const double (*primitive)[16],
                          std::int32_t ncentring) noexcept {
  const int* hkl = epsilon_zones[zone].representative;
  std::int32_t count = 0;
  for (std::int32_t i = 0; i < nprimitive; ++i) {
    int rotated[3];
    rotate_index(hkl, primitive[i], rotated);
    if (rotated[0] == hkl[0] && rotated[1] == hkl[1] && rotated[2] == hkl[2]) ++count;
  }
  return count > 1 ? count * ncentring : 0;
}

// Zone by zone over all reflections: the loops have no branches and become vectors.
void mark_centric(const std::int32_t zones[centric_zone_count], std::int32_t n,
                  const std::int32_t* h, const std::int32_t* k, const std::int32_t* l,
                  std::int16_t* centric) noexcept {
  std::fill_n(centric, n, std::int16_t{0});
  for (int zone = 0; zone < centric_zone_count; ++zone) {
    if (zones[zone] < 0) continue;
    const Zone own = centric_zones[zone];
    for (std::int32_t i = 0; i < n; ++i) {
      centric[i] = static_cast<std::int16_t>(in_zone(own, h[i], k[i], l[i]) ? 1 : centric[i]);
    }
  }
}

// The first zone that holds a reflection counts: they are taken from the last.
void mark_epsilon(const std::int32_t zones[epsilon_zone_count], std::int32_t n,
                  const std::int32_t* h, const std::int32_t* k, const std::int32_t* l,
                  std::int32_t* epsilon) noexcept {
  std::fill_n(epsilon, n, 0);
  for (int zone = epsilon_zone_count; zone-- > 0;) {
    if (zones[zone] < 1) continue;
    const Zone own = epsilon_zones[zone];
    for (std::int32_t i = 0; i < n; ++i) {
      epsilon[i] = in_zone(own, h[i], k[i], l[i]) ? zones[zone] : epsilon[i];
    }
  }
}

bool is_centric(const std::int32_t zones[centric_zone_count], std::int32_t h, std::int32_t k,
                std::int32_t l) noexcept {
  for (int zone = 0; zone < centric_zone_count; ++zone) {
    if (zones[zone] >= 0 && in_zone(centric_zones[zone], h, k, l)) return true;
  }
  return false;
}

std::int32_t epsilon_factor(const std::int32_t zones[epsilon_zone_count], std::int32_t h,
                            std::int32_t k, std::int32_t l) noexcept {
  for (int zone = 0; zone < epsilon_zone_count; ++zone) {
    if (zones[zone] >= 1 && in_zone(epsilon_zones[zone], h, k, l)) return zones[zone];
  }
  return 0;
}

}  // namespace qx
