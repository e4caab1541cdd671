// The reflection data set. An array is null when the file gave no such column; all arrays have
// `nreflections` elements.
#pragma once

#include "crystal/reflection_filter.h"

#include <quorix/reflections.h>

struct qxmtz;

// Code of the file format a data set was read from.
namespace qx {
enum ReflectionFormat : std::int32_t {
  no_format = 0,
  mtz_format = 1,
  hkl_format = 2,
  cns_format = 3,
  scalepack_format = 4,
  dtrek_format = 5,
  mmcif_format = 6,
};
inline constexpr int coid_count = 40;

// A column that the engine made beyond those that files have.
struct DerivedColumn {
  static constexpr int most = 8;
  char label[31];
  char type;    // as MTZ files have it
  bool wanted;  // by the write command at work
  float* values;
};
}  // namespace qx

struct qxrefdata {
  qxmtz* mtz = nullptr;
  void* hkl = nullptr;
  void* dtrek = nullptr;
  void* scalepack = nullptr;
  void* mmcif = nullptr;
  void* cns = nullptr;
  std::int32_t format = qx::no_format;
  char* crystal_name = nullptr;
  char* project_name = nullptr;
  char* dataset_name = nullptr;
  bool crystal_from_file = false;  // names that a user did not give follow the file
  bool project_from_file = false;
  bool dataset_from_file = false;
  char* selected[qx::coid_count + 1] = {};  // file label chosen for each identifier, from 1
  std::int32_t nreflections = 0;
  std::int32_t* h = nullptr;
  std::int32_t* k = nullptr;
  std::int32_t* l = nullptr;
  float* fobs = nullptr;
  float* sigf = nullptr;
  float* iobs = nullptr;
  float* sigi = nullptr;
  float* phib = nullptr;
  float* fc = nullptr;
  float* phic = nullptr;
  float* fpart = nullptr;
  float* phip = nullptr;
  float* dp = nullptr;
  float* sigdp = nullptr;
  float* fp = nullptr;
  float* sigfp = nullptr;
  float* fm = nullptr;
  float* sigfm = nullptr;
  float* ip = nullptr;
  float* sigip = nullptr;
  float* im = nullptr;
  float* sigim = nullptr;
  float* phim = nullptr;
  float* hla = nullptr;
  float* hlb = nullptr;
  float* hlc = nullptr;
  float* hld = nullptr;
  float* fom = nullptr;
  std::int16_t* test = nullptr;  // free-set flags, -1 where missing
  float* wt = nullptr;
  float* imean = nullptr;
  float* sigimean = nullptr;
  float* map_fom = nullptr;
  float* map_phase = nullptr;
  float* map_scale = nullptr;
  float* map_coeff = nullptr;
  float* map_coeff_amplitude = nullptr;  // MAP_COEFFA
  float* map_coeff_phase = nullptr;      // MAP_COEFFP, degrees
  float* ic = nullptr;
  float* batch = nullptr;
  float* weight = nullptr;
  qx::DerivedColumn derived[qx::DerivedColumn::most] = {};
  std::int32_t nderived = 0;
  std::int32_t nadded = 0;                    // rows behind those of the file
  std::int32_t hmax = 0, kmax = 0, lmax = 0;  // largest |h|, |k|, |l|
  std::int32_t ninput = 0;                    // reflections of the file; length of `rejected`
  std::int16_t* rejected = nullptr;           // per reflection of the file, 1 = rejected
  qx::LeftOut left_out;                       // why they were rejected
  std::int16_t* centric = nullptr;
  std::int32_t* epsilon = nullptr;
  double (*s)[3] = nullptr;            // (h a*, k b*, l c*), 1/Angstrom
  double* s_length = nullptr;          // |s| = 1/d
  double s_max = 1e10, s_min = -1e10;  // Kept: the limits stand the wrong way round until filled
  std::int16_t friedel_flag = 0;       // 0: each reflection stands for its Friedel opposite as well
};

namespace qx {

// Releases the reader objects and forgets the format and the chosen columns.
Status forget_file(qxrefdata& refdata);

// Gives back every array that a build fills or a checker derives.
Status clear_reflections(qxrefdata& refdata);

// Moves `text` into the field, or a copy of it; the old text goes.
Status replace_text(char*& field, const char* text, const char* tag);

}  // namespace qx
