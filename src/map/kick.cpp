#include "map/kick.h"

#include "core/constants.h"
#include "core/report.h"
#include "core/tagged.h"
#include "crystal/reflections.h"
#include "model/molsys.h"
#include "scaling/observed.h"
#include "scaling/scale.h"
#include "sf/partition.h"

#include <quorix/cross.h>
#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/scaling.h>
#include <quorix/structfact.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace qx {

namespace {

constexpr const char* here = "qx_generate_map():";

// Coordinates as they were, and the random numbers of their displacements.
class Kicker {
 public:
  Status open(const molsys& system, const qxmap& map) {
    natom_ = system.natom;
    saved_ = Tagged<double>(3 * static_cast<std::size_t>(natom_), "pmk_xyz");
    if (!saved_) return failed;
    const double* axes[3] = {system.x, system.y, system.z};
    for (int i = 0; i < 3; ++i) std::copy_n(axes[i], natom_, saved_.get() + i * natom_);
    // A negative seed starts the generator anew.
    seed_ = map.seed == 0 ? -1 : -std::abs(map.seed);
    sigma_ = map.kick_length / std::sqrt(3.0);
    return ok;
  }
  void displace(molsys& system) {
    double* axes[3] = {system.x, system.y, system.z};
    for (std::int32_t i = 0; i < natom_; ++i) {
      for (int axis = 0; axis < 3; ++axis) axes[axis][i] = saved(axis, i) + sigma_ * normal();
    }
  }
  void restore(molsys& system) const {
    double* axes[3] = {system.x, system.y, system.z};
    for (int i = 0; i < 3; ++i) std::copy_n(saved_.get() + i * natom_, natom_, axes[i]);
  }

 private:
  [[nodiscard]] double saved(int axis, std::int32_t i) const {
    return saved_[static_cast<std::size_t>(axis) * static_cast<std::size_t>(natom_) +
                  static_cast<std::size_t>(i)];
  }
  // Box & Muller, Ann. Math. Stat. 29, 610, 1958.
  double normal() {
    const double u = qx_get_random_double01(&seed_);
    const double v = qx_get_random_double01(&seed_);
    return std::sqrt(-2.0 * std::log(u)) * std::cos(two_pi * v);
  }

  std::int32_t natom_ = 0;
  Tagged<double> saved_;
  std::int32_t seed_ = -1;
  double sigma_ = 0.0;
};

Status calculate_anew(bool weighted) {
  QX_TRY(recalculate_factors(here));
  return weighted ? qx_estimate_likelihood() : ok;
}

void add_polar(std::int32_t n, const double* amplitude, const double* phase, ComplexF& sum) {
  for (std::int32_t i = 0; i < n; ++i) {
    const double angle = phase[i] * pi / 180.0;
    sum.re[static_cast<std::size_t>(i)] += amplitude[i] * std::cos(angle);
    sum.im[static_cast<std::size_t>(i)] += amplitude[i] * std::sin(angle);
  }
}

void mean_polar(std::int32_t n, std::int32_t count, const ComplexF& sum, double* amplitude,
                double* phase) {
  for (std::int32_t i = 0; i < n; ++i) {
    const auto at = static_cast<std::size_t>(i);
    amplitude[i] = sum.amplitude(i) / count;
    const double degrees = std::atan2(sum.im[at], sum.re[at]) * 180.0 / pi;
    phase[i] = degrees < 0.0 ? degrees + 360.0 : degrees;
  }
}

Status check(const qxmap& map) {
  constexpr std::int32_t most = 1000;
  if (map.kick_average < 1 || map.kick_average > most) {
    return fail(here, "The number of kicked maps must lie between 1 and %d: %d ", most,
                map.kick_average);
  }
  if (!std::isfinite(map.kick_length))
    return fail(here, "Invalid kick length %f ", map.kick_length);
  if (!qx_get_molsys()) return fail(here, "molsys object has not been created yet ");
  return ok;
}

}  // namespace

Status kicked_coefficients(const qxmap& map, double* amplitude, double* phase) {
  QX_TRY(check(map));
  const qxrefdata* data = map_refdata();
  if (!data) return failed;
  const std::int32_t n = data->nreflections;
  ComplexF sum;
  QX_TRY(open_f(n, sum));
  std::fill_n(sum.re.get(), n, 0.0);
  std::fill_n(sum.im.get(), n, 0.0);
  molsys* system = qx_get_molsys();
  if (!system) return failed;
  Kicker kicker;
  QX_TRY(kicker.open(*system, map));
  const qxml* before = qx_get_qxml();
  if (!qx_exist_quorix()) return failed;
  const bool weighted = before && before->fitted && map.type != unweighted_map;
  const qxml saved = weighted ? *before : qxml{};
  for (std::int32_t round = 0; round < map.kick_average; ++round) {
    kicker.displace(*system);
    QX_TRY(calculate_anew(weighted));
    QX_TRY(qx_set_map_coef(amplitude, phase));
    add_polar(n, amplitude, phase, sum);
  }
  kicker.restore(*system);
  QX_TRY(recalculate_factors(here));
  qxml* likelihood = qx_get_qxml();
  if (!qx_exist_quorix()) return failed;
  if (weighted && likelihood) *likelihood = saved;
  mean_polar(n, map.kick_average, sum, amplitude, phase);
  return ok;
}

}  // namespace qx
