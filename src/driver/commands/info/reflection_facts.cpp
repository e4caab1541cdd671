#include "driver/commands/info/reflection_facts.h"

#include "driver/commands/command_error.h"
#include "driver/commands/unique_reflections.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <numeric>
#include <ostream>
#include <span>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

// Unique reflections between the limits of the rows; 0 if that cannot be told.
int expected_reflections(const ReflectionFile& file) {
  if (!file.group || file.batches > 0 || !are_countable(file.cell, file.resolution[0])) return 0;
  const double* c = file.cell;
  constexpr double slack = 1e-6;
  const gemmi::UnitCell cell(c[0], c[1], c[2], c[3], c[4], c[5]);
  UniqueReflections unique(cell, file.group, file.resolution[0] * (1 - slack),
                           file.resolution[1] * (1 + slack));
  return static_cast<int>(unique.count());
}

// Several at a time, which a compiler makes one instruction of.
constexpr std::size_t lanes = 16;

struct LaneFacts {
  std::int32_t present[lanes] = {};
  float minimum[lanes], maximum[lanes];

  LaneFacts() {
    std::fill(minimum, minimum + lanes, INFINITY);
    std::fill(maximum, maximum + lanes, -INFINITY);
  }
  void add(const float* values, std::size_t n) {
    for (std::size_t k = 0; k < n; ++k) {
      const bool finite = std::fabs(values[k]) <= std::numeric_limits<float>::max();
      const float low = finite ? values[k] : INFINITY;
      const float high = finite ? values[k] : -INFINITY;
      present[k] += finite ? 1 : 0;
      minimum[k] = low < minimum[k] ? low : minimum[k];
      maximum[k] = high > maximum[k] ? high : maximum[k];
    }
  }
};

ColumnFacts facts_of(const ReflectionFile& file, const FileColumn& column) {
  ColumnFacts facts = {column.label, column.type, column.dataset, 0, 0, INFINITY, -INFINITY};
  const std::span<const float> values = column.values;
  LaneFacts found;
  std::size_t i = 0;
  for (; i + lanes <= values.size(); i += lanes) found.add(values.data() + i, lanes);
  found.add(values.data() + i, values.size() - i);
  facts.present = static_cast<std::size_t>(
      std::accumulate(found.present, found.present + lanes, std::int64_t{0}));
  facts.minimum = *std::min_element(found.minimum, found.minimum + lanes);
  facts.maximum = *std::max_element(found.maximum, found.maximum + lanes);
  facts.missing = file.rows - facts.present;
  return facts;
}

std::optional<MapLabels> usual_of(const ReflectionFile& file, bool difference) {
  try {
    MapLabels labels = usual_labels(file, difference);
    if (!labels.amplitude.empty()) return labels;
  } catch (const CommandError&) {  // the labels stand there more than once
  }
  return {};
}

Json json_of(const ReflectionFacts& facts, const ColumnFacts& column) {
  Json json = {{"label", column.label},
               {"type", std::string(1, column.type)},
               {"dataset", column.dataset},
               {"missing", column.missing}};
  if (column.present == 0) return json;
  json["minimum"] = column.minimum;
  json["maximum"] = column.maximum;
  if (const auto complete = facts.completeness(column)) json["completeness"] = *complete;
  return json;
}

// A cell; that of an MTZ file is shown also where it is none.
bool is_told(const ReflectionFile& file) { return !file.readable.is_table || file.has_cell(); }

Json json_of(const MapLabels& pair) { return {pair.amplitude, pair.phase}; }
Json json_of(const std::optional<MapLabels>& pair) { return pair ? json_of(*pair) : Json(); }

void tell_columns(std::ostream& out, const ReflectionFacts& facts) {
  std::size_t width = 5;
  for (const ColumnFacts& column : facts.columns) width = std::max(width, column.label.size());
  const int w = static_cast<int>(width);
  out << format("%-*s type set      minimum      maximum  missing  complete\n", w, "column");
  for (const ColumnFacts& column : facts.columns) {
    const char type[2] = {column.type, 0};
    out << format("%-*s  %s   %3d ", w, column.label.c_str(), type, column.dataset);
    if (column.present > 0) {
      out << format("%12.6g %12.6g", static_cast<double>(column.minimum),
                    static_cast<double>(column.maximum));
    } else {
      out << format("%12s %12s", "-", "-");
    }
    out << format(" %8zu", column.missing);
    if (const auto complete = facts.completeness(column)) {
      out << format("  %6.1f %%", 100.0 * *complete);
    }
    out << '\n';
  }
}

bool same(const MapLabels& pair, const std::optional<MapLabels>& other) {
  return other && pair.amplitude == other->amplitude && pair.phase == other->phase;
}

void tell_candidates(std::ostream& out, const ReflectionFacts& facts) {
  out << "maps        ";
  if (facts.candidates.empty()) {
    out << "none: no amplitude has a phase behind it\n";
    return;
  }
  const char* comma = "";
  for (const MapLabels& pair : facts.candidates) {
    out << comma << pair.amplitude << '/' << pair.phase;
    if (same(pair, facts.usual)) out << " (default)";
    if (same(pair, facts.usual_difference)) out << " (default difference)";
    comma = ", ";
  }
  out << '\n';
}

}  // namespace

std::optional<double> ReflectionFacts::completeness(const ColumnFacts& column) const {
  if (column.present == 0 || expected < 1) return {};
  return static_cast<double>(column.present) / expected;
}

ReflectionFacts read_reflection_facts(Engine& engine, const std::string& path) {
  ReflectionFacts facts;
  facts.file = read_without_crystal(engine, path);
  facts.expected = expected_reflections(facts.file);
  for (const FileColumn& column : facts.file.columns) {
    facts.columns.push_back(facts_of(facts.file, column));
  }
  facts.candidates = label_candidates(facts.file);
  facts.usual = usual_of(facts.file, false);
  facts.usual_difference = usual_of(facts.file, true);
  return facts;
}

Json to_json(const ReflectionFacts& facts) {
  const ReflectionFile& file = facts.file;
  Json json = {
      {"file", file.path},
      {"format", file.readable.format},
      {"title", file.title},
      {"cell", is_told(file) ? Json(std::vector<double>(file.cell, file.cell + 6)) : Json()},
      {"space_group", file.group ? file.group->xhm() : std::string()},
      {"space_group_as_written", file.group_name},
      {"space_group_number", file.group_number},
      {"operators", file.operators},
      {"resolution", is_told(file) ? Json({file.resolution[0], file.resolution[1]}) : Json()},
      {"reflections", file.rows},
      {"reflections_expected", facts.expected},
      {"batches", file.batches},
      {"history", file.history}};
  json["datasets"] = Json::array();
  for (const FileDataset& set : file.datasets) {
    json["datasets"].push_back({{"id", set.id},
                                {"project", set.project},
                                {"crystal", set.crystal},
                                {"name", set.name},
                                {"wavelength", set.wavelength}});
  }
  json["columns"] = Json::array();
  for (const ColumnFacts& column : facts.columns) {
    json["columns"].push_back(json_of(facts, column));
  }
  json["map_candidates"] = Json::array();
  for (const MapLabels& pair : facts.candidates) json["map_candidates"].push_back(json_of(pair));
  json["default_map"] = json_of(facts.usual);
  json["default_difference_map"] = json_of(facts.usual_difference);
  return json;
}

void tell(std::ostream& out, const ReflectionFacts& facts) {
  const ReflectionFile& file = facts.file;
  const auto& c = file.cell;
  const std::string group = file.group ? file.group->xhm() : std::string();
  out << "file        " << file.path << ", " << file.readable.format << '\n'
      << "title       " << file.title << '\n'
      << (is_told(file) ? format("cell        %g %g %g A, %g %g %g degrees\n", c[0], c[1], c[2],
                                 c[3], c[4], c[5])
                        : "cell        not told\n")
      << (file.readable.is_table && !file.group
              ? "group       not told\n"
              : format("group       %s (number %d, written '%s'), %zu operators\n", group.c_str(),
                       file.group_number, file.group_name.c_str(), file.operators.size()));
  if (is_told(file)) {
    out << format("resolution  %.3f - %.2f A\n", file.resolution[0], file.resolution[1]);
  }
  out << format("reflections %zu", file.rows);
  if (facts.expected > 0) {
    out << format(" rows, %d unique ones lie between these limits", facts.expected);
  }
  out << '\n';
  if (file.batches > 0) out << format("batches     %d: unmerged data\n", file.batches);
  for (const FileDataset& set : file.datasets) {
    out << format("dataset %3d %s/%s/%s, wavelength %g\n", set.id, set.project.c_str(),
                  set.crystal.c_str(), set.name.c_str(), set.wavelength);
  }
  for (const std::string& line : file.history) out << "history     " << line << '\n';
  tell_columns(out, facts);
  tell_candidates(out, facts);
}

}  // namespace qx
