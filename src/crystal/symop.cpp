#include "crystal/symop.h"

#include "crystal/matrix.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <numeric>

namespace qx {

namespace {

constexpr double steps = 24;

bool in_number(char c) noexcept { return (c >= '0' && c <= '9') || c == '.'; }

bool is_space(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Reads the run of digits and points at `s`; false when it is no number. A number beyond the range
// of doubles is infinite, which later checks refuse.
bool read_number(const char* s, const char** end, double* value) noexcept {
  const char* stop = s;
  while (in_number(*stop)) ++stop;
  *end = stop;
  const auto result = std::from_chars(s, stop, *value, std::chars_format::fixed);
  if (result.ec == std::errc::result_out_of_range) {
    *value = std::numeric_limits<double>::infinity();
    return true;
  }
  return result.ec == std::errc();
}

// A number that has been read but not used yet, with its sign.
struct Pending {
  double sign = 1;
  double numerator = 1;
  double denominator = 1;
  bool present = false;

  [[nodiscard]] double value() const noexcept { return sign * numerator / denominator; }
};

// Reads a number and its denominator into `pending`. `*s` moves behind it.
Unreadable read_pending(const char** s, Pending* pending) noexcept {
  const char* start = *s;
  if (!read_number(start, s, &pending->numerator)) {
    return {start, static_cast<std::size_t>(*s - start)};
  }
  pending->present = true;
  return {};
}

// Reads the denominator after a "/"; a stroke without a number is skipped.
Unreadable read_denominator(const char** s, Pending* pending) noexcept {
  const char* start = *s + 1;
  while (is_space(*start)) ++start;
  *s = start;
  if (!in_number(*start)) return {};
  if (!read_number(start, s, &pending->denominator)) {
    return {start, static_cast<std::size_t>(*s - start)};
  }
  return {};
}

int reduced(long long numerator, int denominator) noexcept {
  return static_cast<int>(denominator / std::gcd(std::llabs(numerator), denominator));
}

// Denominator of the snapped translation; `written` helps with those that are no k/24.
int denominator_of(double t, double written) noexcept {
  if (!std::isfinite(t)) return 0;
  const double rest = snap_translation(t - std::floor(t));
  const double k = std::round(rest * steps);
  if (rest == k / steps) return reduced(static_cast<long long>(k), static_cast<int>(steps));
  if (written > 1 && written < 1e6 && written == std::round(written)) {
    return reduced(std::llround(rest * written), static_cast<int>(written));
  }
  for (int q = 1; q <= largest_divisor; ++q) {
    if (std::fabs(rest * q - std::round(rest * q)) < 1e-6) return q;
  }
  return 0;
}

int to_int(double value) noexcept {
  return std::fabs(value) < 1e9 ? static_cast<int>(std::lround(value)) : 0;
}

int column_of(char c) noexcept {
  switch (to_lower(c)) {
    case 'x':
    case 'h':
    case 'a':
      return 0;
    case 'y':
    case 'k':
    case 'b':
      return 1;
    case 'z':
    case 'l':
    case 'c':
      return 2;
    default:
      return -1;
  }
}

class OperatorReader {
 public:
  OperatorReader(double* op, int* denominators) noexcept : op_(op), denominators_(denominators) {}

  Unreadable read(const char* s) noexcept {
    while (*s) {
      const int column = column_of(*s);
      if (in_number(*s)) {
        close();
        if (const Unreadable bad = read_pending(&s, &pending_); bad.size > 0) return bad;
        continue;
      }
      if (*s == '/') {
        Pending divisor;
        if (const Unreadable bad = read_denominator(&s, &divisor); bad.size > 0) return bad;
        if (pending_.present)
          pending_.denominator = divisor.denominator;
        else if (element_)
          *element_ /= divisor.denominator;  // x/2: refused later, not lost
        continue;
      }
      if (column >= 0) {
        element_ = row_ < 3 ? op_ + 4 * row_ + column : nullptr;
        if (element_) *element_ = pending_.value();
        pending_ = {};
        const bool abc = std::strchr("abcABC", *s) != nullptr;
        if (abc && s[1] == '*') ++s;
      } else if (*s == '+' || *s == '-') {
        close();  // 1/2+x: the number is a translation
        pending_.sign = *s == '-' ? -1 : 1;
      } else if (!is_space(*s)) {
        close();
        if (*s == ',') next_row();
      }
      ++s;
    }
    close();
    return {};
  }

 private:
  void close() noexcept {
    if (!pending_.present) return;
    if (row_ < 3) {
      double& t = op_[4 * row_ + 3];
      t = snap_translation(t + pending_.value());
      denominators_[row_] = denominator_of(t, pending_.denominator);
    }
    pending_ = {};
  }

  void next_row() noexcept {
    ++row_;
    pending_ = {};
    element_ = nullptr;
  }

  double* op_;
  int* denominators_;
  int row_ = 0;
  double* element_ = nullptr;  // the last one that was set in this row
  Pending pending_;
};

}  // namespace

bool possible_divisor(int divisor) noexcept {
  if (divisor < 1 || divisor > largest_divisor) return false;
  constexpr int primes[] = {2, 3, 5};
  for (const int prime : primes) {
    while (divisor % prime == 0) divisor /= prime;
  }
  return divisor == 1;
}

double snap_translation(double t) noexcept {
  const double snapped = std::round(t * steps) / steps;
  return std::fabs(t - snapped) < 1e-4 ? snapped : t;
}

double normalize_translation(double t) noexcept {
  const double rest = snap_translation(t - std::floor(t));
  return rest >= 1 ? 0.0 : rest + 0.0;
}

void normalize_translations(double op[16]) noexcept {
  for (int row = 0; row < 3; ++row) op[4 * row + 3] = normalize_translation(op[4 * row + 3]);
}

Unreadable parse_operator(const char* text, double op[16], int denominators[3]) noexcept {
  std::memset(op, 0, 16 * sizeof *op);
  op[15] = 1;
  for (int row = 0; row < 3; ++row) denominators[row] = 1;
  return OperatorReader(op, denominators).read(text);
}

Unreadable parse_limits(const char* text, float* low, float* high, int denominators[2]) noexcept {
  constexpr float tolerance = 1e-5F;
  denominators[0] = denominators[1] = 1;
  Pending pending;
  bool inclusive = false;
  for (const char* s = text; *s;) {
    if (in_number(*s)) {
      if (const Unreadable bad = read_pending(&s, &pending); bad.size > 0) return bad;
      continue;
    }
    if (*s == '/') {
      if (const Unreadable bad = read_denominator(&s, &pending); bad.size > 0) return bad;
      continue;
    }
    if (*s == '+' || *s == '-') pending.sign = *s == '-' ? -1 : 1;
    if (*s == '=') inclusive = true;
    if (std::strchr("hklxyzHKLXYZ", *s)) {
      *low = static_cast<float>(pending.value()) + (inclusive ? -tolerance : tolerance);
      denominators[0] = to_int(pending.denominator);
      pending = {};
      inclusive = false;
    }
    ++s;
  }
  *high = static_cast<float>(pending.value()) + (inclusive ? tolerance : -tolerance);
  denominators[1] = to_int(pending.denominator);
  return {};
}

bool is_symmetry_operator(const double op[16]) noexcept {
  for (int row = 0; row < 3; ++row) {
    if (!std::isfinite(op[4 * row + 3])) return false;
    for (int column = 0; column < 3; ++column) {
      const double element = op[4 * row + column];
      if (!(std::fabs(element) <= 9) || element != std::round(element)) return false;
    }
  }
  double rotation[9];
  rotation_of(op, rotation);
  return std::fabs(determinant33(rotation)) == 1;
}

bool same_operator(const double a[16], const double b[16]) noexcept {
  for (int i = 0; i < 16; ++i) {
    if (!(std::fabs(a[i] - b[i]) <= 1e-10)) return false;
  }
  return true;
}

int operator_key(const double op[16]) noexcept {
  double key = 0;
  for (int row = 0; row < 3; ++row) {
    const double* r = op + 4 * row;
    key = 19 * key + r[0] + 3 * r[1] + 9 * r[2] + steps * steps * r[3];
  }
  return to_int(key);
}

bool compose_operators(const double c[16], const double p[16], double out[16]) noexcept {
  multiply44(c, p, out);
  normalize_translations(out);
  return is_symmetry_operator(out);
}

bool invert_operator(const double op[16], double out[16]) noexcept {
  if (!invert44(op, out)) return false;
  for (int i = 0; i < 12; ++i) {
    if (i % 4 != 3) out[i] = std::round(out[i]) + 0.0;
  }
  std::fill_n(out + 12, 3, 0.0);
  out[15] = 1;
  normalize_translations(out);
  return true;
}

void rotate_index(const int hkl[3], const double op[16], int out[3]) noexcept {
  for (int column = 0; column < 3; ++column) {
    out[column] = static_cast<int>(
        std::lround(hkl[0] * op[column] + hkl[1] * op[4 + column] + hkl[2] * op[8 + column]));
  }
}

namespace {

bool write_fraction(double value, char** out) noexcept {
  const double fraction = value - std::floor(value);
  for (int d = 2; d <= 16; ++d) {
    for (int n = 1; n < d; ++n) {
      if (std::gcd(n, d) != 1 || std::fabs(fraction - static_cast<double>(n) / d) > 1e-6) continue;
      *out = std::to_chars(*out, *out + 2, n).ptr;
      *(*out)++ = '/';
      *out = std::to_chars(*out, *out + 2, d).ptr;
      return true;
    }
  }
  return false;
}

}  // namespace

bool format_operator(const double op[16], char* out) noexcept {
  for (int row = 0; row < 3; ++row) {
    bool first = true;
    if (row > 0) *out++ = ',';
    for (int column = 0; column < 3; ++column) {
      const int element = to_int(op[4 * row + column]);
      if (element == 0) continue;
      if (element < 0) *out++ = '-';
      if (element > 0 && !first) *out++ = '+';
      const int size = std::abs(element);
      if (size > 1) *out++ = static_cast<char>('0' + (size < 9 ? size : 9));
      *out++ = "xyz"[column];
      first = false;
    }
    const double t = op[4 * row + 3];
    if (std::fabs(t) > 1e-6) {
      *out++ = t < 0 ? '-' : '+';
      *out = '\0';
      if (!write_fraction(std::fabs(t), &out)) return false;
    }
  }
  *out = '\0';
  return true;
}

}  // namespace qx
