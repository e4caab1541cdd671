// One grid for all data sets of a space group, so that their maps can be compared point by point.
#pragma once

#include "driver/commands/batch/record.h"

#include <array>
#include <unordered_map>

namespace qx {

// The largest counts along each axis among the grids that the data sets of a group would have by
// themselves. What was found is kept in a file, from which an interrupted or divided batch takes
// the same grids.
class SharedGrids {
 public:
  SharedGrids(const std::filesystem::path& output, const std::vector<DataSet>& sets,
              std::vector<std::string> map_options);

  // Takes over what the file holds of inputs that have not changed since.
  void load();
  void save() const;

  // Data sets whose own grid is not known.
  [[nodiscard]] std::vector<std::size_t> unknown() const;
  // Arguments of quorix map that tell a data set's own grid, and what came of them.
  [[nodiscard]] std::vector<std::string> question(std::size_t item) const;
  void answer(const ChildResult& result);
  // After the last answer.
  void settle();

  // Empty, or why no grid is known of the data set.
  [[nodiscard]] const std::string& problem(std::size_t item) const { return own_[item].reason; }
  // Options of quorix map with the grid of the data set's group.
  [[nodiscard]] std::vector<std::string> options(std::size_t item) const;
  // A line for each group.
  [[nodiscard]] std::vector<std::string> lines() const;

 private:
  using Counts = std::array<int, 3>;
  struct Own {
    std::string stamp;  // of the input
    std::string group;  // empty: not known
    Counts counts = {};
    std::string reason = "its grid has not been looked up";
  };
  [[nodiscard]] Json conditions() const;

  std::filesystem::path path_;
  const std::vector<DataSet>& sets_;
  std::vector<std::string> map_options_;
  std::vector<Own> own_;
  std::unordered_map<std::string, Counts> shared_;
};

}  // namespace qx
