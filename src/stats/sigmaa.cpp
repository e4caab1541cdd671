#include "stats/sigmaa.h"

#include "stats/likelihood.h"
#include "stats/quasi_newton.h"
#include "stats/scale_bins.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

constexpr int curve_members = 80;  // reflections of a point of the curves, at least

// A likelihood that wants sigmaA at 1 (a model without errors) must not run away.
constexpr double wall = 8.0;
constexpr double wall_strength = 10.0;

double logistic(double p) noexcept { return 1.0 / (1.0 + std::exp(-p)); }

// Curves of <Fo^2 / epsilon> and <F^2 / epsilon>; `values` has room for all reflections.
void draw_curves(const SigmaaData& data, std::int32_t* order, double* values,
                 SigmaaModel& model) noexcept {
  order_by_s2(data.n, data.s2, order);
  const auto draw = [&](const double* f) noexcept {
    for (std::int32_t i = 0; i < data.n; ++i) values[i] = f[i] * f[i] / data.epsilon[i];
    return draw_ordered_curve(data.n, data.s2, values, curve_members, order);
  };
  model.mean_fo = draw(data.fo);
  model.mean_f = draw(data.f);
}

struct Means {
  double fo, f;
  [[nodiscard]] double ratio() const noexcept { return std::sqrt(fo / f); }
};

// Both curves have their points at the same places.
Means means_at(const SigmaaModel& model, double s2) noexcept {
  const ResolutionCurve& fo = model.mean_fo;
  const Between at = between(fo.n, fo.s2, s2);
  const auto value = [&](const ResolutionCurve& curve) noexcept {
    if (curve.n < 2) return std::exp(curve.log_mean[0]);
    return std::exp((1.0 - at.t) * curve.log_mean[at.i] + at.t * curve.log_mean[at.i + 1]);
  };
  return {value(fo), value(model.mean_f)};
}

// ---- likelihood over the reflections used, packed into the scratch

struct Used {
  double fo, f, epsilon, errors, mean_fo, ratio, weight;  // weight of the node above
  std::int32_t node;
  std::int32_t centric;
};
constexpr std::size_t doubles_each = sizeof(Used) / sizeof(double);
static_assert(sizeof(Used) % sizeof(double) == 0);

int node_count(std::int32_t used, int nodes) noexcept {
  if (nodes < 1) nodes = static_cast<int>(used / 100);
  return std::clamp(nodes, 1, SigmaaModel::most_nodes);
}

// Equal steps of s^2 over the whole range; of bins, their middles.
void place_nodes(const SigmaaData& data, int nodes, SigmaaModel& model) noexcept {
  const auto [low, high] = std::minmax_element(data.s2, data.s2 + data.n);
  model.nnodes = nodes;
  const bool bins = model.mode == binned_likelihood;
  const double step = (*high - *low) / (bins ? nodes : std::max(nodes - 1, 1));
  for (int i = 0; i < nodes; ++i) model.node_s2[i] = *low + (bins ? i + 0.5 : i) * step;
  std::fill_n(model.p, nodes, 2.0);
}

// The nodes on both sides of a reflection, or the nearest alone where bins are asked for.
Between position(const SigmaaModel& model, double s2) noexcept {
  Between at = between(model.nnodes, model.node_s2, s2);
  if (model.mode == binned_likelihood) {
    if (at.t >= 0.5) ++at.i;
    at.t = 0.0;
  }
  return at;
}

std::int32_t pack(const SigmaaData& data, const SigmaaModel& model, Used* out) noexcept {
  std::int32_t n = 0;
  for (std::int32_t i = 0; i < data.n; ++i) {
    if (!data.used[i]) continue;
    const Between at = position(model, data.s2[i]);
    const Means means = means_at(model, data.s2[i]);
    const bool centric = data.centric[i] != 0;
    const double sigma = data.sigma ? data.sigma[i] : 0.0;
    out[n++] = {data.fo[i],
                data.f[i],
                data.epsilon[i],
                (centric ? 1.0 : 2.0) * sigma * sigma,
                means.fo,
                means.ratio(),
                at.t,
                at.i,
                centric ? 1 : 0};
  }
  return n;
}

// -log P of one reflection; the derivative by p at its place goes to the nodes.
double add_reflection(const Used& r, const double* p, double* gradient) noexcept {
  const double at =
      r.weight > 0.0 ? (1.0 - r.weight) * p[r.node] + r.weight * p[r.node + 1] : p[r.node];
  const double sigmaa = logistic(at);
  const double s = (1.0 - sigmaa * sigmaa) * r.mean_fo;
  const Conditional c = {r.fo, sigmaa * r.ratio * r.f, r.epsilon * s + r.errors, r.centric != 0};
  const double m = c.fom();
  const double by_sigmaa =
      c.by_df(m) * r.ratio * r.f - c.by_v(m) * r.epsilon * 2.0 * sigmaa * r.mean_fo;
  const double by_p = by_sigmaa * sigmaa * (1.0 - sigmaa);
  gradient[r.node] += (1.0 - r.weight) * by_p;
  if (r.weight > 0.0) gradient[r.node + 1] += r.weight * by_p;
  return c.minus_log();
}

// Reflections of a part, whose sum and gradient are made in order, by one thread.
constexpr std::int32_t part_size = 256;

struct PartSum {
  double value;
  double gradient[SigmaaModel::most_nodes];
};
constexpr std::size_t doubles_of_sum = sizeof(PartSum) / sizeof(double);

std::int32_t parts_of(std::int32_t n) noexcept { return (n + part_size - 1) / part_size; }

struct Likelihood {
  const Used* used;
  std::int32_t n;
  PartSum* sums;
  const double* p = nullptr;

  static void add_part(void* self, std::int32_t part, std::int32_t) noexcept {
    const auto& all = *static_cast<const Likelihood*>(self);
    PartSum sum = {};
    const std::int32_t last = std::min(all.n, (part + 1) * part_size);
    for (std::int32_t i = part * part_size; i < last; ++i) {
      sum.value += add_reflection(all.used[i], all.p, sum.gradient);
    }
    all.sums[part] = sum;
  }

  // -log P of all, at p; the derivatives are added to the gradient.
  double add(RunsParts run, const double* at, int nodes, double* gradient) noexcept {
    p = at;
    run(parts_of(n), add_part, this);
    double value = 0.0;
    for (std::int32_t part = 0; part < parts_of(n); ++part) {
      value += sums[part].value;
      for (int i = 0; i < nodes; ++i) gradient[i] += sums[part].gradient[i];
    }
    return value;
  }
};

// Sum of squared second differences, for the continuous form, and the wall on both sides.
double add_penalty(const SigmaaModel& model, const double* p, double* gradient) noexcept {
  double penalty = 0.0;
  const int n = model.nnodes;
  for (int i = 0; i + 2 < n && model.mode == continuous_likelihood; ++i) {
    const double d = p[i] - 2.0 * p[i + 1] + p[i + 2];
    penalty += d * d;
    gradient[i] += 2.0 * d;
    gradient[i + 1] -= 4.0 * d;
    gradient[i + 2] += 2.0 * d;
  }
  for (int i = 0; i < n; ++i) {
    const double beyond = std::fabs(p[i]) - wall;
    if (beyond <= 0.0) continue;
    penalty += wall_strength * beyond * beyond;
    gradient[i] += std::copysign(2.0 * wall_strength * beyond, p[i]);
  }
  return penalty;
}

}  // namespace

SigmaaAt sigmaa_at(const SigmaaModel& model, double s2) noexcept {
  const auto at_p = [&](double place, double p) noexcept -> SigmaaAt {
    const double sigmaa = logistic(p);
    const Means means = means_at(model, place);
    return {sigmaa, sigmaa * means.ratio(), (1.0 - sigmaa * sigmaa) * means.fo};
  };
  if (model.mode == continuous_likelihood || model.nnodes < 2) {
    return at_p(s2, interpolate(model.nnodes, model.node_s2, model.p, s2));
  }
  const Between at = between(model.nnodes, model.node_s2, s2);
  const SigmaaAt low = at_p(model.node_s2[at.i], model.p[at.i]);
  const SigmaaAt high = at_p(model.node_s2[at.i + 1], model.p[at.i + 1]);
  const auto mix = [&](double a, double b) noexcept { return (1.0 - at.t) * a + at.t * b; };
  return {mix(low.sigmaa, high.sigmaa), mix(low.d, high.d), mix(low.s, high.s)};
}

std::size_t sigmaa_scratch_size(std::int32_t n) noexcept {
  return (doubles_each + 1) * static_cast<std::size_t>(n) +
         doubles_of_sum * static_cast<std::size_t>(parts_of(n));
}

void run_in_order(std::int32_t parts, void (*task)(void*, std::int32_t, std::int32_t) noexcept,
                  void* context) noexcept {
  for (std::int32_t part = 0; part < parts; ++part) task(context, part, 0);
}

SigmaaFit fit_sigmaa(const SigmaaData& data, LikelihoodMode mode, int nodes, double* scratch,
                     RunsParts run) noexcept {
  SigmaaFit result;
  SigmaaModel& model = result.model;
  model.mode = mode;
  auto* order = reinterpret_cast<std::int32_t*>(scratch);
  draw_curves(data, order, scratch + data.n, model);
  auto* used = reinterpret_cast<Used*>(scratch + data.n);
  const auto count = static_cast<std::int32_t>(std::count(data.used, data.used + data.n, 1));
  place_nodes(data, node_count(count, nodes), model);
  const std::int32_t n = pack(data, model, used);
  auto* sums = reinterpret_cast<PartSum*>(used + data.n);
  Likelihood likelihood = {used, n, sums};
  const MinimumEnd end =
      minimise(model.nnodes, model.p, 100, 1e-9, [&](const double* p, double* gradient) noexcept {
        std::fill_n(gradient, model.nnodes, 0.0);
        const double penalty = add_penalty(model, p, gradient);
        return penalty + likelihood.add(run, p, model.nnodes, gradient);
      });
  result.mean_minus_log = n > 0 ? end.value / n : 0.0;
  result.steps = end.steps;
  return result;
}

}  // namespace qx
