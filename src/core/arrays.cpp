// Row-pointer arrays: three templates, and the named routines over them.
#include "core/report.h"
#include "core/tagged.h"

#include <quorix/memory.h>

#include <algorithm>

namespace {

using qx::allocate;
using qx::ok;
using qx::Status;
using Count = std::int32_t;

std::size_t positive(Count n) { return n > 0 ? static_cast<std::size_t>(n) : 0; }

// n0 * n1 * n2, or the largest size there is: the allocator reports that as a failure.
std::size_t product(Count n0, Count n1, Count n2 = 1) {
  const std::size_t n = positive(n0) * positive(n1);
  std::size_t all = 0;
  return __builtin_mul_overflow(n, positive(n2), &all) ? SIZE_MAX : all;
}

template <class T>
T** open_matrix(Count nrows, Count ncols, const char* tag) {
  T** rows = allocate<T*>(positive(nrows), tag);
  if (!rows || nrows < 1) return rows;
  T* data = allocate<T>(product(nrows, ncols), tag);
  if (!data && ncols > 0) return nullptr;
  for (Count i = 0; i < nrows; ++i) {
    rows[i] = data ? data + static_cast<std::ptrdiff_t>(i) * ncols : nullptr;
  }
  return rows;
}

// Kept: the data block has room for nrows times the sum of the row lengths. The peak that the
// memory report prints counts it so.
template <class T>
T** open_ragged(Count nrows, const Count* rowlens, const char* tag) {
  T** rows = allocate<T*>(positive(nrows), tag);
  if (!rows) {
    if (nrows < 1) (void)xmalloc(0, tag);
    return nullptr;
  }
  std::size_t sum = 0;
  for (Count i = 0; i < nrows; ++i) sum += positive(rowlens[i]);
  std::size_t elements = 0;
  if (__builtin_mul_overflow(sum, positive(nrows), &elements)) elements = SIZE_MAX;
  T* data = allocate<T>(elements, tag);
  if (!data && elements > 0) return nullptr;
  for (Count i = 0; i < nrows; ++i) {
    rows[i] = data;
    if (data) data += positive(rowlens[i]);
  }
  return rows;
}

template <class T>
T*** open_3d(Count nsec, Count nrow, Count ncol, const char* tag) {
  T*** planes = allocate<T**>(positive(nsec), tag);
  if (!planes || nsec < 1) return planes;
  T** rows = allocate<T*>(product(nsec, nrow), tag);
  if (!rows && nrow > 0) return nullptr;
  T* data = allocate<T>(product(nsec, nrow, ncol), tag);
  if (!data && nrow > 0 && ncol > 0) return nullptr;
  for (Count i = 0; i < nsec; ++i) {
    const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(i) * nrow;
    planes[i] = rows ? rows + first : nullptr;
    for (Count j = 0; j < nrow; ++j) rows[first + j] = data ? data + (first + j) * ncol : nullptr;
  }
  return planes;
}

template <class T>
Status free_matrix(T** rows) {
  if (rows && rows[0]) QX_TRY(xfree(rows[0]));
  return xfree(rows);
}

template <class T>
Status free_3d(T*** planes) {
  if (!planes) return ok;
  T** rows = planes[0];
  if (rows) {
    if (rows[0]) QX_TRY(xfree(rows[0]));
    QX_TRY(xfree(rows));
  }
  return xfree(planes);
}

using Char5 = char[5];
using Int6 = std::int32_t[6];
using Double3 = double[3];

}  // namespace

std::int32_t** xopen_matrix_int(Count nrows, Count ncols, const char* tag) {
  return open_matrix<std::int32_t>(nrows, ncols, tag);
}
double** xopen_matrix_double(Count nrows, Count ncols, const char* tag) {
  return open_matrix<double>(nrows, ncols, tag);
}
char** xopen_matrix_char(Count nrows, Count ncols, const char* tag) {
  return open_matrix<char>(nrows, ncols, tag);
}
std::int16_t** xopen_matrix_shortint(Count nrows, Count ncols, const char* tag) {
  return open_matrix<std::int16_t>(nrows, ncols, tag);
}
char*** xopen_matrix_cptr(Count nrows, Count ncols, const char* tag) {
  return open_matrix<char*>(nrows, ncols, tag);
}
char (**xopen_matrix_char5(Count nrows, Count ncols, const char* tag))[5] {
  return open_matrix<Char5>(nrows, ncols, tag);
}
std::int32_t (**xopen_matrix_int6(Count nrows, Count ncols, const char* tag))[6] {
  return open_matrix<Int6>(nrows, ncols, tag);
}

std::int32_t** xopen_2d_int(Count nrows, const Count* rowlens, const char* tag) {
  return open_ragged<std::int32_t>(nrows, rowlens, tag);
}
double** xopen_2d_double(Count nrows, const Count* rowlens, const char* tag) {
  return open_ragged<double>(nrows, rowlens, tag);
}
char** xopen_2d_char(Count nrows, const Count* rowlens, const char* tag) {
  return open_ragged<char>(nrows, rowlens, tag);
}
char*** xopen_2d_cptr(Count nrows, const Count* rowlens, const char* tag) {
  return open_ragged<char*>(nrows, rowlens, tag);
}
char (**xopen_2d_char5(Count nrows, const Count* rowlens, const char* tag))[5] {
  return open_ragged<Char5>(nrows, rowlens, tag);
}
std::int32_t (**xopen_2d_int6(Count nrows, const Count* rowlens, const char* tag))[6] {
  return open_ragged<Int6>(nrows, rowlens, tag);
}

qx_complex*** xopen_3d_complex(Count nsec, Count nrow, Count ncol, const char* tag) {
  return open_3d<qx_complex>(nsec, nrow, ncol, tag);
}
double (***xopen_3d_double3(Count nsec, Count nrow, Count ncol, const char* tag))[3] {
  return open_3d<Double3>(nsec, nrow, ncol, tag);
}
std::int32_t*** xopen_3d_int(Count nsec, Count nrow, Count ncol, const char* tag) {
  return open_3d<std::int32_t>(nsec, nrow, ncol, tag);
}
std::int16_t*** xopen_3d_short(Count nsec, Count nrow, Count ncol, const char* tag) {
  return open_3d<std::int16_t>(nsec, nrow, ncol, tag);
}
double*** xopen_3d_double(Count nsec, Count nrow, Count ncol, const char* tag) {
  return open_3d<double>(nsec, nrow, ncol, tag);
}
float*** xopen_3d_float(Count nsec, Count nrow, Count ncol, const char* tag) {
  return open_3d<float>(nsec, nrow, ncol, tag);
}
char*** xopen_3d_char(Count nsec, Count nrow, Count ncol, const char* tag) {
  return open_3d<char>(nsec, nrow, ncol, tag);
}
std::int32_t**** xopen_3d_iptr(Count nsec, Count nrow, Count ncol, const char* tag) {
  return open_3d<std::int32_t*>(nsec, nrow, ncol, tag);
}

Status xfree_matrix_int(std::int32_t** rows) { return free_matrix(rows); }
Status xfree_matrix_double(double** rows) { return free_matrix(rows); }
Status xfree_matrix_char(char** rows) { return free_matrix(rows); }
Status xfree_matrix_shortint(std::int16_t** rows) { return free_matrix(rows); }
Status xfree_matrix_cptr(char*** rows) { return free_matrix(rows); }
Status xfree_matrix_char5(char (**rows)[5]) { return free_matrix(rows); }
Status xfree_matrix_int6(std::int32_t (**rows)[6]) { return free_matrix(rows); }

Status xfree_3d_complex(qx_complex*** planes) { return free_3d(planes); }
Status xfree_3d_int(std::int32_t*** planes) { return free_3d(planes); }
Status xfree_3d_short(std::int16_t*** planes) { return free_3d(planes); }
Status xfree_3d_double(double*** planes) { return free_3d(planes); }
Status xfree_3d_double3(double (***planes)[3]) { return free_3d(planes); }
Status xfree_3d_float(float*** planes) { return free_3d(planes); }
Status xfree_3d_char(char*** planes) { return free_3d(planes); }
Status xfree_3d_iptr(std::int32_t**** planes) { return free_3d(planes); }
