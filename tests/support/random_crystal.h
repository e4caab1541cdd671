// A crystal made of random atoms under a group, and its structure factors and density by plain sums
// that know nothing of mates, orbits or transforms.
#pragma once

#include <complex>
#include <cstdint>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace qx::test {

struct Operator {
  int r[3][3];
  int t24[3];  // translation in 24ths, 0 .. 23
  bool operator==(const Operator&) const = default;
};

// The closed group of operator strings such as "-x+1/2,y-x,z".
std::vector<Operator> closed_group(const std::vector<std::string>& generators);

struct Hkl {
  int h, k, l;
  bool operator<(const Hkl& o) const { return std::tie(h, k, l) < std::tie(o.h, o.k, o.l); }
};
Hkl operator*(const Hkl& i, const Operator& op);
inline Hkl operator-(const Hkl& i) { return {-i.h, -i.k, -i.l}; }

struct Cell {
  double a, b, c, alpha, beta, gamma;
};

struct Row {
  Hkl hkl;
  double amplitude, phase_deg;
};

class RandomCrystal {
 public:
  RandomCrystal(std::vector<Operator> group, const Cell& cell, unsigned seed);
  [[nodiscard]] const std::vector<Operator>& group() const { return group_; }
  [[nodiscard]] const Cell& cell() const { return cell_; }
  [[nodiscard]] double volume() const;
  // Every index with d >= dmin but (0, 0, 0), both of each pair of opposites.
  [[nodiscard]] std::vector<Hkl> sphere(double dmin) const;
  // Sum over all atoms of the cell of weight exp(2 pi i h.x).
  [[nodiscard]] std::complex<double> structure_factor(const Hkl& i) const;
  [[nodiscard]] Row row(const Hkl& hkl) const;
  // One row per orbit, a random one of its indices and their opposites.
  [[nodiscard]] std::vector<Row> unique_rows(double dmin);
  std::mt19937& random() { return random_; }

 private:
  std::vector<Operator> group_;
  Cell cell_;
  std::mt19937 random_;
  struct Atom {
    double weight, x[3];
  };
  std::vector<Atom> atoms_;
};

// (1/V) sum of F(h) exp(-2 pi i h.x) over all of `indices`, at fractional x.
double direct_density(const std::vector<std::pair<Hkl, std::complex<double>>>& terms, double volume,
                      const double (&x)[3]);

}  // namespace qx::test
