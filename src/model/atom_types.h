// K. Element symbols and the type strings made from them.
#pragma once

#include <cstdint>

namespace qx {

inline constexpr std::int32_t last_element = 103;

// "H" .. "Lr" for 1 .. 103, "??" for everything else.
const char* element_symbol(std::int32_t atomic_number) noexcept;

inline constexpr std::int32_t deuterium_mass = 2;

// Symbol and charge: "Fe+2", "O-1", "C"; "D" for a hydrogen of deuterium's mass number. At most
// five characters; false if it would be longer.
bool form_type(std::int32_t atomic_number, std::int32_t mass, std::int32_t charge,
               char (&type)[6]) noexcept;

}  // namespace qx
