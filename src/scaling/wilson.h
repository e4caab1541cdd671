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
  std::int32_t namplitudes = 0, nleft_out = 0;
};
