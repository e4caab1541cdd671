// The crystal container and its two smallest members.
#pragma once

#include <quorix/crystal.h>

struct qxrefdata;
struct qxcell;
struct qxrecicell;
struct qxspg;
struct qxasu;

// Resolution limits in Angstrom; high is the smaller d.
struct qxresol {
  double high = 0.0;
  double low = 99999.0;
};

// Rejection thresholds; a cut is in force when above 0.
struct qxrefreject {
  double f_sigma = 0.0;    // lowest |F|/sigma
  double f_rms = 0.0;      // highest |F| in units of the rms amplitude
  double f_minimum = 0.0;  // lowest F
  double i_sigma = 0.0;
  double i_rms = 0.0;
};

struct qxxcry {
  qxrefdata* refdata = nullptr;
  qxcell* cell = nullptr;
  qxrecicell* recicell = nullptr;
  qxspg* spg = nullptr;
  qxresol* resol = nullptr;
  qxrefreject* refreject = nullptr;
  qxasu* asu = nullptr;
};
