// From the columns of an MTZ object to the data set: choice by label, filtering, copying.
#include "core/require.h"
#include "core/say.h"
#include "crystal/cell.h"
#include "crystal/columns.h"
#include "crystal/crystal.h"
#include "crystal/reflection_filter.h"
#include "crystal/reflection_formats.h"
#include "crystal/spacegroup.h"
#include "crystal/symop.h"
#include "reflio/mtz.h"
#include "reflio/mtz_words.h"

#include <quorix/engine.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* heading = "qx_build_qxrefdata_mtz():";
constexpr float largest_index = 1048576.0F;

// File columns by identifier, null where not chosen; [0] is H.
struct Chosen {
  const qx::MtzColumn* columns[qx::coid_count] = {};

  [[nodiscard]] const float* values(std::int32_t coid) const {
    return columns[coid - 1] ? columns[coid - 1]->values : nullptr;
  }
};

// In MTZ files an identifier without a name means nothing.
bool has_usual(const qxrefdata& refdata) {
  const qx::FileFormat* format = qx::find_format(refdata.format);
  return format && format->usual;
}

// An identifier without a name means the column that is usual in its format, if there is one.
Status take_usual(const qxrefdata& refdata, const qxmtz& mtz, const qx::Column& column,
                  char*& selected) {
  const qx::FileFormat* format = qx::find_format(refdata.format);
  if (!has_usual(refdata) || !selected) return ok;
  if (column.indices) return qx::release(selected);
  const char* usual = *selected ? nullptr : format->usual(mtz, column.number);
  return usual ? qx::replace_text(selected, usual, "prrc_lab") : ok;
}

Status choose(qxrefdata& refdata, const qxmtz& mtz, Chosen& chosen) {
  for (const qx::Column& column : qx::columns()) {
    char*& selected = refdata.selected[column.number];
    QX_TRY(take_usual(refdata, mtz, column, selected));
    const char* name = selected;
    if (!name && column.indices) name = column.word;
    if (!name) continue;
    std::int32_t position = -1;
    const bool none = !*name && has_usual(refdata);
    if (!none) QX_TRY(qx::locate_column(mtz, name, position));
    if (position >= 0) {
      chosen.columns[column.number - 1] = &mtz.columns[position];
    } else if (column.indices) {
      return fail(heading, " mtz does not have \"%s\" column defined.", column.word);
    } else {
      const qx::FileFormat* format = qx::find_format(refdata.format);
      if (has_usual(refdata)) {
        qx::say(" Warning: the %s file does not have \"%s\" column defined.\n", format->name,
                *name ? name : column.word);
      } else {
        qx::say(" Warning: mtz does not have \"%s\" column defined.\n", name);
      }
      QX_TRY(qx::release(selected));
    }
  }
  return ok;
}

// Rounds the indices, unless one is no index.
bool round_indices(const float* values, std::size_t n, std::int32_t* indices) {
  std::int32_t bad = 0;
  for (std::size_t i = 0; i < n; ++i) bad |= std::abs(values[i]) <= largest_index ? 0 : 1;
  if (bad != 0) return false;
  for (std::size_t i = 0; i < n; ++i) {
    indices[i] = static_cast<std::int32_t>(values[i] + std::copysign(0.5F, values[i]));
  }
  return true;
}

qx::RejectionRules rules_of(const qxrefreject& reject, bool apply, const qxresol& resol,
                            const qxcell& cell) {
  qx::RejectionRules rules;
  if (apply) {
    rules.amplitude_minimum = reject.f_minimum;
    rules.amplitude_sigma = reject.f_sigma;
    rules.amplitude_rms = reject.f_rms;
    rules.intensity_sigma = reject.i_sigma;
    rules.intensity_rms = reject.i_rms;
  }
  rules.d_high = resol.high;
  rules.d_low = resol.low;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) rules.orth2frac[3 * i + j] = cell.orth2frac[4 * i + j];
  }
  return rules;
}

Status record_cuts(const qx::RejectionRules& rules) {
  const double sigma = rules.amplitude_sigma > 0 ? rules.amplitude_sigma : rules.intensity_sigma;
  const double rms = rules.amplitude_rms > 0 ? rules.amplitude_rms : rules.intensity_rms;
  if (sigma > 0) QX_TRY(qx_set_hv_data_reject_sigma(sigma));
  if (rms > 0) QX_TRY(qx_set_hv_data_reject_rms(rms));
  if (rules.amplitude_minimum > 0) {
    QX_TRY(qx_set_hv_data_reject_amplitude(rules.amplitude_minimum));
  }
  return ok;
}

// The kept reflections of the file, in order.
struct Kept {
  const std::int32_t* indices;
  std::size_t count;
};

template <class T, class Convert>
Status gather(T*& field, const Kept& kept, const char* tag, Convert convert) {
  T* array = qx::allocate<T>(kept.count, tag);
  if (!array) return failed;
  for (std::size_t i = 0; i < kept.count; ++i) array[i] = convert(kept.indices[i]);
  field = array;
  return ok;
}

std::int16_t flag_of(float value, float missing) {
  if (qx::is_missing(value, missing) || std::abs(value) > 32767.0F) return qx::missing_flag;
  return static_cast<std::int16_t>(std::lround(value));
}

// A coefficient counts only whole: without its phase, or the phase without it, both are 0.
const float* partner_of(const Chosen& chosen, std::int32_t coid) {
  if (coid == qx::coid_map_coeffa) return chosen.values(qx::coid_map_coeffp);
  if (coid == qx::coid_map_coeffp) return chosen.values(qx::coid_map_coeffa);
  return nullptr;
}

// What a map is summed from or weighted by is 0 where it is missing. Anything else stays missing: a
// 0 would be written out as a value that somebody measured.
bool counts_as_zero(std::int32_t coid) {
  switch (coid) {
    case qx::coid_fom:
    case qx::coid_map_fom:
    case qx::coid_map_phase:
    case qx::coid_map_coeff:
    case qx::coid_map_coeffa:
    case qx::coid_map_coeffp:
      return true;
    default:
      return false;
  }
}

Status copy_column(qxrefdata& refdata, const qx::Column& column, const Chosen& chosen,
                   const Kept& kept, float missing) {
  const float* from = chosen.values(column.number);
  if (!from || column.indices) return ok;
  if (column.flags) {
    return gather(refdata.*column.flags, kept, "pbrm_test",
                  [&](std::int32_t i) { return flag_of(from[i], missing); });
  }
  const float none = counts_as_zero(column.number) ? 0.0F : std::numeric_limits<float>::quiet_NaN();
  const float* partner = partner_of(chosen, column.number);
  return gather(refdata.*column.values, kept, "pbrm_val", [&](std::int32_t i) {
    const bool lost =
        qx::is_missing(from[i], missing) || (partner && qx::is_missing(partner[i], missing));
    return lost ? none : from[i];
  });
}

Status report_rejected(qxrefdata& refdata, std::size_t n, const Kept& kept) {
  const std::size_t nrejected = n - kept.count;
  const qx::Tagged<std::int32_t> rejected(nrejected + 1, "pbrm_rj");  // never of size 0
  if (!rejected) return failed;
  std::int32_t* to = rejected.get();
  std::int32_t first = 0;  // behind the last that was kept
  for (std::size_t i = 0; i <= kept.count; ++i) {
    const std::int32_t next = i < kept.count ? kept.indices[i] : static_cast<std::int32_t>(n);
    while (first < next) *to++ = first++;
    ++first;
  }
  return qx_set_refl_reject_info(static_cast<std::int32_t>(n), static_cast<std::int32_t>(nrejected),
                                 rejected.get(), &refdata);
}

Status print_counts(std::size_t n, std::size_t nkept) {
  qx::say("Total number of reflections input    : %-10d \n", static_cast<int>(n));
  qx::say("Total number of reflections used     : %-10d \n", static_cast<int>(nkept));
  qx::say("Total number of reflections rejected : %-10d \n", static_cast<int>(n - nkept));
  return nkept > 0 ? ok : fail(heading, " There is no reflection survived. ");
}

// Names that the user did not give come from the data set of the first chosen value.
Status adopt_names(qxrefdata& refdata, const qxmtz& mtz, const Chosen& chosen) {
  const qx::MtzDataset* set = nullptr;
  for (std::int32_t i = qx::coid_l; i < qx::coid_count && !set; ++i) {
    if (!chosen.columns[i]) continue;
    const std::int32_t position = qx::find_dataset(mtz, chosen.columns[i]->dataset_id);
    if (position >= 0) set = &mtz.datasets[position];
  }
  if (!set) return ok;
  const auto adopt = [](char*& field, bool& from_file, const char* name) {
    if (field && !from_file) return ok;
    from_file = true;
    return qx::replace_text(field, name, "psrn_name");
  };
  QX_TRY(adopt(refdata.crystal_name, refdata.crystal_from_file, set->crystal));
  QX_TRY(adopt(refdata.project_name, refdata.project_from_file, set->project));
  return adopt(refdata.dataset_name, refdata.dataset_from_file, set->name);
}

struct Indices {
  qx::Tagged<std::int32_t> block;  // h, k, l one after another
  std::int32_t* axis[3] = {};
};

Status read_indices(const qxmtz& mtz, const Chosen& chosen, std::size_t n, Indices& indices) {
  indices.block = qx::Tagged<std::int32_t>(3 * n, "pbrm_hkl");
  if (!indices.block) return failed;
  for (std::size_t a = 0; a < 3; ++a) {
    indices.axis[a] = indices.block.get() + a * n;
    if (!round_indices(chosen.columns[a]->values, n, indices.axis[a])) {
      return fail(heading, "The mtz file %s is a broken mtz format file \n", mtz.path);
    }
  }
  return ok;
}

Status fill(qxrefdata& refdata, const qxmtz& mtz, const Chosen& chosen,
            const qx::RejectionRules& rules) {
  const auto n = static_cast<std::size_t>(mtz.nreflections);
  if (n == 0) return print_counts(0, 0);
  Indices indices;
  QX_TRY(read_indices(mtz, chosen, n, indices));
  qx::Tagged<std::int32_t> selection(n, "pbrm_keep");
  if (!selection) return failed;
  const qx::Candidates input = {n,
                                indices.axis[0],
                                indices.axis[1],
                                indices.axis[2],
                                {chosen.values(qx::coid_fobs), chosen.values(qx::coid_sigf)},
                                {chosen.values(qx::coid_iobs), chosen.values(qx::coid_sigi)},
                                mtz.missing};
  const Kept kept = {selection.get(),
                     qx::select_reflections(input, rules, selection.get(), refdata.left_out)};
  QX_TRY(report_rejected(refdata, n, kept));
  QX_TRY(print_counts(n, kept.count));
  for (const qx::Column& column : qx::columns()) {
    if (column.indices) {
      const std::int32_t* from = indices.axis[column.number - 1];
      QX_TRY(gather(refdata.*column.indices, kept, "pbrm_ind",
                    [from](std::int32_t i) { return from[i]; }));
    } else {
      QX_TRY(copy_column(refdata, column, chosen, kept, mtz.missing));
    }
  }
  refdata.nreflections = static_cast<std::int32_t>(kept.count);
  return ok;
}

// Whether the file's constants are those of the section, which count: some decimals are typed.
void warn_of_other_cell(const char* format_name, const qxmtz& mtz, const qxcell& cell) {
  const double own[6] = {cell.a, cell.b, cell.c, cell.alpha, cell.beta, cell.gamma};
  constexpr double slack[6] = {1e-3, 1e-3, 1e-3, 0.1, 0.1, 0.1};  // edges relative, degrees
  const double* file = mtz.cell;
  bool same = true;
  for (int i = 0; i < 6; ++i) {
    if (!mtz.has_cell || !(file[i] > 0)) return;
    same = same && std::fabs(file[i] - own[i]) <= slack[i] * (i < 3 ? own[i] : 1.0);
  }
  if (same) return;
  qx::say(
      "WARNING: the %s file has the cell %g %g %g %g %g %g, which is not that of the section: the "
      "section's is used \n",
      format_name, file[0], file[1], file[2], file[3], file[4], file[5]);
}

bool has_operator(const qxspg& spg, const double op[16]) {
  for (std::int32_t i = 0; i < spg.nops; ++i) {
    if (qx::same_operator(spg.ops[i], op)) return true;
  }
  return false;
}

void warn_of_other_group(const char* format_name, const qxmtz& mtz, const qxspg& spg) {
  if (spg.nops < 1 || qx::has_same_group(mtz, spg)) return;
  qx::say(
      "WARNING: the %s file is of the space group %s, whose operators are not those of the "
      "section: "
      "the section's are used \n",
      format_name, mtz.spacegroup_name[0] ? mtz.spacegroup_name : "?");
}

}  // namespace

// By operators where the file has them: one group has many names, and one number many settings.
bool qx::has_same_group(const qxmtz& mtz, const qxspg& spg) {
  if (mtz.symops.count == 0) {
    // Thousands tell other settings, which a file may name by the plain number.
    return mtz.spacegroup_number == 0 || spg.spg_id == 0 ||
           mtz.spacegroup_number % 1000 == spg.spg_id % 1000;
  }
  for (const qx::MtzLine& line : mtz.symops) {
    double op[16];
    int denominators[3];
    if (qx::parse_operator(line.text, op, denominators).size > 0) return true;  // nothing to hold
    qx::normalize_translations(op);
    if (!has_operator(spg, op)) return false;
  }
  return mtz.symops.count == spg.nops;
}

Status qx_build_qxrefdata_mtz(qxrefdata* refdata, const qxrefreject* reject, std::int32_t apply) {
  const qxmtz* mtz = refdata->mtz;
  if (!mtz || !qx::has_rows(*mtz)) {
    return fail(heading, "mtzdata object has not been created yet");
  }
  const qxresol* resol = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxresol, resol, "qxresol has not been created yet."));
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxcell, cell, "qxcell object has not been created yet "));
  const qxspg* spg = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxspg, spg, " The qxspg object has not been created yet "));
  const qx::RejectionRules rules = rules_of(*reject, apply != 0, *resol, *cell);
  Chosen chosen;
  QX_TRY(choose(*refdata, *mtz, chosen));
  const qx::FileFormat* format = qx::find_format(refdata->format);
  const char* name = format ? format->name : "MTZ";
  warn_of_other_cell(name, *mtz, *cell);
  warn_of_other_group(name, *mtz, *spg);
  QX_TRY(record_cuts(rules));
  QX_TRY(qx::clear_reflections(*refdata));
  QX_TRY(adopt_names(*refdata, *mtz, chosen));
  return fill(*refdata, *mtz, chosen, rules);
}
