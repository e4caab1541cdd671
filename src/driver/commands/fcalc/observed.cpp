// The observations: which columns of the reflection file they are, and whether they can be the
// model's.
#include "driver/commands/fcalc/job.h"
#include "driver/commands/group_name.h"
#include "driver/commands/map_labels.h"
#include "driver/commands/model_and_data.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>

namespace qx {

namespace {

std::string label_among(const ReflectionFile& file, char type,
                        std::initializer_list<const char*> labels) {
  for (const char* label : labels) {
    for (const FileColumn& column : file.columns) {
      if (column.type == type && column.label == label) return label;
    }
  }
  return {};
}

}  // namespace

ObservedColumns given_observations(const ReflectionFile& file,
                                   const std::vector<std::string>& labels, bool intensities) {
  const auto at = [&](std::size_t i) {
    if (i >= labels.size() || labels[i].empty()) return std::string();
    for (const FileColumn& column : file.columns) {
      if (column.label == labels[i]) return labels[i];
    }
    throw CommandError(2, file.path + " has no column " + labels[i]);
  };
  ObservedColumns observed = {at(0), at(1), at(2)};
  if (!observed.amplitude.empty()) {
    const FileColumn& column = *file.find(observed.amplitude).front();
    if (intensities && column.type == 'J') {
      return {"", "", observed.free, observed.amplitude, observed.sigma};
    }
    const std::string not_one = why_no_amplitude(column);
    if (!not_one.empty()) {
      throw CommandError(2, "column " + column.label + " is no amplitude but " + not_one);
    }
  }
  return observed;
}

ObservedColumns usual_intensities(const ReflectionFile& file) {
  const FileColumn* free = usual_free_column(file);
  return {"", "", free ? free->label : "",
          label_among(file, 'J', {"IMEAN", "I", "IOBS", "I-obs", "IP", "Iobs"}),
          label_among(file, 'Q', {"SIGIMEAN", "SIGI", "SIGIOBS", "SIGI-obs", "SIGIP", "SIGIobs"})};
}

ObservedColumns usual_observations(const ReflectionFile& file) {
  const FileColumn* free = usual_free_column(file);
  ObservedColumns observed = {
      label_among(file, 'F', {"FP", "F", "FOBS", "F-obs", "F-obs-filtered", "FOSC"}),
      label_among(file, 'Q', {"SIGFP", "SIGF", "SIGFOBS", "SIGF-obs", "SIGF-obs-filtered"}),
      free ? free->label : ""};
  return observed.amplitude.empty() ? usual_intensities(file) : observed;
}

namespace {

// Amplitudes of Friedel mates, or their differences.
void find_differences(const ReflectionFile& file, ObservedColumns& observed) {
  constexpr const char* pairs[][2] = {{"F(+)", "F(-)"},
                                      {"FP(+)", "FP(-)"},
                                      {"FOBS(+)", "FOBS(-)"},
                                      {"F-obs(+)", "F-obs(-)"},
                                      {"F-obs-filtered(+)", "F-obs-filtered(-)"},
                                      {"F+", "F-"},
                                      {"FPLUS", "FMINUS"},
                                      {"F_plus", "F_minus"}};
  for (const auto& [plus, minus] : pairs) {
    const std::string a = label_among(file, 'G', {plus});
    const std::string b = label_among(file, 'G', {minus});
    if (a.empty() || b.empty()) continue;
    observed.plus = a;
    observed.minus = b;
    return;
  }
  observed.difference = label_among(file, 'D', {"DANO", "DP", "DFANO"});
}

// A column of zeros or of nothing is passed on, but nothing can be scaled to it.
void look_for_amplitudes(FcalcJob& job, const ReflectionFile& file) {
  ObservedColumns& observed = job.observed;
  if (observed.amplitude.empty()) return;
  const std::span<const float> values = file.find(observed.amplitude).front()->values;
  observed.empty = std::none_of(values.begin(), values.end(),
                                [](float f) { return std::isfinite(f) && f > 0.0F; });
  if (!observed.empty) return;
  warn(job,
       "column " + observed.amplitude + " holds no amplitude above 0: nothing is scaled to it");
}

// The value that marks the free set, unless a new one is drawn.
void choose_free_set(FcalcJob& job, const ReflectionFile& file) {
  ObservedColumns& observed = job.observed;
  if (observed.free.empty()) {
    if (job.options.free_value) throw CommandError(2, file.path + " has no column of free flags");
    return;
  }
  if (!job.options.free.empty()) return;
  std::string problem;
  observed.free_set =
      choose_free_set(*file.find(observed.free).front(), job.options.free_value, problem);
  if (!observed.free_set) warn(job, problem + ": all reflections count as working");
}

}  // namespace

void find_observed(Engine& engine, FcalcJob& job) {
  const FcalcOptions& options = job.options;
  job.data = std::make_shared<const ReflectionFile>(read_reflections(engine, options.hkl));
  const ReflectionFile& file = *job.data;
  job.input = file.readable.path;
  job.observed = options.labels.empty() ? usual_observations(file)
                                        : given_observations(file, options.labels, false);
  find_differences(file, job.observed);
  look_for_amplitudes(job, file);
  choose_free_set(job, file);
  const Crystal& crystal = job.crystal;
  if (options.cell.empty()) check_one_form(crystal, file);
  for (const std::string& line :
       crystal_differences(crystal, file.group, file.cell, "the model's is used")) {
    warn(job, line);
  }
  const gemmi::SpaceGroup* group =
      find_space_group(crystal.space_group, crystal.cell[3], crystal.cell[5]);
  const std::string extinct =
      extinct_line(file, group, job.observed.amplitude, "their FC is 0; is the group right?");
  if (!extinct.empty()) warn(job, extinct);
}

}  // namespace qx
