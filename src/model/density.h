// Records of the density side.
#pragma once

#include <quorix/density.h>

struct qxexptab {
  std::int32_t n = 0;
  double h = 0.0;
  double* values = nullptr;  // exp(-k h)
};

struct qxradcut {
  double ecut = 0.005;
  double limit = 20.0;
  std::int32_t flag = 1;
  double* radius = nullptr;  // per computed atom
  double largest = -99999.0;
  std::int32_t natom = 0;  // atoms that have a radius
};

struct qxelecden {
  std::int32_t nx = 0, ny = 0, nz = 0;  // points of the box
  double*** density = nullptr;
};
