// Which amplitude and phase a map is made of.
#pragma once

#include "driver/commands/command_error.h"
#include "driver/commands/reflection_file.h"

#include <string>
#include <utility>
#include <vector>

namespace qx {

struct MapLabels {
  std::string amplitude, phase;  // as in a coid list
  std::string kind;              // of the map, for its file's name
  std::string weight = {};       // what multiplies the amplitude; empty: nothing
};

// A choice of labels that cannot be made: why, without how to type it, and what could be chosen.
class LabelError : public CommandError {
 public:
  LabelError(const std::string& text, std::string problem, std::vector<MapLabels> candidates)
      : CommandError(2, text), problem_(std::move(problem)), candidates_(std::move(candidates)) {}
  [[nodiscard]] const std::string& problem() const { return problem_; }
  [[nodiscard]] const std::vector<MapLabels>& candidates() const { return candidates_; }

 private:
  std::string problem_;
  std::vector<MapLabels> candidates_;
};

// Amplitude columns with their phases: by name, else by what stands behind them.
std::vector<MapLabels> label_candidates(const ReflectionFile& file);

// The first complete conventional pair of a 2mFo-DFc kind / of a difference kind; empty labels
// without one. Throws CommandError when labels of the pair stand in the file more than once.
MapLabels usual_labels(const ReflectionFile& file, bool difference);

// What a column is that by its type can be no amplitude ("an intensity") or no phase; empty if it
// can be one. Types that say nothing are let pass.
std::string why_no_amplitude(const FileColumn& column);
std::string why_no_phase(const FileColumn& column);
std::string why_no_weight(const FileColumn& column);

// True for the usual amplitudes of difference maps; their level is looked at with both signs.
bool is_difference_amplitude(const std::string& name);

// Stands in the label of a map that is a part of the cell and scaled by the rms of the whole.
constexpr const char* cell_scale_mark = ", in rms of the cell";

// What a map of these coefficients is, for its label: "2mFo-DFc (FWT/PHWT)", or the labels alone.
std::string map_type(const MapLabels& labels);

// A line each for columns that look like the coefficients of the usual maps and are not taken for
// them.
std::vector<std::string> passed_over(const ReflectionFile& file, bool difference);

// Gives the labels a weight, checked: CommandError for coefficients that are weighted already.
void add_weight(const ReflectionFile& file, const std::string& weight, MapLabels& labels);

// The only amplitude with a phase that is neither weighted nor the model's; CommandError if there
// is another number of them.
MapLabels measured_labels(const ReflectionFile& file);

// What the user named, checked; one of the two may be empty and is found by the other. Throws
// CommandError with the candidates.
MapLabels given_labels(const ReflectionFile& file, const std::string& amplitude,
                       const std::string& phase);

// The usual pairs as users read them.
std::string usual_pairs(bool difference);

// The error for a file without a usable pair: what was looked for, what is there, what to type. The
// example is the pair that holds `near`, if there is one, else the most likely; `notes` follow.
[[noreturn]] void refuse_labels(const ReflectionFile& file, const std::string& problem,
                                const std::string& near = {},
                                const std::vector<std::string>& notes = {});

}  // namespace qx
