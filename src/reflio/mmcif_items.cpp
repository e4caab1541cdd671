#include "reflio/mmcif_items.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <strings.h>

namespace qx {

namespace {

constexpr MmcifItem items[mmcif_item_count] = {
    {"_refln.F_meas_au", 'F', {4}, "|FP|F|FOBS|FO|F-obs|FMEAS|F_meas|"},
    {"_refln.F_meas", 'F', {4}, ""},
    {"_refln.F_meas_sigma_au", 'Q', {5}, "|SIGFP|SIGF|SIGFOBS|SIGFO|SIGF-obs|SIGMA|"},
    {"_refln.F_meas_sigma", 'Q', {5}, ""},
    {"_refln.intensity_meas", 'J', {6, 31}, "|IMEAN|I|IOBS|I-obs|"},
    {"_refln.intensity_sigma", 'Q', {7, 32}, "|SIGIMEAN|SIGI|SIGIOBS|SIGI-obs|"},
    {"_refln.phase_meas", 'P', {8}, "|PHIB|PHI|PHASE|"},
    {"_refln.F_calc_au", 'F', {9}, "|FC|FCALC|FMODEL|F-model|"},
    {"_refln.F_calc", 'F', {9}, ""},
    {"_refln.phase_calc", 'P', {10}, "|PHIC|PHICALC|PHIFMODEL|PHIF-model|"},
    {"_refln.F_part_au", 'F', {11}, "|FPART|"},
    {"_refln.phase_part", 'P', {12}, "|PHIP|PHIPART|"},
    {"_refln.pdbx_anom_difference", 'D', {13}, "|DP|DANO|"},
    {"_refln.pdbx_anom_difference_sigma", 'Q', {14}, "|SIGDP|SIGDANO|"},
    {"_refln.pdbx_F_plus", 'G', {15}, "|F(+)|FP|F_PLUS|"},
    {"_refln.pdbx_F_minus", 'G', {16}, "|F(-)|FM|F_MINUS|"},
    {"_refln.pdbx_F_plus_sigma", 'L', {17}, "|SIGF(+)|SIGFP|SIGF_PLUS|"},
    {"_refln.pdbx_F_minus_sigma", 'L', {18}, "|SIGF(-)|SIGFM|SIGF_MINUS|"},
    {"_refln.pdbx_I_plus", 'K', {19}, "|I(+)|IP|I_PLUS|"},
    {"_refln.pdbx_I_minus", 'K', {20}, "|I(-)|IM|I_MINUS|"},
    {"_refln.pdbx_I_plus_sigma", 'M', {21}, "|SIGI(+)|SIGIP|SIGI_PLUS|"},
    {"_refln.pdbx_I_minus_sigma", 'M', {22}, "|SIGI(-)|SIGIM|SIGI_MINUS|"},
    {"_refln.pdbx_HL_A_iso", 'A', {24}, "|HLA|HLAM|HLACOMB|"},
    {"_refln.pdbx_HL_B_iso", 'A', {25}, "|HLB|HLBM|HLBCOMB|"},
    {"_refln.pdbx_HL_C_iso", 'A', {26}, "|HLC|HLCM|HLCCOMB|"},
    {"_refln.pdbx_HL_D_iso", 'A', {27}, "|HLD|HLDM|HLDCOMB|"},
    {"_refln.fom", 'W', {28, 33}, "|FOM|MAP_FOM|"},
    {"_refln.status", 'I', {29}, "|status|"},
    {"_refln.pdbx_r_free_flag", 'I', {29}, "|TEST|FREE|FreeR_flag|R-free-flags|RFREE|FreeRflag|"},
    {"_refln.pdbx_FWT", 'F', {37, 36}, "|FWT|2FOFCWT|MAP_COEFFA|"},
    {"_refln.pdbx_PHWT", 'P', {38, 34}, "|PHWT|PHFWT|PH2FOFCWT|PHI2FOFCWT|MAP_COEFFP|"},
    {"_refln.pdbx_DELFWT", 'F', {}, "|DELFWT|FOFCWT|"},
    {"_refln.pdbx_DELPHWT", 'P', {}, "|PHDELWT|DELPHWT|PHFOFCWT|PHIFOFCWT|"},
};

}  // namespace

const MmcifItem* find_mmcif_item(Word name) {
  for (const MmcifItem& item : items) {
    if (is_word(name, item.name)) return &item;
  }
  return nullptr;
}

namespace {

bool may_be_labelled(const MmcifItem& item, const char* label) {
  char wanted[mtz_record_size + 4];
  std::snprintf(wanted, sizeof wanted, "|%s|", label);
  return strcasestr(item.labels, wanted) != nullptr;
}

}  // namespace

char usual_column_type(const char* label) {
  for (const MmcifItem& item : items) {
    if (may_be_labelled(item, label)) return item.type;
  }
  return '\0';
}

const MmcifItem* mmcif_item_of(const MtzColumn& column) {
  const Word label = {column.label, std::strlen(column.label)};
  if (const MmcifItem* item = find_mmcif_item(label)) return item;
  for (const MmcifItem& item : items) {
    if (item.type == column.type && may_be_labelled(item, column.label)) return &item;
  }
  return nullptr;
}

const char* usual_mmcif_column(const qxmtz& mtz, std::int32_t coid) noexcept {
  for (const MmcifItem& item : items) {
    if (std::find(item.coid, item.coid + 3, coid) == item.coid + 3) continue;
    for (const MtzColumn& column : mtz.columns) {
      if (strcasecmp(column.label, item.name) == 0) return column.label;
    }
  }
  return nullptr;
}

}  // namespace qx
