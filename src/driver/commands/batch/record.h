// What a batch leaves of a data set: a folder with the maps and, written last, a record that says
// what they were made of. Maps come to be in a hidden folder and are moved when all is well.
#pragma once

#include "driver/commands/batch/inputs.h"
#include "driver/commands/batch/pool.h"
#include "driver/commands/whole_file.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace qx {

using Json = nlohmann::ordered_json;

// A file as it is now: path from the root, size and time of change.
Json stamp_of(const std::string& path);

// As a file holds it: text that is not UTF-8 with marks in its place.
std::string text_of(const Json& json, int indent = -1);

// A file of JSON; null if there is none or it is damaged.
Json read_json(const std::filesystem::path& path);

// Removes what writers that were killed left in a folder.
void remove_strays(const std::filesystem::path& folder);

class DataSetFolder {
 public:
  DataSetFolder(const std::filesystem::path& output, const DataSet& set);

  // What a record must agree with: program, input, options, and the files that the options name.
  [[nodiscard]] Json wanted(const std::vector<std::string>& map_options) const;
  [[nodiscard]] bool has_record() const;
  // A file that would be written over and does not look like a batch's; empty without.
  [[nodiscard]] std::string foreign_file() const;
  // True if the input itself has a name that the results would take.
  [[nodiscard]] bool takes_place_of(const std::filesystem::path& input) const;
  // The record, and in `doubt` why it cannot be relied on; empty if it can.
  [[nodiscard]] Json record(const Json& wanted, std::string& doubt) const;

  // Nothing is left to do, as far as a record that can be relied on tells.
  [[nodiscard]] static bool is_complete(const Json& record);

  // Removes the record with the maps that it names, and what a killed run left.
  void clear() const;
  // Removes what an unfinished run left, and nothing else.
  void clear_work() const;
  // Makes the folder ready and gives the arguments of quorix map.
  [[nodiscard]] std::vector<std::string> begin(const std::vector<std::string>& map_options) const;
  // Arguments of quorix peaks, for maps that were just made.
  [[nodiscard]] std::vector<std::string> search(const ChildResult& maps) const;
  // Keeps the maps of a child that succeeded, or the log of one that did not, and then the record,
  // which is returned.
  Json finish(const Json& wanted, const ChildResult& result) const;

 private:
  [[nodiscard]] std::filesystem::path work() const { return folder_ / ".work"; }
  [[nodiscard]] std::filesystem::path record_path() const { return folder_ / "result.json"; }
  // Makes the names in the report those of the files. Empty, or what is wrong.
  std::string check_report(Json& report) const;
  // The map that peaks are looked for in, among those of a report.
  [[nodiscard]] std::string map_to_search(const Json& report) const;
  // Empty, or what is wrong.
  std::string keep_maps(const ChildResult& result, Json& record) const;

  DataSet set_;
  std::filesystem::path folder_;
};

}  // namespace qx
