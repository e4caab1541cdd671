#include "support/random_crystal.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <set>
#include <sstream>

namespace qx::test {

namespace {

constexpr double degree = 3.14159265358979323846 / 180.0;
constexpr double full_turn = 2.0 * 3.14159265358979323846;

Operator parsed(const std::string& text) {
  Operator op = {};
  std::stringstream stream(text);
  std::string row;
  for (int i = 0; i < 3 && std::getline(stream, row, ','); ++i) {
    int sign = 1;
    for (std::size_t at = 0; at < row.size(); ++at) {
      const char c = row[at];
      if (c == '-') sign = -1;
      if (c == '+') sign = 1;
      if (c >= 'x' && c <= 'z') op.r[i][c - 'x'] = sign;
      if (std::isdigit(static_cast<unsigned char>(c))) {
        op.t24[i] = sign * (c - '0') * 24 / (row.at(at + 2) - '0');
        at += 2;
      }
    }
    op.t24[i] = (op.t24[i] + 24) % 24;
  }
  return op;
}

Operator product(const Operator& a, const Operator& b) {
  Operator c = {};
  for (int i = 0; i < 3; ++i) {
    int t = a.t24[i];
    for (int j = 0; j < 3; ++j) {
      for (int k = 0; k < 3; ++k) c.r[i][k] += a.r[i][j] * b.r[j][k];
      t += a.r[i][j] * b.t24[j];
    }
    c.t24[i] = (t % 24 + 24) % 24;
  }
  return c;
}

// Metric of the reciprocal cell: 1/d^2 = h G* h.
void reciprocal_metric(const Cell& c, double volume, double (&g)[6]) {
  const double ca = std::cos(c.alpha * degree), cb = std::cos(c.beta * degree);
  const double cg = std::cos(c.gamma * degree);
  const double as = c.b * c.c * std::sin(c.alpha * degree) / volume;
  const double bs = c.a * c.c * std::sin(c.beta * degree) / volume;
  const double cs = c.a * c.b * std::sin(c.gamma * degree) / volume;
  const double cga = (ca * cb - cg) / (std::sin(c.alpha * degree) * std::sin(c.beta * degree));
  const double cbe = (ca * cg - cb) / (std::sin(c.alpha * degree) * std::sin(c.gamma * degree));
  const double cal = (cb * cg - ca) / (std::sin(c.beta * degree) * std::sin(c.gamma * degree));
  const double values[6] = {as * as,           bs * bs,           cs * cs,
                            2 * as * bs * cga, 2 * as * cs * cbe, 2 * bs * cs * cal};
  std::copy_n(values, 6, g);
}

}  // namespace

std::vector<Operator> closed_group(const std::vector<std::string>& generators) {
  std::vector<Operator> group = {parsed("x,y,z")};
  const auto add = [&](const Operator& op) {
    if (std::find(group.begin(), group.end(), op) == group.end()) group.push_back(op);
  };
  for (const std::string& text : generators) add(parsed(text));
  for (std::size_t i = 0; i < group.size(); ++i) {
    for (std::size_t j = 0; j <= i; ++j) {
      add(product(group[i], group[j]));
      add(product(group[j], group[i]));
    }
  }
  return group;
}

Hkl operator*(const Hkl& i, const Operator& op) {
  const auto column = [&](int j) { return i.h * op.r[0][j] + i.k * op.r[1][j] + i.l * op.r[2][j]; };
  return {column(0), column(1), column(2)};
}

RandomCrystal::RandomCrystal(std::vector<Operator> group, const Cell& cell, unsigned seed)
    : group_(std::move(group)), cell_(cell), random_(seed) {
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  for (int i = 0; i < 4; ++i) {
    const double x[3] = {uniform(random_), uniform(random_), uniform(random_)};
    const double weight = 1.0 + 5.0 * uniform(random_);
    for (const Operator& op : group_) {
      Atom atom = {weight, {}};
      for (int r = 0; r < 3; ++r) {
        atom.x[r] = op.r[r][0] * x[0] + op.r[r][1] * x[1] + op.r[r][2] * x[2] + op.t24[r] / 24.0;
      }
      atoms_.push_back(atom);
    }
  }
}

double RandomCrystal::volume() const {
  const double ca = std::cos(cell_.alpha * degree), cb = std::cos(cell_.beta * degree);
  const double cg = std::cos(cell_.gamma * degree);
  return cell_.a * cell_.b * cell_.c *
         std::sqrt(1 - ca * ca - cb * cb - cg * cg + 2 * ca * cb * cg);
}

std::vector<Hkl> RandomCrystal::sphere(double dmin) const {
  double g[6];
  reciprocal_metric(cell_, volume(), g);
  const int hmax = static_cast<int>(cell_.a / dmin) + 1;
  const int kmax = static_cast<int>(cell_.b / dmin) + 1;
  const int lmax = static_cast<int>(cell_.c / dmin) + 1;
  std::vector<Hkl> indices;
  for (int h = -hmax; h <= hmax; ++h) {
    for (int k = -kmax; k <= kmax; ++k) {
      for (int l = -lmax; l <= lmax; ++l) {
        const double s2 =
            h * h * g[0] + k * k * g[1] + l * l * g[2] + h * k * g[3] + h * l * g[4] + k * l * g[5];
        if (s2 > 0 && s2 <= 1.0 / (dmin * dmin) * (1 + 1e-9)) indices.push_back({h, k, l});
      }
    }
  }
  return indices;
}

std::complex<double> RandomCrystal::structure_factor(const Hkl& i) const {
  std::complex<double> sum = 0;
  for (const Atom& atom : atoms_) {
    sum +=
        std::polar(atom.weight, full_turn * (i.h * atom.x[0] + i.k * atom.x[1] + i.l * atom.x[2]));
  }
  return sum;
}

Row RandomCrystal::row(const Hkl& hkl) const {
  const std::complex<double> f = structure_factor(hkl);
  return {hkl, std::abs(f), std::arg(f) / degree};
}

std::vector<Row> RandomCrystal::unique_rows(double dmin) {
  std::set<Hkl> seen;
  std::vector<Row> rows;
  for (const Hkl& hkl : sphere(dmin)) {
    if (seen.count(hkl)) continue;
    std::vector<Hkl> orbit;
    for (const Operator& op : group_) {
      orbit.push_back(hkl * op);
      orbit.push_back(-(hkl * op));
    }
    seen.insert(orbit.begin(), orbit.end());
    rows.push_back(row(orbit[random_() % orbit.size()]));
  }
  std::shuffle(rows.begin(), rows.end(), random_);
  return rows;
}

double direct_density(const std::vector<std::pair<Hkl, std::complex<double>>>& terms, double volume,
                      const double (&x)[3]) {
  double sum = 0;
  for (const auto& [i, f] : terms) {
    const double angle = full_turn * (i.h * x[0] + i.k * x[1] + i.l * x[2]);
    sum += f.real() * std::cos(angle) + f.imag() * std::sin(angle);
  }
  return sum / volume;
}

}  // namespace qx::test
