#include "driver/commands/batch/record.h"

#include "core/output_file.h"
#include "driver/commands/command_error.h"
#include "driver/commands/file_kind.h"

#include <quorix/map.h>
#include <quorix/version.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <sys/stat.h>

namespace qx {

namespace fs = std::filesystem;

Json stamp_of(const std::string& path) {
  std::error_code error;
  Json stamp = {{"path", fs::absolute(path, error).lexically_normal().string()}};
  struct stat state = {};
  if (stat(path.c_str(), &state) != 0) return stamp;
  stamp["size"] = state.st_size;
  stamp["mtime_ns"] = std::int64_t{state.st_mtim.tv_sec} * 1'000'000'000 + state.st_mtim.tv_nsec;
  return stamp;
}

std::string text_of(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

Json read_json(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return {};
  Json json = Json::parse(file, nullptr, false);
  return json.is_discarded() ? Json() : json;
}

void remove_strays(const fs::path& folder) {
  std::error_code error;
  std::vector<fs::path> strays;
  for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator();
       at.increment(error)) {
    if (at->path().filename().string().starts_with(temporary_prefix)) strays.push_back(at->path());
  }
  for (const fs::path& stray : strays) (void)remove_stray(stray.c_str());
}

namespace {

// Intervals of the cell along x, y, z, of a whole map.
Json grid_of(const fs::path& path) {
  qx_ccp4_map map = {};
  if (qx_look_at_ccp4_map(path.c_str(), &map) < 0) return nullptr;
  return {map.intervals[0], map.intervals[1], map.intervals[2]};
}

// Empty if the file is as it was recorded.
std::string doubt_of_file(const fs::path& folder, const Json& file) {
  const std::string name = file.value("file", "");
  std::error_code error;
  const std::uintmax_t size = fs::file_size(folder / name, error);
  if (error) return name + " is gone";
  if (size != file.value("size", std::uintmax_t{0})) return name + " has another length";
  if (name.ends_with(".ccp4") &&
      qx_look_at_ccp4_map((folder / name).c_str(), nullptr) != static_cast<std::int64_t>(size))
    return name + " is damaged";
  return {};
}

std::string doubt_of(const Json& record, const Json& wanted, const fs::path& folder) {
  if (!record.is_object() || !record.contains("status")) return "not done yet";
  if (record.at("program") != wanted.at("program")) return "made by another version of the program";
  if (record.at("input") != wanted.at("input")) return "the input has changed";
  if (record.at("options") != wanted.at("options")) return "made with other options";
  if (record.value("model", Json()) != wanted.value("model", Json())) {
    return "made with another model, or the model has changed";
  }
  if (record.value("peaks", Json()) != wanted.value("peaks", Json())) {
    if (!wanted.contains("peaks")) return "made with peaks";
    return record.contains("peaks") ? "made with other levels of peaks" : "made without peaks";
  }
  if (record.at("option_files") != wanted.at("option_files"))
    return "a file that the options name has changed";
  if (record.at("status") != "done") return {};
  if (!record.contains("files") || record.at("files").empty()) return "it names no map";
  for (const Json& file : record.at("files")) {
    std::string doubt = doubt_of_file(folder, file);
    if (!doubt.empty()) return doubt;
  }
  return {};
}

std::vector<fs::path> files_in(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Scripts name what lies outside their folder from there, and move one folder up.
void move_names_up(const fs::path& path) {
  constexpr std::string_view from = "\"../";
  std::ifstream file(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; ++at) {
    text.replace(at, from.size(), "\"");
  }
  write_whole(path, text);
}

Json utc_now() {
  char text[sizeof "2000-01-01T00:00:00Z"] = {};
  const std::time_t now = std::time(nullptr);
  std::tm parts = {};
  gmtime_r(&now, &parts);
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

}  // namespace

DataSetFolder::DataSetFolder(const fs::path& output, const DataSet& set)
    : set_(set), folder_(output / set.name) {}

Json DataSetFolder::wanted(const std::vector<std::string>& map_options) const {
  Json files = Json::array();
  for (const std::string& option : map_options) {
    std::error_code error;
    if (fs::is_regular_file(option, error)) files.push_back(stamp_of(option));
  }
  Json json = {{"program", "quorix " QUORIX_VERSION},
               {"input", stamp_of(set_.path)},
               {"options", map_options},
               {"option_files", files}};
  if (set_.with_model || !set_.model.empty()) json["model"] = stamp_of(set_.model);
  if (set_.peaks) json["peaks"] = set_.levels.empty() ? Json(true) : Json(set_.levels);
  return Json::parse(text_of(json));  // comparable with what a file gives back
}

bool DataSetFolder::has_record() const {
  std::error_code error;
  return fs::exists(record_path(), error);
}

std::string DataSetFolder::foreign_file() const {
  const std::string record = record_path().string();
  const FileKind kind = kind_of(record);
  if (kind != FileKind::missing && kind != FileKind::empty) {
    const Json json = read_json(record);
    const bool own = json.is_object() && json.contains("program") && json["program"].is_string() &&
                     json["program"].get<std::string>().starts_with("quorix ");
    return own ? std::string() : record;
  }
  std::error_code error;
  const std::string log = (folder_ / "log.txt").string();
  return fs::exists(log, error) ? log : std::string();
}

bool DataSetFolder::takes_place_of(const fs::path& input) const {
  std::error_code error;
  const std::string name = input.filename().string();
  return fs::equivalent(input.parent_path(), folder_, error) &&
         (name == "result.json" || name == "log.txt" || name.ends_with(".ccp4") ||
          (set_.peaks && name == set_.name + "_sites.pdb") ||
          (set_.with_model && name == set_.name + ".mtz"));
}

Json DataSetFolder::record(const Json& wanted, std::string& doubt) const {
  Json json = read_json(record_path());
  try {
    doubt = doubt_of(json, wanted, folder_);
  } catch (const Json::exception&) {
    doubt = "the record is damaged";
  }
  return json;
}

bool DataSetFolder::is_complete(const Json& record) {
  return record["status"] == "done" && !record.value("found", Json()).contains("problem");
}

void DataSetFolder::clear_work() const {
  std::error_code error;
  fs::remove_all(work(), error);
  remove_strays(folder_);
}

void DataSetFolder::clear() const {
  const Json old = read_json(record_path());
  std::error_code error;
  fs::remove(record_path(), error);  // first: maps without a record count for nothing
  std::vector<std::string> names = {"log.txt", set_.name + "_2mFo-DFc.ccp4",
                                    set_.name + "_mFo-DFc.ccp4"};
  if (old.is_object() && old.contains("files") && old["files"].is_array()) {
    for (const Json& file : old["files"]) {
      if (file.is_object()) names.push_back(file.value("file", "log.txt"));
    }
  }
  for (const std::string& name : names) {
    if (name.find('/') == std::string::npos) fs::remove(folder_ / name, error);
  }
  clear_work();
}

std::vector<std::string> DataSetFolder::begin(const std::vector<std::string>& map_options) const {
  std::error_code error;
  if (fs::exists(folder_, error)) clear();
  fs::create_directories(work(), error);
  if (error) throw CommandError(2, "cannot make " + work().string() + ": " + error.message());
  const std::string stem = (work() / set_.name).string();
  std::vector<std::string> arguments = {"map", set_.path, "--json", "--prefix", stem};
  if (set_.with_model) {
    arguments = {"maps", set_.model, set_.path, "--json", "--maps", stem, "-o", stem + ".mtz"};
  }
  arguments.insert(arguments.end(), map_options.begin(), map_options.end());
  return arguments;
}

std::string DataSetFolder::map_to_search(const Json& report) const {
  if (set_.with_model) return set_.name + ".mtz";
  std::string file;
  for (const Json& map : report) {
    file = fs::path(map.at("map").get<std::string>()).filename().string();
  }
  return file;  // the difference map is the last
}

std::vector<std::string> DataSetFolder::search(const ChildResult& maps) const {
  std::string map;
  try {
    map = map_to_search(Json::parse(maps.output));
  } catch (const Json::exception&) {
    throw CommandError(2, "its report cannot be read");
  }
  const std::string sites = (work() / (set_.name + "_sites.pdb")).string();
  std::vector<std::string> arguments = {
      "peaks", (work() / map).string(), "--json", "-n", "10", "-o", sites};
  if (!set_.model.empty()) arguments.insert(arguments.end(), {"--model", set_.model});
  arguments.insert(arguments.end(), set_.levels.begin(), set_.levels.end());
  return arguments;
}

std::string DataSetFolder::check_report(Json& report) const {
  Json* maps = set_.with_model && report.is_object() ? &report["maps"] : &report;
  if (!maps->is_array() || maps->empty()) return "its report cannot be read";
  const char* key = set_.with_model ? "file" : "map";
  for (Json& map : *maps) {
    map[key] = fs::path(map.value(key, "")).filename().string();
    std::string doubt = doubt_of_file(work(), {{"file", map[key]}, {"size", 0}});
    if (doubt.ends_with("is gone")) return doubt;
    if (set_.with_model) map["grid"] = grid_of(work() / map[key].get<std::string>());
  }
  if (set_.with_model) report["output"] = set_.name + ".mtz";
  return {};
}

std::string DataSetFolder::keep_maps(const ChildResult& result, Json& record) const {
  Json report = Json::parse(result.output, nullptr, false);
  if (std::string doubt = check_report(report); !doubt.empty()) return doubt;
  const std::vector<fs::path> made = files_in(work());
  Json files = Json::array();
  for (const fs::path& path : made) {
    if (path.extension() != ".ccp4" && path.extension() != ".mtz") move_names_up(path);
    const std::string name = path.filename().string();
    files.push_back({{"file", name}, {"size", fs::file_size(path)}});
    std::string doubt = doubt_of_file(work(), files.back());
    if (!doubt.empty()) return doubt;
  }
  for (const fs::path& path : made) {
    const std::string target = (folder_ / path.filename()).string();
    const FileKind there = kind_of(target);
    if (there != FileKind::missing && there != FileKind::empty && there != kind_of(path.string())) {
      return target + " is there and is " + name_of(there);
    }
  }
  if (!result.no_search.empty()) {
    record["found"] = {{"problem", result.no_search}};
  } else if (set_.peaks) {
    Json found = Json::parse(result.found, nullptr, false);
    if (!found.is_object()) return "what was found in its map cannot be read";
    found["input"] = fs::path(found.value("input", "")).filename().string();
    found["output"] = set_.name + "_sites.pdb";
    record["found"] = found;
  }
  for (const fs::path& path : made) fs::rename(path, folder_ / path.filename());
  record["files"] = files;
  record["report"] = report;
  return {};
}

Json DataSetFolder::finish(const Json& wanted, const ChildResult& result) const {
  Json record = {{"name", set_.name}, {"status", "done"}, {"reason", ""}};
  record.update(wanted);
  record["date"] = utc_now();
  record["seconds"] = result.seconds;
  std::string reason = result.reason;
  try {
    if (result.done) reason = keep_maps(result, record);
  } catch (const std::exception& error) {  // a report of another shape, a full disc
    reason = error.what();
  }
  if (!reason.empty()) {
    record["status"] = result.timed_out ? "timed out" : "failed";
    record["reason"] = reason;
    write_whole(folder_ / "log.txt", result.output + result.errors);
  }
  std::error_code error;
  fs::remove_all(work(), error);
  write_whole(record_path(), text_of(record, 1) + "\n");
  return record;
}

}  // namespace qx
