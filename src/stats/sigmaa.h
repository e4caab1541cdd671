// K. How far a model's structure factors can be trusted, as a function of resolution.
//
// sigmaA(s^2), D = sigmaA sqrt(<Fo^2 / epsilon> / <F^2 / epsilon>) and S = (1 - sigmaA^2) <Fo^2 /
// epsilon>, by maximum likelihood over reflections that the model was not fitted to (Read, Acta
// Cryst. A42, 140, 1986; Lunin & Skovoroda, Acta Cryst. A51, 880, 1995; Murshudov et al., Acta
// Cryst. D53, 240, 1997). sigmaA = 1 / (1 + exp(-p)), p linear in s^2 between nodes, its second
// differences penalised. Amplitudes are on one scale, without what the overall scale takes off.
#pragma once

#include "stats/resolution_curve.h"

#include <cstddef>
#include <cstdint>

namespace qx {

enum LikelihoodMode : std::int32_t { binned_likelihood = 1, continuous_likelihood = 2 };

// Observed reflections; Fo above 0.
struct SigmaaData {
  std::int32_t n = 0;
  const double* fo = nullptr;
  const double* f = nullptr;
  const double* s2 = nullptr;
  const double* epsilon = nullptr;
  const double* sigma = nullptr;  // of Fo; null: errors of measurement do not count
  const std::int16_t* centric = nullptr;
  const std::uint8_t* used = nullptr;  // 1: takes part in the likelihood
};

struct SigmaaModel {
  static constexpr int most_nodes = 20;
  LikelihoodMode mode = continuous_likelihood;
  ResolutionCurve mean_fo, mean_f;  // <Fo^2 / epsilon>, <F^2 / epsilon> over all reflections
  int nnodes = 0;
  double node_s2[most_nodes];
  double p[most_nodes];
};

struct SigmaaAt {
  double sigmaa, d, s;
};
// At a resolution; constant beyond the outermost points.
SigmaaAt sigmaa_at(const SigmaaModel& model, double s2) noexcept;

// Doubles of scratch that fit_sigmaa wants.
std::size_t sigmaa_scratch_size(std::int32_t n) noexcept;

struct SigmaaFit {
  SigmaaModel model;
  double mean_minus_log = 0.0;  // over the reflections used
  int steps = 0;
};

// Runs task(context, part, worker) for every part of 0 .. parts - 1, one after the other or at
// once.
using RunsParts = void (*)(std::int32_t parts,
                           void (*task)(void*, std::int32_t, std::int32_t) noexcept,
                           void* context) noexcept;
void run_in_order(std::int32_t parts, void (*task)(void*, std::int32_t, std::int32_t) noexcept,
                  void* context) noexcept;

// The likelihood is summed in parts, which `run` may take to several threads: the result is the
// same. `nodes` 0: one for a hundred reflections used, 1 to 20. At least one reflection with F
// above 0.
SigmaaFit fit_sigmaa(const SigmaaData& data, LikelihoodMode mode, int nodes, double* scratch,
                     RunsParts run = run_in_order) noexcept;

}  // namespace qx
