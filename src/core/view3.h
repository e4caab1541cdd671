// K. A three-dimensional array over one contiguous block, last index fastest.
#pragma once

#include <cstddef>

namespace qx {

template <class T>
struct View3 {
  T* data = nullptr;
  std::ptrdiff_t n0 = 0, n1 = 0, n2 = 0;  // extents, slowest first: [z][y][x] has nz, ny, nx

  [[nodiscard]] T* row(std::ptrdiff_t i, std::ptrdiff_t j) const noexcept {
    return data + (i * n1 + j) * n2;
  }
  T& operator()(std::ptrdiff_t i, std::ptrdiff_t j, std::ptrdiff_t k) const noexcept {
    return row(i, j)[k];
  }
  [[nodiscard]] std::ptrdiff_t size() const noexcept { return n0 * n1 * n2; }
};

// The view of an array that xopen_3d_* gave.
template <class T>
View3<T> view3(T*** planes, std::ptrdiff_t n0, std::ptrdiff_t n1, std::ptrdiff_t n2) noexcept {
  return {planes && planes[0] ? planes[0][0] : nullptr, n0, n1, n2};
}

}  // namespace qx
