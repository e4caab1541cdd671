// What a CCP4 map holds: read once, told as lines or as JSON.
#pragma once

#include "driver/commands/info/map_symmetry.h"

#include <quorix/map.h>

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace qx {

// Whether the density has the symmetry that the file claims.
struct SymmetryFacts {
  std::string unreadable;  // what is wrong with the operators; empty: they were read
  std::size_t operators = 0;
  SymmetryCheck check;

  [[nodiscard]] bool obeyed() const { return check.correlation > 0.99; }
  [[nodiscard]] std::string text() const;
};

struct MapFacts {
  std::string file, format = "CCP4 map";
  qx_ccp4_map map = {};  // of its header; the density is gone
  std::int32_t mode = 2;
  std::string axis_order;  // "xyz": columns run along x
  bool big_endian = false;
  std::string origin;                        // words 50-52 in words
  std::vector<std::string> labels, records;  // of symmetry, as the file has them
  // Of the density itself.
  double minimum = 0, maximum = 0, mean = 0;
  double rms = 0, deviation = 0;  // about zero and about the mean
  SymmetryFacts symmetry;

  [[nodiscard]] std::string group() const;  // empty for a number that none has
  // The records, else the operators of the group's number.
  [[nodiscard]] std::vector<std::string> operators() const;
};

// Throws CommandError after a report of the engine.
MapFacts read_map_facts(const std::string& path, bool verbose);
// Also hands the density on while it is there; `visit` gives false after a report of the engine.
MapFacts read_map_facts(const std::string& path, bool verbose,
                        const std::function<bool(const qx_ccp4_map&, const MapFacts&)>& visit);

// What is told of a density that `facts.map` describes, [z][y][x].
void note_density(const double* values, MapFacts& facts);

// Under names that scripts can rely on.
nlohmann::ordered_json to_json(const MapFacts& facts);
void tell(std::ostream& out, const MapFacts& facts);

}  // namespace qx
