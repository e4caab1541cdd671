#include "driver/commands/map_labels.h"

#include "driver/commands/sections.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace qx {

namespace {

struct Convention {
  const char* amplitude;
  const char* phase;
  const char* kind;
};

constexpr Convention main_pairs[] = {
    {"FWT", "PHWT", "2mFo-DFc"}, {"2FOFCWT", "PH2FOFCWT", "2mFo-DFc"}, {"FDM", "PHIDM", "FDM"}};
constexpr Convention difference_pairs[] = {
    {"DELFWT", "PHDELWT", "mFo-DFc"}, {"FOFCWT", "PHFOFCWT", "mFo-DFc"}, {"FAN", "PHAN", "FAN"}};

bool is_amplitude(const FileColumn& column) { return column.type == 'F' || column.type == 'G'; }
bool is_phase(const FileColumn& column) { return column.type == 'P'; }

std::string pair_text(const MapLabels& labels) { return labels.amplitude + "/" + labels.phase; }

std::string listed(const ReflectionFile& file) {
  std::string text;
  for (const MapLabels& pair : label_candidates(file)) {
    text += (text.empty() ? "" : ", ") + pair_text(pair);
  }
  return text;
}

std::string columns_listed(const ReflectionFile& file) {
  std::string text;
  for (const FileColumn& column : file.columns) {
    text += (text.empty() ? "" : ", ") + column.label + " (" + column.type + ")";
  }
  return text;
}

const FileColumn* only_column(const ReflectionFile& file, const std::string& name,
                              const std::string& partner = {}) {
  const auto found = file.find(name);
  if (found.size() == 1) return found.front();
  if (found.empty()) refuse_labels(file, file.path + " has no column " + name, partner);
  std::string text = file.path + " has more than one column " + name + ":";
  for (const FileColumn* column : found) text += " " + file.name_of(*column);
  refuse_labels(file, text, partner);
}

const MapLabels& example_among(const std::vector<MapLabels>& pairs, const std::string& near) {
  for (const MapLabels& pair : pairs) {
    if (pair.amplitude == near || pair.phase == near) return pair;
  }
  return pairs.front();
}

const char* meaning_of(char type) {
  switch (type) {
    case 'H':
      return "an index";
    case 'J':
    case 'K':
      return "an intensity";
    case 'Q':
    case 'L':
    case 'M':
      return "a standard deviation";
    case 'P':
      return "a phase";
    case 'W':
      return "a weight";
    case 'A':
      return "a phase-probability coefficient";
    case 'B':
    case 'Y':
    case 'I':
      return "an integer";
    case 'F':
    case 'G':
    case 'E':
      return "an amplitude";
    case 'D':
      return "a difference of amplitudes";
    default:
      return "";
  }
}

std::string file_name_part(std::string label) {
  for (char& c : label) {
    if (c == '/' || c == ' ' || c == '"' || c == '#' || c == '!') c = '_';
  }
  return label;
}

}  // namespace

std::vector<MapLabels> label_candidates(const ReflectionFile& file) {
  std::vector<MapLabels> pairs;
  const FileColumn* amplitude = nullptr;
  for (const FileColumn& column : file.columns) {
    if (is_amplitude(column)) amplitude = &column;
    if (!is_phase(column) || !amplitude) continue;
    pairs.push_back(
        {file.name_of(*amplitude), file.name_of(column), file_name_part(amplitude->label)});
    amplitude = nullptr;
  }
  return pairs;
}

std::string why_no_amplitude(const FileColumn& column) {
  const bool can_be = std::strchr("FGED", column.type) != nullptr;
  return can_be ? std::string() : meaning_of(column.type);
}

std::string why_no_phase(const FileColumn& column) {
  return is_phase(column) ? std::string() : meaning_of(column.type);
}

MapLabels usual_labels(const ReflectionFile& file, bool difference) {
  const std::span<const Convention> pairs = difference
                                                ? std::span<const Convention>(difference_pairs)
                                                : std::span<const Convention>(main_pairs);
  for (const Convention& pair : pairs) {
    if (file.find(pair.amplitude).empty() || file.find(pair.phase).empty()) continue;
    const FileColumn* amplitude = only_column(file, pair.amplitude);
    const FileColumn* phase = only_column(file, pair.phase);
    if (is_amplitude(*amplitude) && is_phase(*phase)) {
      return {amplitude->label, phase->label, pair.kind};
    }
  }
  return {};
}

bool is_difference_amplitude(const std::string& name) {
  const std::string label = name.substr(name.rfind('/') + 1);
  return std::any_of(std::begin(difference_pairs), std::end(difference_pairs),
                     [&](const Convention& pair) { return label == pair.amplitude; });
}

MapLabels given_labels(const ReflectionFile& file, const std::string& amplitude,
                       const std::string& phase) {
  if (amplitude.empty() || phase.empty()) {
    refuse_labels(file, "--f and --phi name a map only together", amplitude + phase);
  }
  const FileColumn* f = only_column(file, amplitude, phase);
  const FileColumn* phi = only_column(file, phase, amplitude);
  if (const std::string what = why_no_amplitude(*f); !what.empty()) {
    refuse_labels(file, "column " + amplitude + " is no amplitude but " + what, phase);
  }
  if (const std::string what = why_no_phase(*phi); !what.empty()) {
    refuse_labels(file, "column " + phase + " is no phase but " + what, amplitude);
  }
  return {amplitude, phase, file_name_part(f->label)};
}

void refuse_labels(const ReflectionFile& file, const std::string& problem,
                   const std::string& near) {
  // The first line says it all: a table of many files has room for no more.
  const std::vector<MapLabels> pairs = label_candidates(file);
  if (pairs.empty()) {
    std::string text = problem + "; no amplitude has a phase behind it.\nThe columns are " +
                       columns_listed(file) + ".\n";
    if (file.batches > 0) text += format("These are unmerged data (%d batches). ", file.batches);
    text += "A map needs phases: take the file that phasing or refinement wrote.";
    throw CommandError(2, text);
  }
  const MapLabels& example = example_among(pairs, near);
  throw CommandError(2, problem + "; amplitudes with phases in the file: " + listed(file) +
                            ".\nName one, for example:\n  quorix map " + file.path + " --f '" +
                            example.amplitude + "' --phi '" + example.phase + "'");
}

}  // namespace qx
