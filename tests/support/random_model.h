// Random structures: atoms for the engine's model, and the plain sum over them.
#pragma once

#include <array>
#include <complex>
#include <cstdint>
#include <string>
#include <vector>

namespace qx::test {

struct TestAtom {
  std::array<double, 3> fractional;
  int atomic_number = 6;
  int charge = 0;
  double occupancy = 1.0;
  double b = 20.0;
  bool aniso = false;
  std::array<double, 6> u{};  // U11 U22 U33 U12 U13 U23, orthogonal frame, Angstrom^2
};

// Atoms strewn over the cell: C, N, O, S, ions, partial occupancies, some outside the cell and at
// its corners; every third anisotropic if wanted.
std::vector<TestAtom> random_atoms(int n, bool with_aniso, unsigned seed);

// Runs an xcry section with cell and group, then gives the data set all indices to dmin on one half
// of reciprocal space, at most `most` of them chosen at random.
void set_up_crystal(const std::string& group, const std::string& cell, double dmin, int most);

// Appends the atoms to the engine's model as an entry; mass numbers tell deuterium.
void add_model_entry(const std::vector<TestAtom>& atoms,
                     const std::vector<std::int32_t>& mass = {});
// The same between xmod and xmol: the atoms are all of the model.
void set_up_model(const std::vector<TestAtom>& atoms, const std::vector<std::int32_t>& mass = {});

// F of every reflection of the data set: the sum over operators and atoms, form factors read from
// the data files by this code alone.
std::vector<std::complex<double>> direct_sum(const std::vector<TestAtom>& atoms,
                                             bool two_gaussians = true);

// The same with a constant scattering length for each atom.
std::vector<std::complex<double>> direct_sum(const std::vector<TestAtom>& atoms,
                                             const std::vector<double>& lengths);

// What the engine calculated.
std::vector<std::complex<double>> engine_sum();

// sum |F1 - F2| / sum |F1| over complex F.
double vector_r(const std::vector<std::complex<double>>& reference,
                const std::vector<std::complex<double>>& other);

}  // namespace qx::test
