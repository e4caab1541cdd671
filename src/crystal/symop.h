// K. Symmetry operators and asymmetric-unit limits as texts and numbers. Operators are 4 x 4
// row-major matrices on fractional columns, the last row (0 0 0 1).
//
// Crystallographic translations are multiples of 1/24. Everything read or computed is snapped to
// them, so that 1/3 is one number wherever it comes from and operators can be compared.
#pragma once

#include "core/text.h"

#include <cstddef>

namespace qx {

// A grid count can be asked to hold these divisors: no prime above 5, and small.
inline constexpr int largest_divisor = 120;
bool possible_divisor(int divisor) noexcept;

// To the nearest k/24 when within 1e-4 of it.
double snap_translation(double t) noexcept;
// Into [0, 1), snapped; -0 becomes 0. What is not finite stays.
double normalize_translation(double t) noexcept;
void normalize_translations(double op[16]) noexcept;

// A run of digits and points that is no number; empty when the text was read.
using Unreadable = Word;

// Reads an operator such as -x,y+1/2,-z. Row denominators are those of the reduced translation, 1
// without one, and 0 for a translation that is no fraction.
Unreadable parse_operator(const char* text, double op[16], int denominators[3]) noexcept;
// Reads limits such as 0<=x<=1/2; an inclusive bound is 1e-5 outside its value, others inside.
// `low` is left alone when there is no letter. Denominators are as written.
Unreadable parse_limits(const char* text, float* low, float* high, int denominators[2]) noexcept;

// Whole-number rotation of determinant +-1, finite translation: an operator of some lattice.
bool is_symmetry_operator(const double op[16]) noexcept;
// All 16 elements agree within 1e-10.
bool same_operator(const double a[16], const double b[16]) noexcept;
// Equal for equal operators: compared before the elements.
int operator_key(const double op[16]) noexcept;
// c x p with normalised translations, and the normalised inverse; false if that does not exist.
bool compose_operators(const double c[16], const double p[16], double out[16]) noexcept;
bool invert_operator(const double op[16], double out[16]) noexcept;
// Row vector (h k l) times the rotation, to whole numbers.
void rotate_index(const int hkl[3], const double op[16], int out[3]) noexcept;

// Longest text of format_operator, its end included.
inline constexpr std::size_t operator_text_size = 64;
// Writes -x,y+1/2,-z; false for a translation that is no fraction n/2 to n/16. Coefficients have
// one digit.
bool format_operator(const double op[16], char* out) noexcept;

}  // namespace qx
