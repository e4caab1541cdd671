// quorix info of a CCP4 map.
#include "core/view3.h"
#include "driver/commands/info/info.h"
#include "driver/commands/info/map_symmetry.h"
#include "driver/commands/readable_file.h"
#include "driver/commands/sections.h"
#include "map/box.h"
#include "map/ccp4_header.h"

#include <quorix/memory.h>

#include <cmath>
#include <cstring>
#include <gemmi/symmetry.hpp>  // for find_spacegroup_by_number
#include <nlohmann/json.hpp>
#include <ostream>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

struct HeaderFacts {
  Ccp4Header header = {};
  bool swapped = false;
  std::vector<std::string> labels, records;
  std::string origin;  // words 50-52 in words
};

std::string trimmed(std::string text) {
  const std::size_t end = text.find_last_not_of(std::string(" \0\n\r", 4));
  text.erase(end == std::string::npos ? 0 : end + 1);
  return text;
}

std::string origin_text(const Ccp4Description& file) {
  std::string bytes(file.header.access + 16, 8);
  if (bytes == std::string(8, ' ')) return "blank";
  if (file.swapped) swap_words(bytes.data(), 2);
  float origin[3];
  std::memcpy(origin, bytes.data(), 8);
  std::memcpy(&origin[2], &file.header.header_size, 4);
  return format("%g %g %g", static_cast<double>(origin[0]), static_cast<double>(origin[1]),
                static_cast<double>(origin[2]));
}

HeaderFacts facts_of(const Ccp4Description& file) {
  HeaderFacts facts = {file.header, file.swapped, {}, {}, origin_text(file)};
  for (std::int32_t i = 0; i < file.nlabels; ++i) {
    facts.labels.push_back(trimmed(std::string(file.header.labels[i], 80)));
  }
  for (std::int32_t i = 0; i < file.nrecords; ++i) {
    facts.records.push_back(trimmed(std::string(file.records.get() + 80 * std::ptrdiff_t{i}, 80)));
  }
  return facts;
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

Json symmetry_info(const qx_ccp4_map& map, const HeaderFacts& facts) {
  Json json = {{"operators_from", facts.records.empty() ? "the group's number" : "records"}};
  try {
    const auto operators =
        facts.records.empty() ? operators_of_group(map.space_group) : facts.records;
    const SymmetryCheck check = check_symmetry(map, operators);
    json["operators"] = operators.size();
    json["pairs"] = check.pairs;
    if (check.pairs == 0) return json;
    json["correlation"] = check.correlation;
    json["largest_difference"] = check.largest;
    json["obeyed"] = check.correlation > 0.99;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    json["unreadable"] = error.what();
  }
  return json;
}

std::string group_name(std::int32_t number) {
  const gemmi::SpaceGroup* group = gemmi::find_spacegroup_by_number(number);
  return group ? group->xhm() : std::string();
}

Json statistics_info(const qx_ccp4_map& map) {
  const MapStatistics found = statistics_of(
      View3<const double>{map.density[0][0], map.counts[2], map.counts[1], map.counts[0]});
  const double deviation =
      std::sqrt(std::max(0.0, found.rms * found.rms - found.mean * found.mean));
  return {
      {"header",
       {{"minimum", map.minimum}, {"maximum", map.maximum}, {"mean", map.mean}, {"rms", map.rms}}},
      {"recomputed",
       {{"minimum", found.minimum},
        {"maximum", found.maximum},
        {"mean", found.mean},
        {"rms_about_zero", found.rms},
        {"rms_about_mean", deviation}}},
      {"word_55", rms_text(map.rms, found.rms, deviation)}};
}

Json facts_of(const std::string& path, const qx_ccp4_map& map, const HeaderFacts& facts) {
  const Ccp4Header& header = facts.header;
  const char axis[4] = "xyz";
  std::string order;
  for (const std::int32_t a : header.axes) order += axis[a - 1];
  return {{"file", path},
          {"format", "CCP4 map"},
          {"points", map.counts},
          {"starts", map.starts},
          {"intervals", map.intervals},
          {"covers", coverage(map)},
          {"mode", header.mode},
          {"values", mode_text(header.mode)},
          {"axis_order", order},
          {"byte_order", facts.swapped ? "big-endian" : "little-endian"},
          {"cell", std::vector<double>(map.cell, map.cell + 6)},
          {"space_group", group_name(map.space_group)},
          {"space_group_number", map.space_group},
          {"symmetry_records", facts.records},
          {"origin", facts.origin},
          {"labels", facts.labels},
          {"statistics", statistics_info(map)},
          {"symmetry", symmetry_info(map, facts)}};
}

void tell_statistics(std::ostream& out, const Json& info) {
  const Json& header = info["statistics"]["header"];
  const Json& found = info["statistics"]["recomputed"];
  const auto number = [](const Json& value) { return value.is_null() ? NAN : value.get<double>(); };
  out << format(
             "density     minimum %g, maximum %g, mean %g, rms %g about zero, %g about the mean\n",
             number(found["minimum"]), number(found["maximum"]), number(found["mean"]),
             number(found["rms_about_zero"]), number(found["rms_about_mean"]))
      << format("header says minimum %g, maximum %g, mean %g; word 55 is %g: %s\n",
                number(header["minimum"]), number(header["maximum"]), number(header["mean"]),
                number(header["rms"]), info["statistics"]["word_55"].get<std::string>().c_str());
}

}  // namespace

Json map_info(const std::string& path, bool verbose) {
  return map_info(path, verbose, [](const qx_ccp4_map&, const Json&) { return true; });
}

Json map_info(const std::string& path, bool verbose,
              const std::function<bool(const qx_ccp4_map&, const Json&)>& visit) {
  const TemporaryFile copy;
  const bool packed = is_gzipped(path);
  if (packed) unpack(path, copy);
  const std::string readable = packed ? copy.path() : path;
  Json json;
  Engine engine(verbose);
  engine.call([&] {
    qx_ccp4_map map = {};
    Ccp4Description file;
    if (read_ccp4(readable.c_str(), map, file) != ok) return failed;
    json = facts_of(path, map, facts_of(file));
    if (!visit(map, json)) return failed;
    return xfree_3d_double(map.density);
  });
  return json;
}

std::string symmetry_text(const Json& info) {
  const Json& check = info["symmetry"];
  if (check.contains("unreadable")) {
    return "not checked: " + check["unreadable"].get<std::string>();
  }
  if (check["operators"].get<std::size_t>() < 2) return "none to check";
  const auto pairs = check["pairs"].get<std::int64_t>();
  if (pairs == 0) return "not checked: no two related points lie in the map";
  return (check["obeyed"].get<bool>() ? "obeyed" : "NOT OBEYED") +
         format(": correlation %.6f of %lld related pairs, largest difference %.2g deviations",
                check["correlation"].get<double>(), static_cast<long long>(pairs),
                check["largest_difference"].get<double>());
}

void tell_map(std::ostream& out, const Json& info) {
  const auto text = [&](const char* key) { return info[key].get<std::string>(); };
  const auto triple = [&](const char* key) {
    const auto n = info[key].get<std::vector<int>>();
    return format("%d %d %d", n[0], n[1], n[2]);
  };
  const auto c = info["cell"].get<std::vector<double>>();
  out << "file        " << text("file") << ", CCP4 map of " << text("values") << ", "
      << text("byte_order") << '\n'
      << "points      " << triple("points") << " along x y z, from " << triple("starts") << ", of "
      << triple("intervals") << " in the cell: " << text("covers") << '\n'
      << "axes        columns, rows, sections run along " << text("axis_order") << '\n'
      << format("cell        %g %g %g A, %g %g %g degrees\n", c[0], c[1], c[2], c[3], c[4], c[5])
      << format("group       %s (number %d), %zu symmetry records\n", text("space_group").c_str(),
                info["space_group_number"].get<int>(), info["symmetry_records"].size())
      << "origin      " << text("origin") << " (words 50-52)\n";
  tell_statistics(out, info);
  out << "symmetry    " << symmetry_text(info) << '\n';
  for (const Json& label : info["labels"])
    out << "label       " << label.get<std::string>() << '\n';
}

}  // namespace qx
