#include "model/spread.h"

#include "model/spread_rows.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

// Points on each side of a comb's middle.
std::int32_t comb_reach(double radius, double step) noexcept {
  return static_cast<std::int32_t>(std::ceil(radius / step)) + 2;
}

// Values of up to five Gaussians at equal steps along one axis, for one offset at a time.
class Comb {
 public:
  // `memory` holds size() doubles per comb: the T of each Gaussian, then its values.
  static std::size_t size(double radius, double step) noexcept {
    const auto reach = static_cast<std::size_t>(comb_reach(radius, step));
    return most_gaussians * ((reach + 1) + (2 * reach + 1));
  }

  void prepare(std::int32_t n, const double* exponents, double radius, double step,
               double*& memory) noexcept {
    n_ = n;
    step_ = step;
    reach_ = comb_reach(radius, step);
    filled_ = false;
    for (std::int32_t i = 0; i < n; ++i) {
      exponent_[i] = exponents[i];
      steps_[i] = memory;
      memory += reach_ + 1;
      values_[i] = memory;
      memory += 2 * reach_ + 1;
      used_[i] = fill_steps(exponents[i], step, steps_[i]);
    }
  }

  // The same Gaussians and steps as another comb, whose tables are shared.
  void prepare_like(const Comb& other, double*& memory) noexcept {
    *this = other;
    filled_ = false;
    for (std::int32_t i = 0; i < n_; ++i) {
      values_[i] = memory;
      memory += 2 * reach_ + 1;
    }
  }

  // Makes the comb stand for coordinates index * step + offset.
  void place(double offset) noexcept {
    const double nearest = std::nearbyint(-offset / step_);
    const double x0 = nearest * step_ + offset;
    first_ = static_cast<std::int32_t>(nearest) - reach_;
    if (filled_ && std::fabs(x0 - x0_) < 1e-11 * step_) return;
    filled_ = true;
    x0_ = x0;
    for (std::int32_t i = 0; i < n_; ++i) fill(exponent_[i], steps_[i], used_[i], values_[i]);
  }

  [[nodiscard]] bool stands_for(double offset) const noexcept {
    const double x0 = std::nearbyint(-offset / step_) * step_ + offset;
    return filled_ && std::fabs(x0 - x0_) < 1e-11 * step_;
  }
  // Values of the i-th Gaussian from an index of the grid line on.
  [[nodiscard]] const double* values(std::int32_t i, std::int32_t index) const noexcept {
    return values_[i] + (index - first_);
  }

 private:
  // Where T falls below this, a sharp Gaussian is nothing and exp(-2 E s x0)^m may be infinite.
  static constexpr double smallest_step = 1e-290;

  // T[m+1] = T[m] w^(2m+1), w = exp(-E s^2); the last m that counts.
  [[nodiscard]] std::int32_t fill_steps(double exponent, double step,
                                        double* __restrict__ steps) const noexcept {
    const double w = std::exp(-exponent * step * step);
    const double change = w * w;
    double ratio = w;
    double t = 1.0;
    for (std::int32_t m = 0; m <= reach_; ++m) {
      steps[m] = t;
      t *= ratio;
      ratio *= change;
    }
    std::int32_t used = reach_;
    while (used > 0 && !(steps[used] > smallest_step)) --used;
    return used;
  }

  void fill(double exponent, const double* steps, std::int32_t used,
            double* values) const noexcept {
    const double up = std::exp(-2.0 * exponent * step_ * x0_);
    const double down = 1.0 / up;
    double* middle = values + reach_;
    double left = std::exp(-exponent * x0_ * x0_);
    double right = left;
    *middle = left;
    for (std::int32_t m = 1; m <= used; ++m) {
      right *= up;
      left *= down;
      middle[m] = right * steps[m];
      middle[-m] = left * steps[m];
    }
    for (std::int32_t m = used + 1; m <= reach_; ++m) middle[m] = middle[-m] = 0.0;
  }

  std::int32_t n_ = 0, reach_ = 0, first_ = 0;
  double step_ = 0, x0_ = 0;
  bool filled_ = false;
  double exponent_[most_gaussians];
  std::int32_t used_[most_gaussians];  // last step whose T counts
  double* steps_[most_gaussians];
  double* values_[most_gaussians];
};

// Two combs along x: in hexagonal cells neighbouring rows alternate between two offsets.
class RowCombs {
 public:
  void prepare(const Gaussians& atom, double radius, double step, double*& memory) noexcept {
    combs_[0].prepare(atom.n, atom.exponent, radius, step, memory);
    combs_[1].prepare_like(combs_[0], memory);
  }
  const Comb& at(double offset) noexcept {
    if (std::fabs(offset - offset_) < 1e-11) return combs_[last_];
    offset_ = offset;
    if (!combs_[last_].stands_for(offset)) last_ = 1 - last_;
    combs_[last_].place(offset);
    return combs_[last_];
  }

 private:
  Comb combs_[2];
  std::int32_t last_ = 0;
  double offset_ = 1e300;  // Angstrom, of the row before
};

template <std::int32_t N>
void add_row(double* __restrict__ row, IndexRange ix, const Comb& comb,
             const double* factor) noexcept {
  const double* g[N];
  for (std::int32_t i = 0; i < N; ++i) g[i] = comb.values(i, ix.first);
  row += ix.first;
  const std::int32_t n = ix.last - ix.first + 1;
  for (std::int32_t x = 0; x < n; ++x) {
    double sum = factor[0] * g[0][x];
    for (std::int32_t i = 1; i < N; ++i) sum += factor[i] * g[i][x];
    row[x] += sum;
  }
}

void add_row(std::int32_t n, double* row, IndexRange ix, const Comb& comb,
             const double* factor) noexcept {
  switch (n) {
    case 1:
      return add_row<1>(row, ix, comb, factor);
    case 2:
      return add_row<2>(row, ix, comb, factor);
    case 3:
      return add_row<3>(row, ix, comb, factor);
    case 4:
      return add_row<4>(row, ix, comb, factor);
    default:
      return add_row<5>(row, ix, comb, factor);
  }
}

}  // namespace

std::size_t spread_scratch_size(const SpreadGrid& grid, double radius) noexcept {
  return 2 * Comb::size(radius, grid.ax) + Comb::size(radius, grid.by);
}

void spread_iso(const SpreadGrid& grid, const Gaussians& atom, const double centre[3],
                double radius, double* scratch) noexcept {
  const IndexRange planes = planes_within(grid, centre, radius);
  if (planes.last < planes.first) return;  // between the planes of a sub-box
  RowCombs along_x;
  Comb along_y;
  along_x.prepare(atom, radius, grid.ax, scratch);
  along_y.prepare(atom.n, atom.exponent, radius, grid.by, scratch);
  double layer_factor[most_gaussians];
  for_each_row(
      grid, centre, radius,
      [&](double z, double y_offset) {
        along_y.place(y_offset);
        for (std::int32_t i = 0; i < atom.n; ++i) {
          layer_factor[i] = atom.amplitude[i] * std::exp(-atom.exponent[i] * z * z);
        }
      },
      [&](const SphereRow& row) {
        double factor[most_gaussians];
        for (std::int32_t i = 0; i < atom.n; ++i) {
          factor[i] = layer_factor[i] * *along_y.values(i, row.iy);
        }
        add_row(atom.n, grid.row(row.plane, row.iy), row.ix, along_x.at(row.x_offset), factor);
      });
}

namespace {

// Adds factor exp(-E (x + w)^2) along a row, x = ix * step + offset, outwards from the row's
// highest value: ratios of neighbours change by a constant.
void add_shifted(double* row, IndexRange ix, double exponent, double step, double offset,
                 double factor) noexcept {
  const double nearest = std::clamp(std::nearbyint(-offset / step), static_cast<double>(ix.first),
                                    static_cast<double>(ix.last));
  const double x0 = nearest * step + offset;
  const auto middle = static_cast<std::int32_t>(nearest);
  const double top = factor * std::exp(-exponent * x0 * x0);
  const double change = std::exp(-2.0 * exponent * step * step);
  double ratio = std::exp(-exponent * step * (step + 2.0 * x0));
  double value = top;
  row[middle] += top;
  for (std::int32_t i = middle + 1; i <= ix.last; ++i, ratio *= change) row[i] += value *= ratio;
  ratio = std::exp(-exponent * step * (step - 2.0 * x0));
  value = top;
  for (std::int32_t i = middle - 1; i >= ix.first; --i, ratio *= change) row[i] += value *= ratio;
}

}  // namespace

void spread_aniso(const SpreadGrid& grid, const AnisoGaussians& atom, const double centre[3],
                  double radius) noexcept {
  for_each_row(
      grid, centre, radius, [](double, double) {},
      [&](const SphereRow& row) {
        double* values = grid.row(row.plane, row.iy);
        const double y = row.y;
        const double z = row.z;
        for (std::int32_t i = 0; i < atom.n; ++i) {
          // The square completed along x: P11 (x + w)^2 + c.
          const double(&p)[6] = atom.precision[i];
          const double w = (p[3] * y + p[4] * z) / p[0];
          const double c = p[1] * y * y + p[2] * z * z + 2.0 * p[5] * y * z - p[0] * w * w;
          add_shifted(values, row.ix, 0.5 * p[0], grid.ax, row.x_offset + w,
                      atom.amplitude[i] * std::exp(-0.5 * c));
        }
      });
}

void moments_aniso(const SpreadGrid& grid, const AnisoGaussians& atom, const double centre[3],
                   double radius, double (*moments)[10]) noexcept {
  for_each_row(
      grid, centre, radius, [](double, double) {},
      [&](const SphereRow& row) {
        const double* map = grid.row(row.plane, row.iy);
        const double y = row.y;
        const double z = row.z;
        for (std::int32_t ix = row.ix.first; ix <= row.ix.last; ++ix) {
          const double x = ix * grid.ax + row.x_offset;
          const double basis[10] = {1, x, y, z, x * x, y * y, z * z, x * y, x * z, y * z};
          for (std::int32_t i = 0; i < atom.n; ++i) {
            const double(&p)[6] = atom.precision[i];
            const double q = p[0] * basis[4] + p[1] * basis[5] + p[2] * basis[6] +
                             2.0 * (p[3] * basis[7] + p[4] * basis[8] + p[5] * basis[9]);
            const double weight = map[ix] * atom.amplitude[i] * std::exp(-0.5 * q);
            for (std::int32_t j = 0; j < 10; ++j) moments[i][j] += weight * basis[j];
          }
        }
      });
}

}  // namespace qx
