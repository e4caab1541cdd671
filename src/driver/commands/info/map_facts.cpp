#include "driver/commands/info/map_facts.h"

#include "driver/commands/command_error.h"
#include "driver/commands/engine_run.h"
#include "driver/commands/readable_file.h"

#include <quorix/map.h>
#include <quorix/memory.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gemmi/symmetry.hpp>  // for find_spacegroup_by_number
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

std::string trimmed(std::string text) {
  const std::size_t end = text.find_last_not_of(std::string(" \0\n\r", 4));
  text.erase(end == std::string::npos ? 0 : end + 1);
  return text;
}

std::string origin_text(const qx_ccp4_description& file) {
  if (file.has_origin == 0) return "blank";
  const float(&at)[3] = file.origin;
  return format("%g %g %g", static_cast<double>(at[0]), static_cast<double>(at[1]),
                static_cast<double>(at[2]));
}

const char* mode_text(std::int32_t mode) {
  switch (mode) {
    case 0:
      return "8-bit integers";
    case 1:
      return "16-bit integers";
    case 6:
      return "unsigned 16-bit integers";
    default:
      return "32-bit reals";
  }
}

std::string coverage(const qx_ccp4_map& map) {
  const bool whole = std::equal(map.counts, map.counts + 3, map.intervals,
                                [](auto count, auto n) { return count >= n; });
  return whole ? "the whole cell" : "a box";
}

// Word 55 is one of two things.
std::string rms_text(double said, double about_zero, double about_mean) {
  const double slack = 1e-4 * (about_zero + 1e-30);
  const double from_zero = std::fabs(said - about_zero);
  const double from_mean = std::fabs(said - about_mean);
  if (std::min(from_zero, from_mean) < slack) {
    // More than the digits of the header tell apart.
    const bool alike = std::fabs(about_zero - about_mean) < 1e-6 * about_zero;
    if (alike) return "rms, about zero and about the mean alike";
    return from_zero < from_mean ? "rms about zero" : "deviation about the mean";
  }
  return "neither rms nor deviation of this density";
}

template <class T>
SymmetryFacts symmetry_of(const qx_ccp4_map& map, const T* values,
                          const std::vector<std::string>& operators) {
  SymmetryFacts facts;
  try {
    facts.check = check_symmetry(map, values, operators);
    facts.operators = operators.size();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    facts.unreadable = error.what();
  }
  return facts;
}

void note_header(const qx_ccp4_description& file, MapFacts& facts) {
  facts.mode = file.mode;
  facts.big_endian = file.swapped == 1;
  facts.origin = origin_text(file);
  for (const std::int32_t axis : file.axes) facts.axis_order += "xyz"[axis - 1];
  for (std::int32_t i = 0; i < file.nlabels; ++i) {
    facts.labels.push_back(trimmed(std::string(file.labels[i], 80)));
  }
  for (std::int32_t i = 0; i < file.nrecords; ++i) {
    facts.records.push_back(trimmed(std::string(file.records + 80 * std::ptrdiff_t{i}, 80)));
  }
}

// By planes, which are small enough to stay in the cache as doubles.
template <class T>
void note_statistics(const qx_ccp4_map& map, const T* values, MapFacts& facts) {
  const std::size_t points =
      static_cast<std::size_t>(map.counts[0]) * static_cast<std::size_t>(map.counts[1]);
  std::vector<double> plane(points);
  facts.minimum = INFINITY;
  facts.maximum = -INFINITY;
  double squares = 0.0;
  for (std::int32_t z = 0; z < map.counts[2]; ++z) {
    std::copy_n(values + static_cast<std::size_t>(z) * points, points, plane.begin());
    const qx_density_statistics found =
        qx_calc_density_statistics(plane.data(), static_cast<std::int64_t>(points));
    facts.minimum = std::min(facts.minimum, found.minimum);
    facts.maximum = std::max(facts.maximum, found.maximum);
    facts.mean += found.mean / map.counts[2];
    squares += found.rms * found.rms / map.counts[2];
  }
  facts.rms = std::sqrt(squares);
  facts.deviation = std::sqrt(std::max(0.0, squares - facts.mean * facts.mean));
}

template <class T>
void note_all(const qx_ccp4_map& map, const qx_ccp4_description& file, const T* values,
              MapFacts& facts) {
  facts.map = map;
  facts.map.density = nullptr;
  note_header(file, facts);
  note_statistics(map, values, facts);
  facts.symmetry = symmetry_of(map, values, facts.operators());
}

// The map as the engine reads it.
struct ReadableMap {
  std::unique_ptr<TemporaryFile> unpacked;
  std::string path;

  explicit ReadableMap(const std::string& packed) : path(packed) {
    if (!is_gzipped(packed)) return;
    unpacked = std::make_unique<TemporaryFile>();
    unpack(packed, *unpacked);
    path = unpacked->path();
  }
};

Json json_of(const SymmetryFacts& facts, bool from_records) {
  Json json = {{"operators_from", from_records ? "records" : "the group's number"}};
  if (!facts.unreadable.empty()) {
    json["unreadable"] = facts.unreadable;
    return json;
  }
  json["operators"] = facts.operators;
  json["pairs"] = facts.check.pairs;
  if (facts.check.pairs == 0) return json;
  json["correlation"] = facts.check.correlation;
  json["largest_difference"] = facts.check.largest;
  json["obeyed"] = facts.obeyed();
  return json;
}

Json statistics_json(const MapFacts& facts) {
  const qx_ccp4_map& header = facts.map;
  return {{"header",
           {{"minimum", header.minimum},
            {"maximum", header.maximum},
            {"mean", header.mean},
            {"rms", header.rms}}},
          {"recomputed",
           {{"minimum", facts.minimum},
            {"maximum", facts.maximum},
            {"mean", facts.mean},
            {"rms_about_zero", facts.rms},
            {"rms_about_mean", facts.deviation}}},
          {"word_55", rms_text(header.rms, facts.rms, facts.deviation)}};
}

const char* byte_order(const MapFacts& facts) {
  return facts.big_endian ? "big-endian" : "little-endian";
}

std::string triple(const std::int32_t (&n)[3]) { return format("%d %d %d", n[0], n[1], n[2]); }

}  // namespace

std::string SymmetryFacts::text() const {
  if (!unreadable.empty()) return "not checked: " + unreadable;
  if (operators < 2) return "none to check";
  if (check.pairs == 0) return "not checked: no two related points lie in the map";
  return (obeyed() ? "obeyed" : "NOT OBEYED") +
         format(": correlation %.6f of %lld related pairs, largest difference %.2g deviations",
                check.correlation, static_cast<long long>(check.pairs), check.largest);
}

std::string MapFacts::group() const {
  const gemmi::SpaceGroup* group = gemmi::find_spacegroup_by_number(map.space_group);
  return group ? group->xhm() : std::string();
}

std::vector<std::string> MapFacts::operators() const {
  return records.empty() ? operators_of_group(map.space_group) : records;
}

void note_density(const double* values, MapFacts& facts) {
  note_statistics(facts.map, values, facts);
  facts.symmetry = symmetry_of(facts.map, values, facts.operators());
}

MapFacts read_map_facts(const std::string& path, bool verbose) {
  const ReadableMap readable(path);
  MapFacts facts;
  facts.file = path;
  Engine engine(verbose);
  engine.call([&] {
    qx_ccp4_map map = {};
    qx_ccp4_description file = {};
    float* values = nullptr;
    if (qx_rd_described_ccp4_floats(readable.path.c_str(), &map, &file, &values) != ok) {
      return failed;
    }
    note_all(map, file, values, facts);
    if (file.records && xfree(file.records) != ok) return failed;
    return xfree(values);
  });
  return facts;
}

MapFacts read_map_facts(const std::string& path, bool verbose,
                        const std::function<bool(const qx_ccp4_map&, const MapFacts&)>& visit) {
  const ReadableMap readable(path);
  MapFacts facts;
  facts.file = path;
  Engine engine(verbose);
  engine.call([&] {
    qx_ccp4_map map = {};
    qx_ccp4_description file = {};
    if (qx_rd_described_ccp4_map(readable.path.c_str(), &map, &file) != ok) return failed;
    note_all(map, file, map.density[0][0], facts);
    if (file.records && xfree(file.records) != ok) return failed;
    if (!visit(map, facts)) return failed;
    return xfree_3d_double(map.density);
  });
  return facts;
}

Json to_json(const MapFacts& facts) {
  const qx_ccp4_map& map = facts.map;
  return {{"file", facts.file},
          {"format", facts.format},
          {"points", map.counts},
          {"starts", map.starts},
          {"intervals", map.intervals},
          {"covers", coverage(map)},
          {"mode", facts.mode},
          {"values", mode_text(facts.mode)},
          {"axis_order", facts.axis_order},
          {"byte_order", byte_order(facts)},
          {"cell", std::vector<double>(map.cell, map.cell + 6)},
          {"space_group", facts.group()},
          {"space_group_number", map.space_group},
          {"symmetry_records", facts.records},
          {"origin", facts.origin},
          {"labels", facts.labels},
          {"statistics", statistics_json(facts)},
          {"symmetry", json_of(facts.symmetry, !facts.records.empty())}};
}

void tell(std::ostream& out, const MapFacts& facts) {
  const qx_ccp4_map& map = facts.map;
  const auto& c = map.cell;
  const bool ccp4 = facts.format == "CCP4 map";
  out << "file        " << facts.file << ", " << facts.format;
  if (ccp4) out << " of " << mode_text(facts.mode) << ", " << byte_order(facts);
  out << '\n'
      << "points      " << triple(map.counts) << " along x y z, from " << triple(map.starts)
      << ", of " << triple(map.intervals) << " in the cell: " << coverage(map) << '\n'
      << "axes        columns, rows, sections run along " << facts.axis_order << '\n'
      << format("cell        %g %g %g A, %g %g %g degrees\n", c[0], c[1], c[2], c[3], c[4], c[5])
      << format("group       %s (number %d), %zu symmetry records\n", facts.group().c_str(),
                map.space_group, facts.records.size());
  if (ccp4) out << "origin      " << facts.origin << " (words 50-52)\n";
  out << format(
      "density     minimum %g, maximum %g, mean %g, rms %g about zero, %g about the mean\n",
      facts.minimum, facts.maximum, facts.mean, facts.rms, facts.deviation);
  if (ccp4) {
    out << format("header says minimum %g, maximum %g, mean %g; word 55 is %g: %s\n", map.minimum,
                  map.maximum, map.mean, map.rms,
                  rms_text(map.rms, facts.rms, facts.deviation).c_str());
  }
  out << "symmetry    " << facts.symmetry.text() << '\n';
  for (const std::string& label : facts.labels) out << "label       " << label << '\n';
}

}  // namespace qx
