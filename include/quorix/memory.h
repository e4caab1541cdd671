// Tagged memory: every block of the engine is registered under a short owner label and counted.
// A monitor exists as long as the root does; when it goes, every block still registered goes too.
#pragma once

#include <quorix/api.h>

typedef struct qxmemmonitor qxmemmonitor;

QX_C_BEGIN

// Creation and deletion of the monitor (done by the root). Deleting releases every live block.
QX_API qx_status qx_new_qxmemmonitor(void);
QX_API void qx_delete_qxmemmonitor(void);

// A new uninitialised block of `size` bytes, aligned for any type. Size 0 prints a line and gives
// null without dying; a request that cannot be had is reported, the engine dies, null comes back.
QX_API void* xmalloc(size_t size, const char* tag);
// Releases a block that xmalloc gave. Null prints a line and is ok; an unknown address is fatal.
QX_API qx_status xfree(void* block);
// Always moves: new block, min(oldsize, newsize) bytes copied, old block released.
QX_API void* xrealloc(void* block, size_t oldsize, size_t newsize, const char* tag);
// 1 if `block` is the start of a registered block, else 0.
QX_API int32_t do_we_open_this_ptr(const void* block);

// Live and peak bytes in megabytes of 10^6 bytes; 0 without a monitor.
QX_API double qx_get_xmalloc_memory_size(void);
QX_API double qx_get_max_memory_size(void);
// Lists tag, address and size of every registered block on standard output.
QX_API void qx_print_xmalloc_memory(void);

// Blocks of 16 kB and more that go are kept for who asks next, on any thread, up to so many
// megabytes of the process in all (0, as it begins: none). Who makes one small map after another is
// spared that the system takes the same pages and clears them each time.
QX_API void qx_keep_memory(double megabytes);
// Ends a block that has left an engine as free() does, but keeps it as well.
QX_API void qx_end_block(void* block);

// Row-pointer arrays over one contiguous data block: a[i][j] is element i * ncols + j. Two blocks
// each, both under `tag`. Null after a failure (engine gone) or for nrows = 0.
QX_API int32_t** xopen_matrix_int(int32_t nrows, int32_t ncols, const char* tag);
QX_API double** xopen_matrix_double(int32_t nrows, int32_t ncols, const char* tag);
QX_API char** xopen_matrix_char(int32_t nrows, int32_t ncols, const char* tag);
QX_API int16_t** xopen_matrix_shortint(int32_t nrows, int32_t ncols, const char* tag);
QX_API char*** xopen_matrix_cptr(int32_t nrows, int32_t ncols, const char* tag);
QX_API char (**xopen_matrix_char5(int32_t nrows, int32_t ncols, const char* tag))[5];
QX_API int32_t (**xopen_matrix_int6(int32_t nrows, int32_t ncols, const char* tag))[6];

// Ragged arrays: row i has rowlens[i] elements and starts where row i - 1 ends.
QX_API int32_t** xopen_2d_int(int32_t nrows, const int32_t* rowlens, const char* tag);
QX_API double** xopen_2d_double(int32_t nrows, const int32_t* rowlens, const char* tag);
QX_API char** xopen_2d_char(int32_t nrows, const int32_t* rowlens, const char* tag);
QX_API char*** xopen_2d_cptr(int32_t nrows, const int32_t* rowlens, const char* tag);
QX_API char (**xopen_2d_char5(int32_t nrows, const int32_t* rowlens, const char* tag))[5];
QX_API int32_t (**xopen_2d_int6(int32_t nrows, const int32_t* rowlens, const char* tag))[6];

// Three-dimensional arrays: a[i][j][k] is element (i * nrow + j) * ncol + k. Three blocks each:
// plane pointers, row pointers, data.
typedef struct qx_complex {
  double re, im;
} qx_complex;
QX_API qx_complex*** xopen_3d_complex(int32_t nsec, int32_t nrow, int32_t ncol, const char* tag);
QX_API double (***xopen_3d_double3(int32_t nsec, int32_t nrow, int32_t ncol, const char* tag))[3];
QX_API int32_t*** xopen_3d_int(int32_t nsec, int32_t nrow, int32_t ncol, const char* tag);
QX_API int16_t*** xopen_3d_short(int32_t nsec, int32_t nrow, int32_t ncol, const char* tag);
QX_API double*** xopen_3d_double(int32_t nsec, int32_t nrow, int32_t ncol, const char* tag);
QX_API float*** xopen_3d_float(int32_t nsec, int32_t nrow, int32_t ncol, const char* tag);
QX_API char*** xopen_3d_char(int32_t nsec, int32_t nrow, int32_t ncol, const char* tag);
QX_API int32_t**** xopen_3d_iptr(int32_t nsec, int32_t nrow, int32_t ncol, const char* tag);

// Releasers: the data block first, then the pointer tables. Null 3-D arrays are left alone.
QX_API qx_status xfree_matrix_int(int32_t** rows);
QX_API qx_status xfree_matrix_double(double** rows);
QX_API qx_status xfree_matrix_char(char** rows);
QX_API qx_status xfree_matrix_shortint(int16_t** rows);
QX_API qx_status xfree_matrix_cptr(char*** rows);
QX_API qx_status xfree_matrix_char5(char (**rows)[5]);
QX_API qx_status xfree_matrix_int6(int32_t (**rows)[6]);
QX_API qx_status xfree_3d_complex(qx_complex*** planes);
QX_API qx_status xfree_3d_int(int32_t*** planes);
QX_API qx_status xfree_3d_short(int16_t*** planes);
QX_API qx_status xfree_3d_double(double*** planes);
QX_API qx_status xfree_3d_double3(double (***planes)[3]);
QX_API qx_status xfree_3d_float(float*** planes);
QX_API qx_status xfree_3d_char(char*** planes);
QX_API qx_status xfree_3d_iptr(int32_t**** planes);

QX_C_END
