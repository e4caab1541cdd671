// quorix info of a reflection file.
#include "driver/commands/info/info.h"
#include "driver/commands/map_labels.h"
#include "driver/commands/sections.h"

#include <algorithm>
#include <cmath>
#include <gemmi/reciproc.hpp>  // for count_reflections
#include <nlohmann/json.hpp>
#include <ostream>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

// Unique reflections between the limits of the rows; 0 if that cannot be told.
int expected_reflections(const ReflectionFile& file) {
  if (!file.group || file.batches > 0 || !are_countable(file.cell, file.resolution[0])) return 0;
  const double* c = file.cell;
  constexpr double slack = 1e-6;
  return gemmi::count_reflections(gemmi::UnitCell(c[0], c[1], c[2], c[3], c[4], c[5]), file.group,
                                  file.resolution[0] * (1 - slack),
                                  file.resolution[1] * (1 + slack));
}

Json column_info(const ReflectionFile& file, const FileColumn& column, int expected) {
  Json json = {{"label", column.label},
               {"type", std::string(1, column.type)},
               {"dataset", column.dataset},
               {"missing", column.missing()}};
  const std::size_t present = file.rows - column.missing();
  if (present == 0) return json;
  float low = INFINITY;
  float high = -INFINITY;
  for (const float value : column.values) {
    if (!std::isfinite(value)) continue;
    low = std::min(low, value);
    high = std::max(high, value);
  }
  json["minimum"] = low;
  json["maximum"] = high;
  if (expected > 0) json["completeness"] = static_cast<double>(present) / expected;
  return json;
}

Json usual_info(const ReflectionFile& file, bool difference) {
  try {
    const MapLabels labels = usual_labels(file, difference);
    if (labels.amplitude.empty()) return nullptr;
    return {labels.amplitude, labels.phase};
  } catch (const CommandError&) {  // the labels stand there more than once
    return nullptr;
  }
}

std::string pair_text(const Json& pair) {
  return pair.at(0).get<std::string>() + "/" + pair.at(1).get<std::string>();
}

void tell_columns(std::ostream& out, const Json& columns) {
  std::size_t width = 5;
  for (const Json& column : columns)
    width = std::max(width, column["label"].get<std::string>().size());
  const int w = static_cast<int>(width);
  out << format("%-*s type set      minimum      maximum  missing  complete\n", w, "column");
  for (const Json& column : columns) {
    out << format("%-*s  %s   %3d ", w, column["label"].get<std::string>().c_str(),
                  column["type"].get<std::string>().c_str(), column["dataset"].get<int>());
    if (column.contains("minimum")) {
      out << format("%12.6g %12.6g", column["minimum"].get<double>(),
                    column["maximum"].get<double>());
    } else {
      out << format("%12s %12s", "-", "-");
    }
    out << format(" %8zu", column["missing"].get<std::size_t>());
    if (column.contains("completeness")) {
      out << format("  %6.1f %%", 100.0 * column["completeness"].get<double>());
    }
    out << '\n';
  }
}

void tell_candidates(std::ostream& out, const Json& info) {
  out << "maps        ";
  if (info["map_candidates"].empty()) {
    out << "none: no amplitude has a phase behind it\n";
    return;
  }
  const char* comma = "";
  for (const Json& pair : info["map_candidates"]) {
    out << comma << pair_text(pair);
    if (pair == info["default_map"]) out << " (default)";
    if (pair == info["default_difference_map"]) out << " (default difference)";
    comma = ", ";
  }
  out << '\n';
}

}  // namespace

Json reflection_info(const std::string& path, bool verbose) {
  const ReflectionFile file = read_reflections(path, verbose);
  const int expected = expected_reflections(file);
  Json json = {{"file", path},
               {"format", file.from_mmcif ? "mmCIF" : "MTZ"},
               {"title", file.title},
               {"cell", std::vector<double>(file.cell, file.cell + 6)},
               {"space_group", file.group ? file.group->xhm() : std::string()},
               {"space_group_as_written", file.group_name},
               {"space_group_number", file.group_number},
               {"operators", file.operators},
               {"resolution", {file.resolution[0], file.resolution[1]}},
               {"reflections", file.rows},
               {"reflections_expected", expected},
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
  for (const FileColumn& column : file.columns) {
    json["columns"].push_back(column_info(file, column, expected));
  }
  json["map_candidates"] = Json::array();
  for (const MapLabels& pair : label_candidates(file)) {
    json["map_candidates"].push_back({pair.amplitude, pair.phase});
  }
  json["default_map"] = usual_info(file, false);
  json["default_difference_map"] = usual_info(file, true);
  return json;
}

void tell_reflections(std::ostream& out, const Json& info) {
  const auto text = [&](const char* key) { return info[key].get<std::string>(); };
  const auto c = info["cell"].get<std::vector<double>>();
  out << "file        " << text("file") << ", " << text("format") << '\n'
      << "title       " << text("title") << '\n'
      << format("cell        %g %g %g A, %g %g %g degrees\n", c[0], c[1], c[2], c[3], c[4], c[5])
      << format("group       %s (number %d, written '%s'), %zu operators\n",
                text("space_group").c_str(), info["space_group_number"].get<int>(),
                text("space_group_as_written").c_str(), info["operators"].size())
      << format("resolution  %.3f - %.2f A\n", info["resolution"][0].get<double>(),
                info["resolution"][1].get<double>())
      << format("reflections %zu", info["reflections"].get<std::size_t>());
  if (const int expected = info["reflections_expected"].get<int>()) {
    out << format(" rows, %d unique ones lie between these limits", expected);
  }
  out << '\n';
  if (const int batches = info["batches"].get<int>()) {
    out << format("batches     %d: unmerged data\n", batches);
  }
  for (const Json& set : info["datasets"]) {
    out << format("dataset %3d %s/%s/%s, wavelength %g\n", set["id"].get<int>(),
                  set["project"].get<std::string>().c_str(),
                  set["crystal"].get<std::string>().c_str(), set["name"].get<std::string>().c_str(),
                  set["wavelength"].get<double>());
  }
  for (const Json& line : info["history"]) out << "history     " << line.get<std::string>() << '\n';
  tell_columns(out, info["columns"]);
  tell_candidates(out, info);
}

}  // namespace qx
