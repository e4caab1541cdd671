// The record of the Wilson statistics.
#pragma once

#include "stats/intensities.h"
#include "stats/wilson.h"

#include <quorix/wilson.h>

struct qxwilson {
  std::int32_t nbin = 40;
  double high = 0.0, low = 4.0;  // Angstrom
  bool plotted = false;
  bool from_model = false;  // the sum of f^2 is the model's
  qx::WilsonPlot plot;
  qx::Moments acentric, centric;
  qx::LTest twin;
  bool has_directions = false;  // the next two are known
  double b_cart[6] = {};        // of the anisotropy, without its mean, Angstrom^2
  double spread = 0.0;          // between its principal values
  std::int32_t namplitudes = 0, nleft_out = 0;
};
