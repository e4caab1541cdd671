#include "support/random_model.h"

#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "support/engine.h"

#include <quorix/cell.h>
#include <quorix/model.h>
#include <quorix/reflections.h>
#include <quorix/spacegroup.h>
#include <quorix/structfact.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <numbers>
#include <random>
#include <sstream>

namespace qx::test {

namespace {

using Complex = std::complex<double>;

// f(s) = sum a exp(-b s^2 / 4); a constant is a term with b = 0.
struct FormFactor {
  std::vector<double> a, b;
  [[nodiscard]] double at(double s2) const {
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) sum += a[i] * std::exp(-b[i] * s2 / 4);
    return sum;
  }
};

std::map<std::string, FormFactor> read_form_factors(const std::string& name) {
  std::ifstream file(data_directory() / "xray" / name);
  std::map<std::string, FormFactor> table;
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  const auto numbers = [](const std::string& line) {
    std::istringstream stream(line);
    std::vector<double> values;
    for (double value = 0; stream >> value;) values.push_back(value);
    return values;
  };
  for (std::size_t i = 1; i + 2 < lines.size(); i += 3) {
    FormFactor f = {numbers(lines[i + 1]), numbers(lines[i + 2])};
    f.b.resize(f.a.size(), 0.0);
    table[lines[i]] = f;
  }
  return table;
}

FormFactor form_factor_of(const TestAtom& atom, bool two_gaussians) {
  static const auto two = read_form_factors("atomformfactor2.dat");
  static const auto five = read_form_factors("atomformfactor5.dat");
  static const std::map<int, std::string> symbols = {{1, "H"},  {6, "C"},   {7, "N"},   {8, "O"},
                                                     {16, "S"}, {20, "Ca"}, {26, "Fe"}, {30, "Zn"}};
  std::string type = symbols.at(atom.atomic_number);
  if (atom.charge > 0) type += "+" + std::to_string(atom.charge);
  if (atom.charge < 0) type += std::to_string(atom.charge);
  const auto found = two.find(type);
  return two_gaussians && found != two.end() ? found->second : five.at(type);
}

std::array<double, 3> orthogonal(const qxcell& cell, const std::array<double, 3>& f) {
  std::array<double, 3> out{};
  for (std::size_t i = 0; i < 3; ++i) {
    const double* m = cell.frac2orth + 4 * i;
    out[i] = m[0] * f[0] + m[1] * f[1] + m[2] * f[2] + m[3];
  }
  return out;
}

}  // namespace

std::vector<TestAtom> random_atoms(int n, bool with_aniso, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const std::pair<int, int> kinds[] = {{6, 0},  {6, 0},  {7, 0},  {8, 0}, {16, 0},
                                       {8, -1}, {20, 2}, {26, 3}, {30, 2}};
  std::vector<TestAtom> atoms;
  for (int i = 0; i < n; ++i) {
    TestAtom atom;
    for (double& x : atom.fractional) x = unit(random);
    if (i == 0) atom.fractional = {0.0, 0.0, 0.0};
    if (i == 1) atom.fractional = {1.0, 0.9999999, 0.5};
    if (i % 5 == 2) atom.fractional = {unit(random) - 3.0, unit(random) + 2.0, unit(random) - 1.0};
    std::tie(atom.atomic_number, atom.charge) = kinds[random() % std::size(kinds)];
    atom.occupancy = i % 4 == 3 ? 0.3 + 0.5 * unit(random) : 1.0;
    atom.b = 12.0 + 40.0 * unit(random);
    atom.aniso = with_aniso && i % 3 == 0;
    if (atom.aniso) {
      const double u = atom.b / (8 * std::numbers::pi * std::numbers::pi);
      atom.u = {u * 1.6, u * 0.7, u, u * 0.4 * (unit(random) - 0.5), u * 0.5, -u * 0.3};
    }
    atoms.push_back(atom);
  }
  return atoms;
}

void set_up_crystal(const std::string& group, const std::string& cell, double dmin, int most) {
  const SectionResult result = section("xcry\nspgname " + group + "\ncell " + cell + "\nreso " +
                                       std::to_string(dmin) + " 99999\nxend\n");
  ASSERT_TRUE(result.ok) << result.output;
  const double* c = qx_get_qxrecicell()->resolution;
  std::vector<std::array<std::int32_t, 3>> all;
  const qxcell& constants = *qx_get_qxcell();
  const int hmax = static_cast<int>(constants.a / dmin);
  const int kmax = static_cast<int>(constants.b / dmin);
  const int lmax = static_cast<int>(constants.c / dmin);
  for (int h = -hmax; h <= hmax; ++h) {
    for (int k = -kmax; k <= kmax; ++k) {
      for (int l = 0; l <= lmax; ++l) {
        const double s2 =
            h * h * c[0] + k * k * c[1] + l * l * c[2] + h * k * c[3] + h * l * c[4] + k * l * c[5];
        if (s2 > 0.0 && s2 * dmin * dmin <= 1.0) all.push_back({h, k, l});
      }
    }
  }
  std::mt19937 random(11);
  std::shuffle(all.begin(), all.end(), random);
  all.resize(std::min(all.size(), static_cast<std::size_t>(most)));
  captured([&] {
    ASSERT_EQ(qx_set_refdata_indices(static_cast<std::int32_t>(all.size()), all[0].data()), ok);
  });
}

void add_model_entry(const std::vector<TestAtom>& atoms, const std::vector<std::int32_t>& mass) {
  std::vector<double> x, y, z, b, occupancy, radius;
  std::vector<std::array<double, 6>> u;
  std::vector<std::int32_t> number, charge, index;
  std::vector<std::int32_t> further = mass;
  further.resize(atoms.size());
  for (const TestAtom& atom : atoms) {
    const auto position = orthogonal(*qx_get_qxcell(), atom.fractional);
    x.push_back(position[0]);
    y.push_back(position[1]);
    z.push_back(position[2]);
    number.push_back(atom.atomic_number);
    charge.push_back(atom.charge);
    occupancy.push_back(atom.occupancy);
    radius.push_back(1.7);
    if (atom.aniso) {
      index.push_back(~static_cast<std::int32_t>(u.size()));
      u.push_back(atom.u);
    } else {
      index.push_back(static_cast<std::int32_t>(b.size()));
      b.push_back(atom.b);
    }
  }
  ASSERT_EQ(
      qx_add_xmodel_entry(static_cast<std::int32_t>(atoms.size()), x.data(), y.data(), z.data(),
                          number.data(), charge.data(), further.data(), index.data(),
                          static_cast<std::int32_t>(b.size()), static_cast<std::int32_t>(u.size()),
                          b.data(), reinterpret_cast<const double(*)[6]>(u.data()),
                          occupancy.data(), charge.data(), radius.data()),
      ok);
}

void set_up_model(const std::vector<TestAtom>& atoms, const std::vector<std::int32_t>& mass) {
  ASSERT_TRUE(section("xmod\nxend\n").ok);
  add_model_entry(atoms, mass);
  ASSERT_TRUE(section("xmol\nhydr yes\nxend\n").ok);
}

namespace {

std::vector<Complex> sum_over(const std::vector<TestAtom>& atoms,
                              const std::vector<FormFactor>& factors) {
  const qxrefdata& data = *qx_get_qxrefdata();
  const qxspg& group = *qx_get_qxspg();
  const double* m = qx_get_qxcell()->orth2frac;
  std::vector<Complex> sums;
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const double hkl[3] = {static_cast<double>(data.h[i]), static_cast<double>(data.k[i]),
                           static_cast<double>(data.l[i])};
    Complex sum = 0.0;
    for (std::int32_t op = 0; op < group.nops; ++op) {
      // h R as a row vector, and h.t
      double hr[3] = {};
      double ht = 0.0;
      for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
          hr[column] += hkl[row] * group.ops[op][4 * row + column];
        }
        ht += hkl[row] * group.ops[op][4 * row + 3];
      }
      // the scattering vector of h R in the orthogonal frame
      double s[3] = {};
      for (int j = 0; j < 3; ++j) {
        for (int row = 0; row < 3; ++row) s[j] += hr[row] * m[4 * row + j];
      }
      const double s2 = s[0] * s[0] + s[1] * s[1] + s[2] * s[2];
      for (std::size_t a = 0; a < atoms.size(); ++a) {
        const TestAtom& atom = atoms[a];
        double damping = atom.b * s2 / 4;
        if (atom.aniso) {
          const auto& u = atom.u;
          damping = 2 * std::numbers::pi * std::numbers::pi *
                    (u[0] * s[0] * s[0] + u[1] * s[1] * s[1] + u[2] * s[2] * s[2] +
                     2 * (u[3] * s[0] * s[1] + u[4] * s[0] * s[2] + u[5] * s[1] * s[2]));
        }
        const auto& f = atom.fractional;
        const double cycles = hr[0] * f[0] + hr[1] * f[1] + hr[2] * f[2] + ht;
        sum += std::polar(atom.occupancy * factors[a].at(s2) * std::exp(-damping),
                          2 * std::numbers::pi * cycles);
      }
    }
    sums.push_back(sum);
  }
  return sums;
}

}  // namespace

std::vector<Complex> direct_sum(const std::vector<TestAtom>& atoms, bool two_gaussians) {
  std::vector<FormFactor> factors;
  for (const TestAtom& atom : atoms) factors.push_back(form_factor_of(atom, two_gaussians));
  return sum_over(atoms, factors);
}

std::vector<Complex> direct_sum(const std::vector<TestAtom>& atoms,
                                const std::vector<double>& lengths) {
  std::vector<FormFactor> factors;
  for (const double length : lengths) factors.push_back({{length}, {0.0}});
  return sum_over(atoms, factors);
}

std::vector<Complex> engine_sum() {
  const auto n = static_cast<std::size_t>(qx_get_qxrefdata()->nreflections);
  std::vector<double> re(n);
  std::vector<double> im(n);
  if (qx_calc_model_structure_factor(re.data(), im.data()) != ok) return {};
  std::vector<Complex> sums;
  for (std::size_t i = 0; i < n; ++i) sums.emplace_back(re[i], im[i]);
  return sums;
}

double vector_r(const std::vector<Complex>& reference, const std::vector<Complex>& other) {
  if (reference.size() != other.size()) return 1e9;
  double difference = 0.0;
  double sum = 0.0;
  for (std::size_t i = 0; i < reference.size(); ++i) {
    difference += std::abs(reference[i] - other[i]);
    sum += std::abs(reference[i]);
  }
  return difference / sum;
}

}  // namespace qx::test
