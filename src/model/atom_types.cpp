#include "model/atom_types.h"

#include <cstdio>

namespace qx {

namespace {

constexpr const char* symbols[] = {
    "??", "H",  "He", "Li", "Be", "B",  "C",  "N",  "O",  "F",  "Ne", "Na", "Mg", "Al", "Si",
    "P",  "S",  "Cl", "Ar", "K",  "Ca", "Sc", "Ti", "V",  "Cr", "Mn", "Fe", "Co", "Ni", "Cu",
    "Zn", "Ga", "Ge", "As", "Se", "Br", "Kr", "Rb", "Sr", "Y",  "Zr", "Nb", "Mo", "Tc", "Ru",
    "Rh", "Pd", "Ag", "Cd", "In", "Sn", "Sb", "Te", "I",  "Xe", "Cs", "Ba", "La", "Ce", "Pr",
    "Nd", "Pm", "Sm", "Eu", "Gd", "Tb", "Dy", "Ho", "Er", "Tm", "Yb", "Lu", "Hf", "Ta", "W",
    "Re", "Os", "Ir", "Pt", "Au", "Hg", "Tl", "Pb", "Bi", "Po", "At", "Rn", "Fr", "Ra", "Ac",
    "Th", "Pa", "U",  "Np", "Pu", "Am", "Cm", "Bk", "Cf", "Es", "Fm", "Md", "No", "Lr"};
static_assert(sizeof symbols / sizeof *symbols == last_element + 1);

}  // namespace

const char* element_symbol(std::int32_t atomic_number) noexcept {
  return symbols[atomic_number >= 0 && atomic_number <= last_element ? atomic_number : 0];
}

bool form_type(std::int32_t atomic_number, std::int32_t mass, std::int32_t charge,
               char (&type)[6]) noexcept {
  const bool deuterium = atomic_number == 1 && mass == deuterium_mass;
  const char* symbol = deuterium ? "D" : element_symbol(atomic_number);
  const auto size = charge == 0 ? std::snprintf(type, sizeof type, "%s", symbol)
                                : std::snprintf(type, sizeof type, "%s%+d", symbol, charge);
  return size < static_cast<int>(sizeof type);
}

}  // namespace qx
