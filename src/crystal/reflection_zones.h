// K. Zones of reflections that a group may make centric or give an epsilon factor above that of
// general reflections. A zone is decided once per group on a representative reflection.
#pragma once

#include <cstdint>

namespace qx {

inline constexpr int centric_zone_count = 12;
inline constexpr int epsilon_zone_count = 13;  // the last one holds general reflections

// Index of the first operator that takes the zone's representative to its opposite, else -1.
std::int32_t centric_operator(int zone, std::int32_t nops, const double (*ops)[16]) noexcept;
// Epsilon of a special zone: primitive operators that leave its representative alone, times the
// number of centring operators; 0 where only the identity does.
std::int32_t zone_epsilon(int zone, std::int32_t nprimitive, const double (*primitive)[16],
                          std::int32_t ncentring) noexcept;

// Of n reflections at once, 1 or 0 and as epsilon_factor.
void mark_centric(const std::int32_t zones[centric_zone_count], std::int32_t n,
                  const std::int32_t* h, const std::int32_t* k, const std::int32_t* l,
                  std::int16_t* centric) noexcept;
void mark_epsilon(const std::int32_t zones[epsilon_zone_count], std::int32_t n,
                  const std::int32_t* h, const std::int32_t* k, const std::int32_t* l,
                  std::int32_t* epsilon) noexcept;

bool is_centric(const std::int32_t zones[centric_zone_count], std::int32_t h, std::int32_t k,
                std::int32_t l) noexcept;
// 0 only for a table without an entry for general reflections.
std::int32_t epsilon_factor(const std::int32_t zones[epsilon_zone_count], std::int32_t h,
                            std::int32_t k, std::int32_t l) noexcept;

}  // namespace qx
