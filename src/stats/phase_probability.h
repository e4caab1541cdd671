// K. Phase probabilities as Hendrickson-Lattman coefficients: P(phi) ~ exp(A cos phi + B sin phi +
// C cos 2 phi + D sin 2 phi) (Hendrickson & Lattman, Acta Cryst. B26, 136, 1970).
#pragma once

namespace qx {

struct HendricksonLattman {
  double a = 0.0, b = 0.0, c = 0.0, d = 0.0;
};

inline HendricksonLattman operator+(const HendricksonLattman& p,
                                    const HendricksonLattman& q) noexcept {
  return {p.a + q.a, p.b + q.b, p.c + q.c, p.d + q.d};
}

// The unimodal distribution of a phase (radians) with figure of merit m, 0 <= m < 1 (more counts as
// 0.9999): of an acentric reflection by the inverse of I1/I0, of a centric one by atanh.
HendricksonLattman unimodal(double phase, double m, bool centric) noexcept;
// The same with the argument of the Bessel functions itself.
HendricksonLattman unimodal_with(double phase, double x) noexcept;

// Mean of exp(i phi): its length is the figure of merit.
struct PhaseCentroid {
  double re, im;
};
// In steps of 5 degrees; of a centric reflection the two values `phase` and phase + pi alone.
PhaseCentroid centroid(const HendricksonLattman& p) noexcept;
PhaseCentroid centric_centroid(const HendricksonLattman& p, double phase) noexcept;

}  // namespace qx
