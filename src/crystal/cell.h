// Records of the real and the reciprocal cell. Lengths in Angstrom, angles in degrees, matrices
// row-major, tensors in the order U11 U22 U33 U12 U13 U23.
#pragma once

#include <quorix/cell.h>

struct qxcell {
  double a = 0, b = 0, c = 0, alpha = 0, beta = 0, gamma = 0;
  double cos_alpha = 0, cos_beta = 0, cos_gamma = 0;
  double sin_alpha = 0, sin_beta = 0, sin_gamma = 0;
  double delta = 0, delta_complement = 0;  // V / (a b c sin alpha) and sqrt(1 - delta^2)
  double omega = 0, omega_complement = 0;  // the same with sin beta
  double theta = 0, theta_complement = 0;  // the same with sin gamma
  double inv_sin_alpha = 0, inv_sin_beta = 0, inv_sin_gamma = 0;
  double volume = 0;
  double metric[9] = {};  // G
  double volume_squared = 0;
  double metric_tensor[36] = {};  // R^T U R matrix of G
  double orth2frac[16] = {};
  double frac2orth[16] = {};
  double standard_frac2orth[9] = {};  // F0
  double standard_orth2frac[9] = {};  // its inverse
  double q_inverse[9] = {};
  double q[9] = {};                  // F0 x rotation of orth2frac
  double orth2frac_tensor[36] = {};  // R U R^T of the rotation of orth2frac
  double frac2orth_tensor[36] = {};  // R U R^T of the rotation of frac2orth
  double q_tensor[36] = {};          // R^T U R of Q
  double q_inverse_tensor[36] = {};  // R^T U R of Q^-1
  bool user_matrix = false;  // orth2frac was given; a computed default is replaced by every check
};

struct qxrecicell {
  double a = 0, b = 0, c = 0, alpha = 0, beta = 0, gamma = 0;  // 1/Angstrom, degrees
  double cos_alpha = 0, cos_beta = 0, cos_gamma = 0;
  double sin_alpha = 0, sin_beta = 0, sin_gamma = 0;  // Kept: sines of degrees taken as radians
  double volume = 0;
  double metric[9] = {};
  double volume_squared = 0;
  double metric_tensor[36] = {};  // R U R^T matrix of G*
  // 1/d^2 = h^2 c[0] + k^2 c[1] + l^2 c[2] + hk c[3] + hl c[4] + kl c[5]
  double resolution[6] = {};
};
