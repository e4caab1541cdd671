// A random structure in the engine and in gemmi: the same cell, atoms, blurring and grid.
#pragma once

#include "driver/section_job.h"

#include <quorix/cell.h>
#include <quorix/density.h>
#include <quorix/engine.h>
#include <quorix/formfactors.h>
#include <quorix/model.h>
#include <quorix/reflection_view.h>
#include <quorix/reflections.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace qx::bench {

inline void check(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "bench: %s\n", what);
  std::exit(1);
}

// What the engine prints is of no interest here.
class Silence {
 public:
  Silence() {
    qx_set_output([](void*, const char*, std::size_t) {}, nullptr);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() { qx_set_output(nullptr, nullptr); }
};

inline void section(const std::vector<std::string>& lines) {
  std::vector<const char*> pointers;
  for (const std::string& line : lines) pointers.push_back(line.c_str());
  check(run_section_lines(static_cast<std::int32_t>(pointers.size()), pointers.data()) == 0,
        "a section failed");
}

struct Atom {
  double f[3];  // fractional
  double x[3];  // Angstrom
  int atomic_number;
  double b;
};

struct Structure {
  double cell[6];
  std::vector<Atom> atoms;
};

// `natoms` of C, N, O and S as in a protein, 27 A^3 each, B from 10 to 40; orthorhombic or
// hexagonal (a = b, gamma 120) or monoclinic (beta 110).
enum class Axes { orthorhombic, hexagonal, monoclinic };
inline Structure random_structure(int natoms, Axes axes, unsigned seed) {
  const double gamma = axes == Axes::hexagonal ? 120.0 : 90.0;
  const double beta = axes == Axes::monoclinic ? 110.0 : 90.0;
  const double degree = std::acos(-1.0) / 180.0;
  const double edge = std::cbrt(27.0 * natoms / std::sin(gamma * degree) / std::sin(beta * degree));
  Structure s = {{edge, edge, edge, 90, beta, gamma}, {}};
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  constexpr int kinds[] = {6, 6, 6, 6, 6, 6, 7, 7, 8, 8, 8, 6, 6, 7, 8, 6, 6, 6, 8, 16};
  for (int i = 0; i < natoms; ++i) {
    Atom atom = {};
    for (double& f : atom.f) f = unit(random);
    atom.x[0] = edge * (atom.f[0] + std::cos(gamma * degree) * atom.f[1] +
                        std::cos(beta * degree) * atom.f[2]);
    atom.x[1] = edge * std::sin(gamma * degree) * atom.f[1];
    atom.x[2] = edge * std::sin(beta * degree) * atom.f[2];
    atom.atomic_number = kinds[random() % 20];
    atom.b = 10.0 + 30.0 * unit(random);
    s.atoms.push_back(atom);
  }
  return s;
}

// An engine ready for qx_calc_elec_den_map: sections run, radii found. `five`: five Gaussians.
inline void set_up_engine(const Structure& s, double dmin, const char* ecut, bool five,
                          const char* group = "P 1") {
  setenv("ZENVI_DATA", QUORIX_SOURCE_DIR "/data", 1);
  check(qx_create_quorix() == ok, "no engine");
  char line[200];
  std::snprintf(line, sizeof line, "cell %.6f %.6f %.6f %.1f %.1f %.1f", s.cell[0], s.cell[1],
                s.cell[2], s.cell[3], s.cell[4], s.cell[5]);
  section({"xcry", std::string("spgname ") + group, line, "reso " + std::to_string(dmin) + " 999",
           "xend"});
  section({"xgrid", "frac 0.33", "xend"});
  section({"xfft", "memory 100000", "B0 20", "xend"});
  section({"xformfact", five ? "atmf C 5 N 5 O 5 S 5" : "!", "xend"});
  section({"xcut", std::string("ecut ") + ecut, "xend"});
  section({"xmod", "xend"});
  std::vector<double> x[3], b, one, radius;
  std::vector<std::int32_t> number, zero, index;
  for (const Atom& atom : s.atoms) {
    for (int i = 0; i < 3; ++i) x[i].push_back(atom.x[i]);
    index.push_back(static_cast<std::int32_t>(b.size()));
    b.push_back(atom.b);
    one.push_back(1.0);
    radius.push_back(1.7);
    number.push_back(atom.atomic_number);
    zero.push_back(0);
  }
  const auto n = static_cast<std::int32_t>(s.atoms.size());
  check(qx_add_xmodel_entry(n, x[0].data(), x[1].data(), x[2].data(), number.data(), zero.data(),
                            zero.data(), index.data(), n, 0, b.data(), nullptr, one.data(),
                            zero.data(), radius.data()) == ok,
        "no model");
  section({"xmol", "xend"});
  check(qx_make_molformfact() == ok && qx_new_qxexptab() == ok && qx_update_qxradcut() == ok,
        "no radii");
}

inline double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace qx::bench
