#include "driver/commands/map_labels.h"

#include "driver/commands/command_error.h"

#include <algorithm>
#include <cctype>
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
constexpr Convention difference_pairs[] = {{"DELFWT", "PHDELWT", "mFo-DFc"},
                                           {"FOFCWT", "PHFOFCWT", "mFo-DFc"},
                                           {"FAN", "PHAN", "FAN"},
                                           {"FOFOWT", "PHFOFOWT", "Fo-Fo"}};

std::span<const Convention> conventions(bool difference) {
  return difference ? std::span<const Convention>(difference_pairs)
                    : std::span<const Convention>(main_pairs);
}

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

bool holds(const std::string& text, const char* part) {
  return std::search(text.begin(), text.end(), part, part + std::strlen(part), [](char a, char b) {
           return std::toupper(static_cast<unsigned char>(a)) == b;
         }) != text.end();
}

const Convention* convention_of(const std::string& amplitude) {
  for (const bool difference : {false, true}) {
    for (const Convention& pair : conventions(difference)) {
      if (amplitude == pair.amplitude) return &pair;
    }
  }
  return nullptr;
}

// How likely a pair is what a map is wanted of: weighted coefficients before measured amplitudes,
// those of the model alone last.
constexpr int measured_kind = 2;
int unlikeliness(const MapLabels& pair) {
  const std::string label = pair.amplitude.substr(pair.amplitude.rfind('/') + 1);
  if (holds(label, "2FO") || holds(label, "2MFO") || label == "FWT") return 0;
  if (convention_of(label) || holds(label, "FOFC") || holds(label, "WT") || holds(label, "DM")) {
    return 1;
  }
  const bool of_model = holds(label, "MODEL") || holds(label, "CALC") || holds(label, "MASK") ||
                        label == "FC" || label.starts_with("FC_") || label.starts_with("FC-");
  return of_model ? 3 : measured_kind;
}

const MapLabels& example_among(const std::vector<MapLabels>& pairs, const std::string& near) {
  for (const MapLabels& pair : pairs) {
    if (pair.amplitude == near || pair.phase == near) return pair;
  }
  return *std::min_element(pairs.begin(), pairs.end(), [](const MapLabels& a, const MapLabels& b) {
    return unlikeliness(a) < unlikeliness(b);
  });
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

// What a phase may be called beside an amplitude: as in the usual pairs, with PH or PHI before the
// amplitude's name or in place of its F.
std::vector<std::string> phase_names(const std::string& amplitude) {
  if (const Convention* pair = convention_of(amplitude)) return {pair->phase};
  std::vector<std::string> names = {"PH" + amplitude, "PHI" + amplitude, "PHI_" + amplitude};
  if (amplitude.front() == 'F') {
    names.push_back("PHI" + amplitude.substr(1));
    names.push_back("PH" + amplitude.substr(1));
  }
  for (const char* measured : {"F", "FP", "FOBS", "F-obs", "FO"}) {
    if (amplitude == measured) names.insert(names.end(), {"PHIB", "PHI"});
  }
  return names;
}

// The phase called `name`: of the amplitude's own data set, else the only one.
const FileColumn* phase_called(const ReflectionFile& file, const std::string& name,
                               std::int32_t dataset) {
  const FileColumn* only = nullptr;
  for (const FileColumn* column : file.find(name)) {
    if (!is_phase(*column)) continue;
    if (column->dataset == dataset) return column;
    only = column;
  }
  return file.find(name).size() == 1 ? only : nullptr;
}

// By its name, else the first one behind the amplitude with no other amplitude between; null if
// there is none.
const FileColumn* phase_of(const ReflectionFile& file, const FileColumn& amplitude) {
  for (const std::string& name : phase_names(amplitude.label)) {
    if (const FileColumn* phase = phase_called(file, name, amplitude.dataset)) return phase;
  }
  const auto end = file.columns.end();
  auto at = file.columns.begin() + (&amplitude - file.columns.data()) + 1;
  at = std::find_if(at, end, [](const FileColumn& c) { return is_amplitude(c) || is_phase(c); });
  return at != end && is_phase(*at) ? &*at : nullptr;
}

MapLabels pair_of(const ReflectionFile& file, const FileColumn& amplitude,
                  const FileColumn& phase) {
  return {file.name_of(amplitude), file.name_of(phase), file_name_part(amplitude.label)};
}

// The pair of a label given alone.
MapLabels completed(const ReflectionFile& file, const std::string& amplitude,
                    const std::string& phase) {
  const FileColumn* given = only_column(file, amplitude + phase);
  if (phase.empty()) {
    const FileColumn* partner = phase_of(file, *given);
    if (partner) return pair_of(file, *given, *partner);
    refuse_labels(file, "no phase of " + file.path + " tells that it is that of " + amplitude +
                            ": name it with --phi");
  }
  std::vector<MapLabels> pairs = label_candidates(file);
  std::erase_if(pairs, [&](const MapLabels& pair) { return pair.phase != file.name_of(*given); });
  if (pairs.size() == 1) return pairs.front();
  refuse_labels(file,
                (pairs.empty() ? "no amplitude of " : "more than one amplitude of ") + file.path +
                    " goes with " + phase + ": name it with --f",
                phase);
}

}  // namespace

std::vector<MapLabels> label_candidates(const ReflectionFile& file) {
  std::vector<MapLabels> pairs;
  for (const FileColumn& column : file.columns) {
    if (!is_amplitude(column)) continue;
    const FileColumn* phase = phase_of(file, column);
    if (phase) pairs.push_back(pair_of(file, column, *phase));
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

std::string why_no_weight(const FileColumn& column) {
  const bool can_be = column.type == 'W' || *meaning_of(column.type) == '\0';
  return can_be ? std::string() : meaning_of(column.type);
}

void add_weight(const ReflectionFile& file, const std::string& weight, MapLabels& labels) {
  if (unlikeliness(labels) < measured_kind) {
    const std::string problem = "--weight " + weight + ": " + labels.amplitude +
                                " is weighted already, a second weight would spoil it";
    refuse_labels(file, problem);
  }
  const FileColumn* column = only_column(file, weight, labels.amplitude);
  if (const std::string what = why_no_weight(*column); !what.empty()) {
    refuse_labels(file, "column " + weight + " is no weight but " + what, labels.amplitude);
  }
  labels.weight = weight;
}

MapLabels measured_labels(const ReflectionFile& file) {
  std::vector<MapLabels> pairs = label_candidates(file);
  std::erase_if(pairs, [](const MapLabels& pair) { return unlikeliness(pair) != measured_kind; });
  if (pairs.size() == 1) return pairs.front();
  refuse_labels(file, format("%zu amplitudes with a phase could be weighted: name one with --f",
                             pairs.size()));
}

MapLabels usual_labels(const ReflectionFile& file, bool difference) {
  for (const Convention& pair : conventions(difference)) {
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
  MapLabels labels = {amplitude, phase, {}, {}};
  if (amplitude.empty() || phase.empty()) labels = completed(file, amplitude, phase);
  const FileColumn* f = only_column(file, labels.amplitude, phase);
  const FileColumn* phi = only_column(file, labels.phase, amplitude);
  if (const std::string what = why_no_amplitude(*f); !what.empty()) {
    refuse_labels(file, "column " + labels.amplitude + " is no amplitude but " + what, phase);
  }
  if (const std::string what = why_no_phase(*phi); !what.empty()) {
    refuse_labels(file, "column " + labels.phase + " is no phase but " + what, amplitude);
  }
  labels.kind = file_name_part(f->label);
  return labels;
}

std::string map_type(const MapLabels& labels) {
  const std::string amplitude = labels.amplitude.substr(labels.amplitude.rfind('/') + 1);
  const Convention* pair = convention_of(amplitude);
  const std::string weight = labels.weight.empty() ? "" : " times " + labels.weight;
  return pair ? pair->kind + (" (" + pair_text(labels) + ")") : pair_text(labels) + weight;
}

std::vector<std::string> passed_over(const ReflectionFile& file, bool difference) {
  std::vector<std::string> lines;
  for (const Convention& pair : conventions(difference)) {
    for (const FileColumn& column : file.columns) {
      if (!column.label.starts_with(pair.amplitude)) continue;
      const std::string rest = column.label.substr(std::strlen(pair.amplitude));
      if (!rest.empty() && std::isalnum(static_cast<unsigned char>(rest[0]))) continue;
      if (!why_no_amplitude(column).empty()) continue;
      const FileColumn* phase = phase_of(file, column);
      if (!phase) {
        lines.push_back(column.label + " is passed over: no column of phases goes with it");
      } else if (!is_amplitude(column)) {
        lines.push_back(
            format("%s is passed over: its type %c tells no amplitude; --f '%s' takes it "
                   "all the same",
                   column.label.c_str(), column.type, column.label.c_str()));
      } else {
        lines.push_back(column.label + " is passed over: it is none of the usual labels; --f '" +
                        column.label + "' makes its map");
      }
    }
  }
  return lines;
}

std::string usual_pairs(bool difference) {
  std::string text;
  for (const Convention& pair : conventions(difference)) {
    text += (text.empty() ? "" : ", ") + std::string(pair.amplitude) + "/" + pair.phase;
  }
  return text;
}

void refuse_labels(const ReflectionFile& file, const std::string& problem, const std::string& near,
                   const std::vector<std::string>& notes) {
  // The first line says it all: a table of many files has room for no more.
  const std::vector<MapLabels> pairs = label_candidates(file);
  std::string lines;
  for (const std::string& note : notes) lines += note + ".\n";
  if (pairs.empty()) {
    std::string text = problem + "; no amplitude has a phase.\n" + lines + "The columns are " +
                       columns_listed(file) + ".\n";
    if (file.batches > 0) text += format("These are unmerged data (%d batches). ", file.batches);
    text += "A map needs phases: take the file that phasing or refinement wrote.";
    throw LabelError(text, problem, pairs);
  }
  const MapLabels& example = example_among(pairs, near);
  throw LabelError(problem + "; amplitudes with phases in the file: " + listed(file) + ".\n" +
                       lines + "Name one, for example:\n  quorix map " + file.path + " --f '" +
                       example.amplitude + "' --phi '" + example.phase + "'",
                   problem, pairs);
}

}  // namespace qx
