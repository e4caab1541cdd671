#include "driver/commands/batch/table.h"

#include "driver/commands/command_error.h"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace qx {

namespace {

struct Column {
  const char* name;
  const char* number;  // format of its numbers
};

constexpr Column columns[] = {{"name", ""},
                              {"status", ""},
                              {"reason", ""},
                              {"resolution", "%.3f"},
                              {"low_resolution", "%.2f"},
                              {"space_group", ""},
                              {"grid", "%.0f"},
                              {"rms", "%.5f"},
                              {"rms_difference", "%.5f"},
                              {"reflections", "%.0f"},
                              {"warnings", ""},
                              {"seconds", "%.3f"},
                              {"input", ""},
                              {"map", ""},
                              {"difference_map", ""},
                              {"r_work", "%.4f"},
                              {"r_free", "%.4f"},
                              {"fom", "%.3f"},
                              {"model", ""},
                              {"coefficients", ""},
                              {"peaks", "%.0f"},
                              {"peak_rms", "%.2f"},
                              {"peak_xyz", "%.2f"},
                              {"peak_near", ""},
                              {"peak_distance", "%.2f"},
                              {"blobs", "%.0f"},
                              {"blob_score", "%.2f"},
                              {"blob_volume", "%.1f"},
                              {"blob_rms", "%.2f"},
                              {"blob_xyz", "%.2f"},
                              {"blob_near", ""},
                              {"blob_distance", "%.2f"},
                              {"sites", ""}};

// A field stays in its line and in its column.
std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\\':
        out += "\\\\";
        break;
      default:
        if (std::iscntrl(static_cast<unsigned char>(c))) {
          out += format("\\x%02x", static_cast<unsigned>(c));  // a terminal would obey it
        } else {
          out += c;
        }
    }
  }
  return out;
}

std::string field(const Json& value, const Column& column) {
  if (value.is_null()) return {};
  if (value.is_string()) return escaped(value.get<std::string>());
  if (value.is_number()) return format(column.number, value.get<double>());
  if (*column.number == '\0') return std::to_string(value.size());
  std::string text;
  for (const Json& item : value) {
    if (!text.empty()) text += ' ';
    text += field(item, column);
  }
  return text;
}

bool is_difference(const std::string& map) {
  return map.ends_with("_mFo-DFc.ccp4") || map.ends_with("_FAN.ccp4");
}

void add_report(const Json& report, const std::string& folder, Json& row) {
  const Json& first = report.at(0);
  row["resolution"] = first.at("resolution").at(0);
  row["low_resolution"] = first.at("resolution").at(1);
  row["space_group"] = first.at("space_group");
  row["grid"] = first.at("grid");
  row["reflections"] = first.at("reflections_used");
  Json warnings = Json::array();
  for (const Json& map : report) {
    const auto file = map.at("map").get<std::string>();
    const bool difference = is_difference(file);
    row[difference ? "rms_difference" : "rms"] = map.at("rms_about_zero");
    row[difference ? "difference_map" : "map"] = folder + file;
    for (const Json& warning : map.at("warnings")) warnings.push_back(warning);
  }
  row["warnings"] = warnings;
}

// Of quorix maps.
void add_model_report(const Json& report, const std::string& folder, Json& row) {
  double high = INFINITY;
  double low = 0.0;
  for (const Json& bin : report.at("r").at("bins")) {
    high = std::min(high, bin.at("resolution").at(0).get<double>());
    low = std::max(low, bin.at("resolution").at(1).get<double>());
  }
  if (low > 0.0) {
    row["resolution"] = high;
    row["low_resolution"] = low;
  }
  row["space_group"] = report.at("space_group");
  row["reflections"] = report.at("reflections").at("observed");
  for (const Json& map : report.at("maps")) {
    const bool difference = map.at("difference").get<bool>();
    row["grid"] = map.at("grid");
    row[difference ? "rms_difference" : "rms"] = map.at("rms");
    row[difference ? "difference_map" : "map"] = folder + map.at("file").get<std::string>();
  }
  for (const char* set : {"work", "free"}) {
    const Json& agreement = report.at("r").at(set);
    if (!agreement.is_null()) row[std::string("r_") + set] = agreement.at("r");
  }
  row["fom"] = report.at("fom");
  row["model"] = report.at("model");
  row["coefficients"] = folder + report.at("output").get<std::string>();
  row["warnings"] = report.at("warnings");
}

// The first above zero of a list: what a ligand would be.
const Json* first_above(const Json& sites, const char* key) {
  for (const Json& site : sites) {
    if (site.at(key).get<double>() > 0.0) return &site;
  }
  return nullptr;
}

void add_site(const Json& site, const std::string& kind, Json& row) {
  row[kind + "_xyz"] = site.at("xyz");
  row[kind + "_near"] = site.value("nearest", Json());
  row[kind + "_distance"] = site.value("distance", Json());
}

// Of quorix peaks. Without them the maps stand all the same, and the row tells why.
void add_found(const Json& found, const std::string& folder, Json& row) {
  if (found.contains("problem")) {
    const std::string problem = "no peaks: " + found.at("problem").get<std::string>();
    row["warnings"].push_back(problem);
    row["reason"] = problem;
    return;
  }
  row["peaks"] = found.at("peaks_found");
  row["blobs"] = found.at("blobs_found");
  row["sites"] = folder + found.at("output").get<std::string>();
  if (const Json* peak = first_above(found.at("peaks"), "rms")) {
    row["peak_rms"] = peak->at("rms");
    add_site(*peak, "peak", row);
  }
  if (const Json* blob = first_above(found.at("blobs"), "score")) {
    row["blob_score"] = blob->at("score");
    row["blob_volume"] = blob->at("volume");
    row["blob_rms"] = blob->at("peak_rms");
    add_site(*blob, "blob", row);
  }
  row["model"] = found.value("model", Json());
  for (const Json& warning : found.at("warnings")) row["warnings"].push_back(warning);
}

}  // namespace

Json table_row(const DataSet& set, const Json& record, const std::string& doubt) {
  Json row;
  for (const Column& column : columns) row[column.name] = nullptr;
  row["name"] = set.name;
  row["input"] = stamp_of(set.path)["path"];
  row["status"] = "not done";
  row["reason"] = doubt;
  if (!doubt.empty()) return row;
  try {
    if (record.contains("report")) {
      const Json& report = record["report"];
      (report.is_object() ? add_model_report : add_report)(report, set.name + "/", row);
    }
    row["seconds"] = record.at("seconds");
    row["reason"] = record.at("reason");
    if (record.contains("found")) add_found(record["found"], set.name + "/", row);
    row["status"] = record.at("status");
  } catch (const Json::exception&) {
    row["reason"] = "the record is damaged";
  }
  return row;
}

void ResultsTable::File::open() {
  if (!file.open(path.c_str())) refuse_writing(path);
}

void ResultsTable::File::write(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), file.stream()) != text.size()) refuse_writing(path);
}

void ResultsTable::File::commit() {
  if (!file.commit()) refuse_writing(path);
}

ResultsTable::ResultsTable(const std::filesystem::path& stem)
    : tsv_{stem.string() + ".tsv", {}}, json_{stem.string() + ".json", {}} {
  tsv_.open();
  json_.open();
  std::string line;
  for (const Column& column : columns)
    line += (line.empty() ? "" : "\t") + std::string(column.name);
  tsv_.write(line + "\n");
  json_.write("[");
}

void ResultsTable::add(const Json& row) {
  std::string line;
  for (const Column& column : columns) {
    line += (&column == columns ? "" : "\t") + field(row[column.name], column);
  }
  tsv_.write(line + "\n");
  json_.write((empty_ ? "\n " : ",\n ") + text_of(row));
  empty_ = false;
}

void ResultsTable::finish() {
  json_.write("\n]\n");
  tsv_.commit();
  json_.commit();
}

}  // namespace qx
