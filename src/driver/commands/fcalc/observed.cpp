// The observations: which columns of the reflection file they are.
#include "crystal/reflections.h"
#include "driver/commands/fcalc/job.h"
#include "reflio/mtz.h"

#include <quorix/mtz.h>
#include <quorix/reflections.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>

namespace qx {

namespace {

const MtzColumn* column_among(const qxmtz& mtz, char type,
                              std::initializer_list<const char*> labels) {
  for (const char* label : labels) {
    for (const MtzColumn& column : mtz.columns) {
      if (column.type == type && std::strcmp(column.label, label) == 0) return &column;
    }
  }
  return nullptr;
}

std::string label_or_empty(const MtzColumn* column) { return column ? column->label : ""; }

void check_cell(const qxmtz& mtz, const FcalcJob& job) {
  const Crystal& crystal = job.crystal;
  for (int i = 0; i < 6; ++i) {
    if (std::fabs(mtz.cell[i] - crystal.cell[i]) > 0.01 * crystal.cell[i]) {
      return warn(job, format("the cells of model and reflections differ: %g %g %g %g %g %g and "
                              "%g %g %g %g %g %g; the model's is used",
                              crystal.cell[0], crystal.cell[1], crystal.cell[2], crystal.cell[3],
                              crystal.cell[4], crystal.cell[5], mtz.cell[0], mtz.cell[1],
                              mtz.cell[2], mtz.cell[3], mtz.cell[4], mtz.cell[5]));
    }
  }
}

// The given labels, each of which the file must have.
Observed given_labels(const std::vector<std::string>& labels, const qxmtz& mtz,
                      std::string& missing) {
  const auto at = [&](std::size_t i) {
    if (i >= labels.size() || labels[i].empty()) return std::string();
    const bool there = std::any_of(
        mtz.columns.begin(), mtz.columns.end(),
        [&](const MtzColumn& column) { return std::strcmp(column.label, labels[i].c_str()) == 0; });
    if (!there) missing = labels[i];
    return labels[i];
  };
  return {at(0), at(1), at(2)};
}

}  // namespace

// The observations' labels: as given, else the usual ones that the file has.
Observed find_observed(Engine& engine, const FcalcJob& job) {
  const FcalcOptions& options = job.options;
  Observed observed;
  std::string missing;
  engine.call([&] {
    qxrefdata* peek = qx_new_qxrefdata_obj();
    if (!peek || qx_read_refdata_mtz_file_obj(peek, options.hkl.c_str()) != ok) return failed;
    const qxmtz& mtz = *peek->mtz;
    if (!options.labels.empty()) {
      observed = given_labels(options.labels, mtz, missing);
    } else {
      observed.amplitude = label_or_empty(
          column_among(mtz, 'F', {"FP", "F", "FOBS", "F-obs", "F-obs-filtered", "FOSC"}));
      observed.sigma = label_or_empty(
          column_among(mtz, 'Q', {"SIGFP", "SIGF", "SIGFOBS", "SIGF-obs", "SIGF-obs-filtered"}));
      observed.free = label_or_empty(column_among(
          mtz, 'I', {"FREE", "FreeR_flag", "RFREE", "FREER", "FreeRflag", "R-free-flags"}));
    }
    check_cell(mtz, job);
    return qx_delete_qxrefdata_obj(peek);
  });
  if (!missing.empty()) throw CommandError(2, options.hkl + " has no column " + missing);
  return observed;
}

}  // namespace qx
