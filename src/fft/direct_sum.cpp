// The checking twins: direct sums along one axis after the other, for lengths of any kind.
#include "core/tagged.h"
#include "fft/plan.h"

#include <quorix/fft.h>

#include <algorithm>

using qx::ok;
using qx::Status;
using qx::Tagged;

namespace {

constexpr int forward = 1;
constexpr int inverse = -1;

// Transforms lines of n points in place; pointers to their points are put into re[], im[] first.
class Line {
 public:
  explicit Line(std::int32_t n)
      : n_(n),
        re(size(), "pds_pr"),
        im(size(), "pds_pi"),
        cosine_(size(), "pds_c"),
        sine_(size(), "pds_s"),
        x_(2 * size(), "pds_x") {}
  [[nodiscard]] Status prepare() const {
    if (!re || !im || !cosine_ || !sine_ || !x_) return qx::failed;
    for (std::int32_t k = 0; k < n_; ++k) qx::unit_root(k, n_, cosine_[at(k)], sine_[at(k)]);
    return ok;
  }

  void transform(int sign) const {
    for (std::int32_t j = 0; j < n_; ++j) {
      x_[at(2 * j)] = *re[at(j)];
      x_[at(2 * j + 1)] = *im[at(j)];
    }
    for (std::int64_t k = 0; k < n_; ++k) {
      double sum_re = 0;
      double sum_im = 0;
      for (std::int64_t j = 0; j < n_; ++j) {
        const double c = cosine_[at(j * k % n_)];
        const double s = sign * sine_[at(j * k % n_)];
        const double a = x_[at(2 * j)];
        const double b = x_[at(2 * j + 1)];
        sum_re += a * c - b * s;
        sum_im += a * s + b * c;
      }
      *re[at(k)] = sum_re;
      *im[at(k)] = sum_im;
    }
  }

 private:
  static std::size_t at(std::int64_t i) { return static_cast<std::size_t>(i); }
  [[nodiscard]] std::size_t size() const { return at(std::max(n_, 1)); }
  std::int32_t n_;

 public:
  Tagged<double*> re;
  Tagged<double*> im;

 private:
  Tagged<double> cosine_;
  Tagged<double> sine_;
  Tagged<double> x_;
};

// Arrays of three extents; fewer dimensions have leading extents of 1.
struct Extents {
  std::int32_t n0, n1, n2;
};
struct Points {
  double*** re;
  double*** im;
};

// Along axis 0, 1 or 2, all lines.
Status transform_axis(int axis, int sign, Extents n, Points x) {
  const std::int32_t counts[3] = {n.n0, n.n1, n.n2};
  const int b = axis == 0 ? 1 : 0;
  const int c = axis == 2 ? 1 : 2;
  const Line line(counts[axis]);
  QX_TRY(line.prepare());
  std::int32_t i[3];
  for (i[b] = 0; i[b] < counts[b]; ++i[b]) {
    for (i[c] = 0; i[c] < counts[c]; ++i[c]) {
      for (i[axis] = 0; i[axis] < counts[axis]; ++i[axis]) {
        line.re[static_cast<std::size_t>(i[axis])] = x.re[i[0]][i[1]] + i[2];
        line.im[static_cast<std::size_t>(i[axis])] = x.im[i[0]][i[1]] + i[2];
      }
      line.transform(sign);
    }
  }
  return ok;
}

// in.im null: real input.
Status transform(int dimensions, int sign, Extents n, Points in, Points out) {
  for (std::int32_t i = 0; i < n.n0; ++i) {
    for (std::int32_t j = 0; j < n.n1; ++j) {
      std::copy_n(in.re[i][j], n.n2, out.re[i][j]);
      if (in.im) std::copy_n(in.im[i][j], n.n2, out.im[i][j]);
      if (!in.im) std::fill_n(out.im[i][j], n.n2, 0.0);
    }
  }
  for (int axis = 2; axis > 2 - dimensions; --axis) QX_TRY(transform_axis(axis, sign, n, out));
  return ok;
}

Status transform_1d(int sign, std::int32_t n, double* re, double* im, double* out_re,
                    double* out_im) {
  double** rows[] = {&re, &im, &out_re, &out_im};
  return transform(1, sign, {1, 1, n}, {rows, im ? rows + 1 : nullptr}, {rows + 2, rows + 3});
}

Status transform_2d(int sign, std::int32_t n0, std::int32_t n1, double** re, double** im,
                    double** out_re, double** out_im) {
  return transform(2, sign, {1, n0, n1}, {&re, im ? &im : nullptr}, {&out_re, &out_im});
}

// The copy only drops a const: direct sums do not touch their input.
double* unconst(const double* in) { return const_cast<double*>(in); }

}  // namespace

Status qx_forward_cfft_debug(std::int32_t n, double* in_re, double* in_im, double* out_re,
                             double* out_im) {
  return transform_1d(forward, n, in_re, in_im, out_re, out_im);
}
Status qx_inverse_cfft_debug(std::int32_t n, double* in_re, double* in_im, double* out_re,
                             double* out_im) {
  return transform_1d(inverse, n, in_re, in_im, out_re, out_im);
}
Status qx_forward_rfft_debug(std::int32_t n, const double* in, double* /*work*/, double* out_re,
                             double* out_im) {
  return transform_1d(forward, n, unconst(in), nullptr, out_re, out_im);
}
Status qx_inverse_rfft_debug(std::int32_t n, const double* in, double* /*work*/, double* out_re,
                             double* out_im) {
  return transform_1d(inverse, n, unconst(in), nullptr, out_re, out_im);
}
Status qx_forward_two_rfft_debug(std::int32_t n, const double* in_a, const double* in_b,
                                 double* a_re, double* a_im, double* b_re, double* b_im) {
  QX_TRY(transform_1d(forward, n, unconst(in_a), nullptr, a_re, a_im));
  return transform_1d(forward, n, unconst(in_b), nullptr, b_re, b_im);
}
Status qx_inverse_two_rfft_debug(std::int32_t n, const double* in_a, const double* in_b,
                                 double* a_re, double* a_im, double* b_re, double* b_im) {
  QX_TRY(transform_1d(inverse, n, unconst(in_a), nullptr, a_re, a_im));
  return transform_1d(inverse, n, unconst(in_b), nullptr, b_re, b_im);
}
Status qx_forward_cfft_2D_debug(std::int32_t n0, std::int32_t n1, double** in_re, double** in_im,
                                double** out_re, double** out_im) {
  return transform_2d(forward, n0, n1, in_re, in_im, out_re, out_im);
}
Status qx_inverse_cfft_2D_debug(std::int32_t n0, std::int32_t n1, double** in_re, double** in_im,
                                double** out_re, double** out_im) {
  return transform_2d(inverse, n0, n1, in_re, in_im, out_re, out_im);
}
Status qx_forward_rfft_2D_debug(std::int32_t n0, std::int32_t n1, double** in, double** out_re,
                                double** out_im) {
  return transform_2d(forward, n0, n1, in, nullptr, out_re, out_im);
}
Status qx_inverse_rfft_2D_debug(std::int32_t n0, std::int32_t n1, double** in, double** out_re,
                                double** out_im) {
  return transform_2d(inverse, n0, n1, in, nullptr, out_re, out_im);
}
Status qx_forward_cfft_3D_debug(std::int32_t n0, std::int32_t n1, std::int32_t n2, double*** in_re,
                                double*** in_im, double*** out_re, double*** out_im) {
  return transform(3, forward, {n0, n1, n2}, {in_re, in_im}, {out_re, out_im});
}
Status qx_inverse_cfft_3D_debug(std::int32_t n0, std::int32_t n1, std::int32_t n2, double*** in_re,
                                double*** in_im, double*** out_re, double*** out_im) {
  return transform(3, inverse, {n0, n1, n2}, {in_re, in_im}, {out_re, out_im});
}
Status qx_forward_rfft_3D_debug(std::int32_t n0, std::int32_t n1, std::int32_t n2, double*** in,
                                double*** out_re, double*** out_im) {
  return transform(3, forward, {n0, n1, n2}, {in, nullptr}, {out_re, out_im});
}
Status qx_inverse_rfft_3D_debug(std::int32_t n0, std::int32_t n1, std::int32_t n2, double*** in,
                                double*** out_re, double*** out_im) {
  return transform(3, inverse, {n0, n1, n2}, {in, nullptr}, {out_re, out_im});
}
