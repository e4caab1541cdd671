// What a reflection file holds: told as lines or as JSON.
#pragma once

#include "driver/commands/map_labels.h"
#include "driver/commands/reflection_file.h"

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace qx {

struct ColumnFacts {
  std::string label;
  char type;
  std::int32_t dataset;
  std::size_t missing, present;
  float minimum, maximum;  // of those present
};

struct ReflectionFacts {
  ReflectionFile file;
  int expected = 0;  // unique reflections between the limits of the rows; 0 if that cannot be told
  std::vector<ColumnFacts> columns;
  std::vector<MapLabels> candidates;
  std::optional<MapLabels> usual, usual_difference;  // what maps are made of if nothing is said

  // 0 to 1 of what is expected; none if that is not known.
  [[nodiscard]] std::optional<double> completeness(const ColumnFacts& column) const;
};

// Throws CommandError as read_reflections.
ReflectionFacts read_reflection_facts(Engine& engine, const std::string& path);

// Under names that scripts can rely on.
nlohmann::ordered_json to_json(const ReflectionFacts& facts);
void tell(std::ostream& out, const ReflectionFacts& facts);

}  // namespace qx
