// Which amplitude and phase a map is made of.
#pragma once

#include "driver/commands/reflection_file.h"

#include <string>
#include <vector>

namespace qx {

struct MapLabels {
  std::string amplitude, phase;  // as in a coid list
  std::string kind;              // of the map, for its file's name
};

// Amplitude columns with a phase behind them, by column type.
std::vector<MapLabels> label_candidates(const ReflectionFile& file);

// The first complete conventional pair of a 2mFo-DFc kind / of a difference kind; empty labels
// without one. Throws CommandError when labels of the pair stand in the file more than once.
MapLabels usual_labels(const ReflectionFile& file, bool difference);

// What a column is that by its type can be no amplitude ("an intensity") or no phase; empty if it
// can be one. Types that say nothing are let pass.
std::string why_no_amplitude(const FileColumn& column);
std::string why_no_phase(const FileColumn& column);

// True for the usual amplitudes of difference maps; their level is looked at with both signs.
bool is_difference_amplitude(const std::string& name);

// What the user named, checked; throws CommandError with the candidates.
MapLabels given_labels(const ReflectionFile& file, const std::string& amplitude,
                       const std::string& phase);

// The error for a file without a usable pair: what was looked for, what is there, what to type. The
// example is the pair that holds `near`, if there is one.
[[noreturn]] void refuse_labels(const ReflectionFile& file, const std::string& problem,
                                const std::string& near = {});

}  // namespace qx
