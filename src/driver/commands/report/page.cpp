// quorix report: the page, composed of its maps, the model and what is found in them.
#include "driver/commands/command_error.h"
#include "driver/commands/info/map_facts.h"
#include "driver/commands/map_labels.h"
#include "driver/commands/report/report.h"

#include <quorix/version.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <gemmi/symmetry.hpp>  // for Op
#include <gemmi/unitcell.hpp>
#include <iostream>
#include <nlohmann/json.hpp>
#include <regex>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

constexpr double shown_radius = 6.0;  // Angstrom about atoms and peaks
constexpr double peak_level = 3.5;    // rms

// Pages are sent to others: a file's name says enough.
std::string name_of_file(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

// The text behind `heading` among the map's labels.
std::string label_with(const MapFacts& facts, const std::string& heading) {
  for (const std::string& label : facts.labels) {
    if (label.starts_with(heading)) return label.substr(heading.size());
  }
  return {};
}

bool scaled_by_cell(const MapFacts& facts) {
  return label_with(facts, "Map type: ").ends_with(cell_scale_mark);
}

// What one unit of the map is in e/A^3, as far as the map tells.
Json scale_of(const MapFacts& facts, bool made_here) {
  const std::string density = label_with(facts, "Density: ");
  std::smatch match;
  if (std::regex_search(density, match, std::regex("scaled to rms 1 from ([-+.0-9eE]+) e/A"))) {
    const double factor = std::strtod(match[1].str().c_str(), nullptr);
    return {{"factor", factor}, {"text", format("rms 1 in the file is %.5g e/Å³", factor)}};
  }
  const bool scaled = scaled_by_cell(facts) || std::fabs(facts.rms - 1.0) < 1e-3;
  if (density.empty() && !made_here && scaled) {
    return {{"factor", nullptr},
            {"text", scaled_by_cell(facts)
                         ? "in rms of the whole cell; what that is in e/Å³ the file does not say"
                         : "scaled to rms 1; what that is in e/Å³ the file does not say"}};
  }
  return {{"factor", 1.0},
          {"text", density.empty() && !made_here ? "taken for e/Å³, since it is not scaled to rms 1"
                                                 : "e/Å³"}};
}

bool named_like_difference(const std::string& name) {
  return std::regex_search(std::filesystem::path(name).stem().string(),
                           std::regex("(^|[^2a-z])(m?fo[-_]?d?fc|diff|delfwt)", std::regex::icase));
}

// By what it was made of, else by the labels that quorix map writes, else by the name; the page can
// switch.
bool looks_like_difference(const ReportOptions& options, const MapSource& source,
                           const MapFacts& facts) {
  const bool only = options.reflections.empty() && options.maps.size() == 1;
  if (only && (options.difference || options.no_difference)) return options.difference;
  if (source.difference) return *source.difference;
  const std::string type = label_with(facts, "Map type: ");
  for (const char* difference : {"mFo-DFc", "FAN", "Fo-Fo", "1Fo - 1Fc"}) {
    if (type.starts_with(difference)) return true;
  }
  for (const char* other : {"2mFo-DFc", "FDM", "2Fo - 1Fc"}) {
    if (type.starts_with(other)) return false;
  }
  const std::string columns = label_with(facts, "Columns: ");
  if (!columns.empty()) return is_difference_amplitude(columns.substr(0, columns.find(' ')));
  return named_like_difference(source.name);
}

// Where the box that is shown has its centre, in grid points: the model's, else the map's.
void find_centre(const qx_ccp4_map& map, const std::vector<std::array<double, 3>>& atoms,
                 double (&centre)[3]) {
  for (int a = 0; a < 3; ++a) centre[a] = map.starts[a] + 0.5 * map.counts[a];
  if (atoms.empty()) return;
  const double* c = map.cell;
  const gemmi::UnitCell cell(c[0], c[1], c[2], c[3], c[4], c[5]);
  gemmi::Position sum;
  for (const auto& atom : atoms) sum += gemmi::Position(atom[0], atom[1], atom[2]);
  const gemmi::Fractional middle =
      cell.fractionalize(sum * (1.0 / static_cast<double>(atoms.size())));
  const double fractions[3] = {middle.x, middle.y, middle.z};
  for (int a = 0; a < 3; ++a) {
    // The copy of it that lies in the map.
    const double inside = fractions[a] * map.intervals[a] - map.starts[a];
    if (!std::isfinite(inside)) continue;  // a cell that is none
    centre[a] = map.starts[a] + inside - std::floor(inside / map.intervals[a]) * map.intervals[a];
  }
}

// What is needed to see all of a crystal of which the page holds a part: the operators on grid
// points, 3 x 4 by rows.
Json grid_operators(const qx_ccp4_map& map, const ShownBox& box, const MapFacts& facts) {
  Json list = Json::array();
  const bool whole_cell =
      std::equal(map.counts, map.counts + 3, map.intervals, std::greater_equal<>());
  if (box.whole && whole_cell) return list;
  for (const std::string& text : facts.operators()) {
    gemmi::Op op;
    try {
      op = read_operator(text);
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception&) {
      return Json::array();  // as the symmetry check tells
    }
    std::vector<double> matrix;
    for (std::size_t a = 0; a < 3; ++a) {
      const double n = map.intervals[a];
      for (std::size_t b = 0; b < 3; ++b) {
        matrix.push_back(op.rot[a][b] * n / map.intervals[b] / gemmi::Op::DEN);
      }
      matrix.push_back(op.tran[a] * n / gemmi::Op::DEN);
    }
    list.push_back(matrix);
  }
  return list;
}

// A page as it grows.
struct Draft {
  const ReportOptions& options;
  PageSources sources;
  std::optional<Coordinates> model;
  std::vector<Coordinates::Place> places;
  std::vector<std::array<double, 3>> atoms;
  Json page;

  void note(const std::string& line) { page["notices"].push_back(line); }
};

std::vector<std::array<double, 3>> places_of(const Draft& draft) {
  std::vector<std::array<double, 3>> places = draft.atoms;
  for (const Json& peak : draft.page["peaks"]) {
    places.push_back(peak["xyz"].get<std::array<double, 3>>());
  }
  return places;
}

ShownBox choose_box(Draft& draft, const qx_ccp4_map& map) {
  const double most =
      1e6 * draft.options.most_points / static_cast<double>(draft.sources.maps.size());
  if (draft.model && !draft.options.whole) {
    if (auto near = neighbourhood(map, places_of(draft), shown_radius, most)) {
      if (draft.page["notices"].empty()) {
        draft.note(
            format("The page holds the density within %g Å of the model and of the listed "
                   "peaks, and its copies by symmetry (--whole: all of it).",
                   shown_radius));
      }
      return std::move(*near);
    }
  }
  double centre[3] = {};
  find_centre(map, draft.atoms, centre);
  ShownBox box = shown_box(map, centre, most);
  if (!box.whole) {
    draft.note(format(
        "The map has %d x %d x %d points: the page shows a box of %d x "
        "%d x %d of them (--points sets how many).",
        map.counts[0], map.counts[1], map.counts[2], box.counts[0], box.counts[1], box.counts[2]));
  }
  return box;
}

void look_at_places(Draft& draft, const qx_ccp4_map& map, const MapFacts& facts, bool difference) {
  const Coordinates* model = draft.model ? &*draft.model : nullptr;
  if (difference || (draft.page["peaks"].empty() && draft.sources.maps.size() == 1)) {
    draft.page["peaks"] = peak_rows(map, facts, difference ? model : nullptr, peak_level);
    draft.page["peaks_of"] = draft.page["maps"].size();
  }
  if (model && !difference) {
    draft.page["residues"] =
        residue_rows(draft.places, draft.sources, densities_at(map, facts.rms, draft.places));
  }
}

// What the density itself gives; false after a report.
bool visit_density(Draft& draft, const MapSource& source, const qx_ccp4_map& map,
                   const MapFacts& facts, Json& part) {
  const double rms = facts.rms;
  if (!(rms > 0.0) || !std::isfinite(rms)) throw CommandError(2, source.name + " is flat");
  if (draft.model) check_crystal(*draft.model, draft.options.model, map.cell, source.name);
  const bool difference = looks_like_difference(draft.options, source, facts);
  part["difference"] = difference;
  look_at_places(draft, map, facts, difference);
  const ShownBox box = choose_box(draft, map);
  part["histogram"] = density_histogram(map, rms);
  part["density"] = packed_density(map, box, rms);
  part["operators"] = grid_operators(map, box, facts);
  part["scale"] = scale_of(facts, source.file != nullptr);
  if (!draft.page["completeness"].is_null() || !draft.options.reflections.empty()) return true;
  if (!draft.options.data.empty()) return true;
  draft.page["completeness"] = completeness_of_map(map, facts.records);
  return !draft.page["completeness"].is_null();
}

Json history_of(const Draft& draft, const MapSource& source, const MapFacts& facts) {
  Json lines = Json::array();
  if (source.file) {
    lines.push_back("Input: " + name_of_file(draft.options.reflections));
    for (const std::string& line : source.history) lines.push_back(line);
    return lines;
  }
  for (const std::string& label : facts.labels) {
    const bool input = label.starts_with("Input: ");
    lines.push_back(input ? "Input: " + name_of_file(label.substr(7)) : label);
  }
  return lines;
}

void add_map(Draft& draft, const MapSource& source) {
  Json part = {{"name", source.name}};
  MapFacts facts = read_map_facts(source.path, draft.options.verbose,
                                  [&](const qx_ccp4_map& map, const MapFacts& found) {
                                    return visit_density(draft, source, map, found, part);
                                  });
  facts.file = source.name;
  part["rms_unit"] = scaled_by_cell(facts) ? 1.0 : facts.rms;
  part["symmetry"] = facts.symmetry.text();
  part["history"] = history_of(draft, source, facts);
  part["map"] = to_json(facts);
  part["map"].erase("labels");
  draft.page["maps"].push_back(std::move(part));
}

void add_completeness(Draft& draft) {
  const ReportOptions& options = draft.options;
  const std::string& path = options.data.empty() ? options.reflections : options.data;
  if (path.empty()) return;
  const std::string& column = options.data.empty() ? draft.sources.column : options.column;
  Engine engine(options.verbose);
  draft.page["completeness"] = completeness_of_data(
      read_reflections(engine, path), column, draft.page["maps"].front()["difference"].get<bool>());
}

// The first ligand of more than a few atoms, else the first at all, else the highest peak.
Json start_of(const Draft& draft) {
  constexpr std::size_t least_atoms = 6;
  const Coordinates::Place* first = nullptr;
  for (const Coordinates::Place& place : draft.places) {
    if (place.kind != 'l') continue;
    const bool larger =
        first && first->atoms.size() < least_atoms && place.atoms.size() >= least_atoms;
    if (!first || larger) first = &place;
  }
  if (first) return {{"kind", "residue"}, {"number", first - draft.places.data()}};
  if (!draft.page["peaks"].empty()) return {{"kind", "peak"}, {"number", 0}};
  return nullptr;
}

void begin(Draft& draft) {
  const ReportOptions& options = draft.options;
  if (!options.model.empty()) {
    draft.model.emplace(options.model);
    draft.places = draft.model->places();
    draft.atoms = draft.model->positions();
    for (const std::string& line : draft.model->warnings()) {
      std::cerr << "quorix report: " << line << '\n';
    }
  }
  const std::string first =
      options.reflections.empty() ? options.maps.front() : options.reflections;
  draft.page = {
      {"title", name_of_file(first)}, {"source", name_of_file(first)},
      {"notices", Json::array()},     {"maps", Json::array()},
      {"peaks", Json::array()},       {"residues", Json::array()},
      {"completeness", nullptr},      {"made", format("Made by quorix %s.", QUORIX_VERSION)}};
}

void check_crystal_of_reflections(const Draft& draft) {
  if (!draft.model) return;
  const std::string& path = draft.options.reflections;
  Engine engine(draft.options.verbose);
  check_crystal(*draft.model, draft.options.model,
                read_labels(engine, path, readable_mtz(path)).cell, path);
}

// Difference maps first: the density is shown about their peaks as well.
std::vector<MapSource> in_order(std::vector<MapSource> maps) {
  const auto likely = [](const MapSource& map) {
    return map.difference.value_or(named_like_difference(map.name));
  };
  std::stable_sort(maps.begin(), maps.end(),
                   [&](const MapSource& a, const MapSource& b) { return likely(a) > likely(b); });
  return maps;
}

}  // namespace

Json compose_page(const ReportOptions& options) {
  Draft draft = {options, {}, {}, {}, {}, {}};
  begin(draft);
  if (options.reflections.empty()) {
    for (const std::string& path : options.maps) {
      draft.sources.maps.push_back({name_of_file(path), path});
    }
  } else {
    check_crystal_of_reflections(draft);
    draft.sources = sources_of_reflections(options, draft.model ? &*draft.model : nullptr);
  }
  for (const MapSource& source : in_order(draft.sources.maps)) add_map(draft, source);
  Json& page = draft.page;
  std::stable_sort(page["maps"].begin(), page["maps"].end(), [](const Json& a, const Json& b) {
    return a["difference"].get<bool>() < b["difference"].get<bool>();
  });
  add_completeness(draft);
  page["radius"] = draft.sources.radius;
  page["start"] = start_of(draft);
  page["model"] = nullptr;
  if (draft.model) {
    page["model"] = {{"file", name_of_file(options.model)},
                     {"pdb", draft.model->pdb_text()},
                     {"atoms", draft.atoms}};
  }
  return std::move(draft.page);
}

}  // namespace qx
