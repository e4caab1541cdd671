#include "driver/commands/batch/grid.h"

#include "driver/commands/command_error.h"

#include <algorithm>

namespace qx {

SharedGrids::SharedGrids(const std::filesystem::path& output, const std::vector<DataSet>& sets,
                         std::vector<std::string> map_options)
    : path_(output / "shared_grid.json"),
      sets_(sets),
      map_options_(std::move(map_options)),
      own_(sets.size()) {}

// What the file must agree with: the same as a data set's record, but for the input.
Json SharedGrids::conditions() const {
  Json json = DataSetFolder({}, {}).wanted(map_options_);
  json.erase("input");
  return json;
}

void SharedGrids::load() {
  std::unordered_map<std::string, const Json*> known;
  const Json file = read_json(path_);
  if (file.is_object() && file.value("conditions", Json()) == conditions() &&
      file.contains("data_sets") && file["data_sets"].is_array()) {
    for (const Json& set : file["data_sets"]) {
      if (set.is_object() && set.contains("space_group")) {
        known[text_of(set.value("input", Json()))] = &set;
      }
    }
  }
  for (std::size_t i = 0; i < sets_.size(); ++i) {
    Own& own = own_[i];
    own.stamp = text_of(stamp_of(sets_[i].path));
    const auto found = known.find(own.stamp);
    if (found == known.end()) continue;
    try {
      own.counts = found->second->at("grid").get<Counts>();
      own.group = found->second->at("space_group").get<std::string>();
      own.reason.clear();
    } catch (const Json::exception&) {
      own.group.clear();  // a damaged entry: asked again
    }
  }
}

void SharedGrids::save() const {
  Json sets = Json::array();
  for (const Own& own : own_) {
    Json set = {{"input", Json::parse(own.stamp)}};
    if (own.group.empty()) {
      set["reason"] = own.reason;
    } else {
      set["space_group"] = own.group;
      set["grid"] = own.counts;
    }
    sets.push_back(std::move(set));
  }
  Json grids = Json::object();
  for (const auto& [group, counts] : shared_) grids[group] = counts;
  const Json file = {{"conditions", conditions()}, {"grids", grids}, {"data_sets", sets}};
  write_whole(path_, text_of(file, 1) + "\n");
}

std::vector<std::size_t> SharedGrids::unknown() const {
  std::vector<std::size_t> items;
  for (std::size_t i = 0; i < own_.size(); ++i) {
    if (own_[i].group.empty()) items.push_back(i);
  }
  return items;
}

std::vector<std::string> SharedGrids::question(std::size_t item) const {
  std::vector<std::string> arguments = {"map", sets_[item].path, "--show-grid", "--json"};
  arguments.insert(arguments.end(), map_options_.begin(), map_options_.end());
  return arguments;
}

void SharedGrids::answer(const ChildResult& result) {
  Own& own = own_[result.item];
  own.reason = result.reason;
  if (!result.done) return;
  try {
    for (const Json& map : Json::parse(result.output)) {
      const auto counts = map.at("grid").get<Counts>();
      for (std::size_t a = 0; a < 3; ++a)
        own.counts.at(a) = std::max(own.counts.at(a), counts.at(a));
      own.group = map.at("space_group").get<std::string>();
    }
  } catch (const Json::exception&) {
    own.reason = "its report cannot be read";
    own.group.clear();
  }
}

void SharedGrids::settle() {
  shared_.clear();
  for (const Own& own : own_) {
    if (own.group.empty()) continue;
    Counts& largest = shared_[own.group];
    for (std::size_t a = 0; a < 3; ++a) largest.at(a) = std::max(largest.at(a), own.counts.at(a));
  }
}

std::vector<std::string> SharedGrids::options(std::size_t item) const {
  std::vector<std::string> options;
  for (std::size_t i = 0; i < map_options_.size(); ++i) {
    const std::string& option = map_options_[i];
    // They decided the counts, and quorix map does not take them beside counts.
    if (option == "--frac" || option == "--spacing") {
      ++i;
    } else if (!option.starts_with("--frac=") && !option.starts_with("--spacing=")) {
      options.push_back(option);
    }
  }
  const auto found = shared_.find(own_[item].group);
  if (found == shared_.end()) return options;
  options.emplace_back("--grid");
  for (const int count : found->second) options.push_back(std::to_string(count));
  return options;
}

std::vector<std::string> SharedGrids::lines() const {
  std::vector<std::string> lines;
  for (const auto& shared : shared_) {
    const Counts& n = shared.second;
    const auto sets = std::count_if(own_.begin(), own_.end(),
                                    [&](const Own& own) { return own.group == shared.first; });
    lines.push_back(
        format("%s: %d x %d x %d for %td", shared.first.c_str(), n[0], n[1], n[2], sets));
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

}  // namespace qx
