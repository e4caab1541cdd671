// Map generation from Fourier coefficients, and CCP4 map files.
#pragma once

#include <quorix/api.h>

#include <stdio.h>

typedef struct qxmap qxmap;

// A map read from a file: density[iz][iy][ix], x, y and z in their true order whatever the order
// of the axes in the file. The caller frees the density with xfree_3d_double.
typedef struct qx_ccp4_map {
  double*** density;
  int32_t counts[3];                   // points of the box along x, y, z
  int32_t starts[3];                   // grid index of its first point
  int32_t intervals[3];                // grid points of the whole cell
  double cell[6];                      // Angstrom, degrees
  double minimum, maximum, mean, rms;  // as the file says
  int32_t space_group;
} qx_ccp4_map;

// What a map file says beside its density.
typedef struct qx_ccp4_description {
  int32_t mode;        // 0 and 1: integers of 8 and 16 bits, 2: reals, 6: unsigned of 16 bits
  int32_t swapped;     // 1: in the other byte order than this machine's
  int32_t axes[3];     // which of x, y, z (1, 2, 3) columns, rows and sections run along
  int32_t has_origin;  // 0: blanks where others write an origin
  float origin[3];
  int32_t nlabels;
  char labels[10][81];  // ended by a zero byte
  int32_t nrecords;
  char* records;  // of symmetry, 80 characters each, no zero byte; the caller frees them with xfree
} qx_ccp4_description;

typedef struct qx_density_statistics {
  double minimum, maximum, mean, rms;  // rms about zero
} qx_density_statistics;

// Of the box of the last map, before scaling by its rms; e/A^3.
typedef struct qx_map_statistics_view {
  double mean, rms;  // rms about zero
} qx_map_statistics_view;

// About the atoms of a group: how many there are, the points near them, the correlation of both
// densities there, and the mean of the observed one in units of its rms.
typedef struct qx_density_correlation {
  int32_t atoms, points;
  double correlation, density;
} qx_density_correlation;

QX_C_BEGIN

// 1 and the statistics, or 0 when no map has been generated.
QX_API int32_t qx_get_map_statistics(qx_map_statistics_view* view);

// The map with its settings at their defaults; creating replaces, deleting frees density, path and
// the private reflection set.
QX_API qx_status qx_new_qxmap(void);
QX_API qx_status qx_delete_qxmap(void);
// Null when there is no map. The setter frees nothing.
QX_API qxmap* qx_get_qxmap(void);
QX_API qx_status qx_set_qxmap(qxmap* object);

// All settings back to their defaults; density, path and private reflection set are released.
QX_API qx_status qx_set_map_default(void);
// Grid indices of the box that the extent asks for.
QX_API qx_status qx_set_map_bound(void);
// Density of the box from the sources that the map names; replaces an earlier density.
QX_API qx_status qx_generate_map(void);
// Amplitudes and phases (degrees), one per reflection of the set, from its columns / from a model.
QX_API qx_status qx_assemble_input_map_coeff(double* amplitude, double* phase);
QX_API qx_status qx_set_map_coef(double* amplitude, double* phase);
// Density of the box from amplitudes and phases (degrees) of the set's reflections / of any list.
QX_API qx_status qx_generate_map_core(const double* amplitude, const double* phase);
QX_API qx_status qx_generate_map_with_coef(int32_t nref, const int32_t* h, const int32_t* k,
                                           const int32_t* l, const double* amplitude,
                                           const double* phase);
// How a 2mFo-DFc map agrees with a map of DFc, both of the observed reflections, at the grid points
// within `radius` Angstrom of each group's atoms other than hydrogens. `group` tells it for n atoms
// of the full system, from 0; -1: none. Needs the likelihood; the map object's settings and density
// go.
QX_API qx_status qx_calc_density_correlation(double radius, int32_t n, const int32_t* group,
                                             int32_t ngroups, qx_density_correlation* out);
// A map of a whole cell has no points until they are asked for: writing it makes them plane by
// plane and forgets them. This makes them stay, for qx_get_map_view; replaces nothing else.
QX_API qx_status qx_make_map_density(void);
// Writes the map to its path in the format "ccp4", "cns" (text), "cns_unformatted" or
// "xyz" (a line a point); "quorix" does not exist.
QX_API qx_status qx_write_map(const char* format);

// The box as a CCP4 map at the map's path: 32-bit reals, axes in the order x, y, z.
QX_API qx_status qx_wr_ccp4_map(void);
// Reads a CCP4 map of mode 0, 1, 2 or 6, any order of the axes, either byte order.
QX_API qx_status qx_rd_ccp4_map(const char* path, qx_ccp4_map* map);
// The same with what the file says beside; `description` is filled on success only.
QX_API qx_status qx_rd_described_ccp4_map(const char* path, qx_ccp4_map* map,
                                          qx_ccp4_description* description);
// The same as floats, which hold every mode's values exactly, in one block of tagged memory that is
// the caller's, x fastest, then y.
QX_API qx_status qx_rd_described_ccp4_floats(const char* path, qx_ccp4_map* map,
                                             qx_ccp4_description* description, float** values);
// Of n values, at least one.
QX_API qx_density_statistics qx_calc_density_statistics(const double* values, int64_t n);
// 1 if the first bytes of a file are those of a CCP4 map; 212 of them tell.
QX_API int32_t qx_starts_ccp4_map(const void* bytes, size_t size);
// How many bytes such a file has by its header; -1 if it is none that could be read. Fills `map`,
// if it is given, as qx_rd_ccp4_map, but without density. Neither reports nor needs an engine.
QX_API int64_t qx_look_at_ccp4_map(const char* path, qx_ccp4_map* map);

// Typed words of binary files. Each gives the number of items written or read; a short write is
// reported and the engine dies, a short read is the caller's to report. `swap` reverses the bytes
// of each item read.
QX_API int32_t qx_write_raw_char(FILE* stream, const char* items, int32_t n);
QX_API int32_t qx_write_raw_int(FILE* stream, const int32_t* items, int32_t n);
QX_API int32_t qx_write_raw_float(FILE* stream, const float* items, int32_t n);
QX_API int32_t qx_read_raw_char(FILE* stream, char* items, int32_t n);
QX_API int32_t qx_read_raw_int(FILE* stream, int32_t swap, int32_t* items, int32_t n);
QX_API int32_t qx_read_raw_float(FILE* stream, int32_t swap, float* items, int32_t n);
// The four bytes that tell a machine's number formats; an offset above 0 is gone to first, by the
// reader also offset 0. Reading gives the format codes of integers and of reals (4: little-endian,
// 1: big-endian).
QX_API qx_status qx_write_machine_stamp(FILE* stream, int64_t offset);
QX_API qx_status qx_read_machine_stamp(FILE* stream, int64_t offset, int32_t* int_code,
                                       int32_t* float_code);

QX_C_END
