// quorix report: a map as one page to look at, and scripts for the programs that edit models.
#include "driver/commands/report/report.h"

#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/commands/coordinates.h"
#include "driver/commands/info/map_facts.h"
#include "driver/commands/map_labels.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/output_guard.h"
#include "driver/commands/progress_line.h"
#include "driver/commands/viewer_scripts.h"
#include "driver/commands/whole_file.h"

#include <quorix/version.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gemmi/symmetry.hpp>  // for Op
#include <gemmi/unitcell.hpp>
#include <iostream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <regex>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;
using Lines = std::vector<std::string>;

constexpr const char* closing = R"(
The page needs no network: it holds a view of the density (and the atoms) with a slider for the
level, contours of sections, a histogram, header and provenance, and completeness by resolution.
Beside it lie scripts that show the map at a sensible level in Coot, PyMOL and ChimeraX.

Examples:
  quorix report 1ubq_2mFo-DFc.ccp4 --model 1ubq.pdb -o report
      report/1ubq_2mFo-DFc.html to open in a browser, and the scripts.
)";

struct Options {
  std::string map, model, data, column, folder = ".";
  double most_points = 8.0;  // millions
  bool difference = false, no_difference = false, force = false, quiet = false, verbose = false;
};

struct Model {
  std::string file;
  Coordinates coordinates;
  std::vector<std::array<double, 3>> atoms;
  explicit Model(const std::string& path)
      : file(path), coordinates(path), atoms(coordinates.positions()) {}
};

std::string read_whole(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw CommandError(2,
                       "cannot read " + path.string() +
                           ", a part of the page: is quorix installed whole, or ZENVI_DATA set?");
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

std::filesystem::path parts_folder() {
  const char* data = std::getenv("ZENVI_DATA");
  return std::filesystem::path(data ? data : ".") / "report";
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
Json scale_of(const MapFacts& facts) {
  const std::string density = label_with(facts, "Density: ");
  std::smatch match;
  if (std::regex_search(density, match, std::regex("scaled to rms 1 from ([-+.0-9eE]+) e/A"))) {
    const double factor = std::strtod(match[1].str().c_str(), nullptr);
    return {{"factor", factor}, {"text", format("rms 1 in the file is %.5g e/Å³", factor)}};
  }
  if (density.empty() && scaled_by_cell(facts)) {
    return {{"factor", nullptr},
            {"text",
             "in rms of the whole cell; what that is in e/Å³ the file does not say (quorix map "
             "--provenance writes it)"}};
  }
  if (density.empty() && std::fabs(facts.rms - 1.0) < 1e-3) {
    return {{"factor", nullptr},
            {"text",
             "scaled to rms 1; what that is in e/Å³ the file does not say (quorix map "
             "--provenance writes it)"}};
  }
  return {{"factor", 1.0},
          {"text", density.empty() ? "taken for e/Å³, since it is not scaled to rms 1" : "e/Å³"}};
}

// By the labels that quorix map writes, else by the name; the page can switch.
bool looks_like_difference(const Options& options, const MapFacts& facts) {
  if (options.difference || options.no_difference) return options.difference;
  const std::string type = label_with(facts, "Map type: ");
  for (const char* difference : {"mFo-DFc", "FAN", "1Fo - 1Fc"}) {
    if (type.starts_with(difference)) return true;
  }
  for (const char* other : {"2mFo-DFc", "FDM", "2Fo - 1Fc"}) {
    if (type.starts_with(other)) return false;
  }
  const std::string columns = label_with(facts, "Columns: ");
  if (!columns.empty()) return is_difference_amplitude(columns.substr(0, columns.find(' ')));
  const std::string name = std::filesystem::path(options.map).stem().string();
  return std::regex_search(name,
                           std::regex("(^|[^2a-z])(m?fo[-_]?d?fc|diff|delfwt)", std::regex::icase));
}

// Where the box that is shown has its centre, in grid points: the model's, else the map's.
void find_centre(const qx_ccp4_map& map, const std::optional<Model>& model, double (&centre)[3]) {
  for (int a = 0; a < 3; ++a) centre[a] = map.starts[a] + 0.5 * map.counts[a];
  if (!model) return;
  const double* c = map.cell;
  const gemmi::UnitCell cell(c[0], c[1], c[2], c[3], c[4], c[5]);
  gemmi::Position sum;
  for (const auto& atom : model->atoms) sum += gemmi::Position(atom[0], atom[1], atom[2]);
  const gemmi::Fractional middle =
      cell.fractionalize(sum * (1.0 / static_cast<double>(model->atoms.size())));
  const double fractions[3] = {middle.x, middle.y, middle.z};
  for (int a = 0; a < 3; ++a) {
    // The copy of it that lies in the map.
    const double inside = fractions[a] * map.intervals[a] - map.starts[a];
    if (!std::isfinite(inside)) continue;  // a cell that is none
    centre[a] = map.starts[a] + inside - std::floor(inside / map.intervals[a]) * map.intervals[a];
  }
}

// What is needed to see all of a crystal whose map is a part of the cell: the operators on grid
// points, 3 x 4 by rows.
Json grid_operators(const qx_ccp4_map& map, const MapFacts& facts) {
  Json list = Json::array();
  if (std::equal(map.counts, map.counts + 3, map.intervals, std::greater_equal<>())) return list;
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

Json model_json(const Model& model) {
  return {{"file", model.file}, {"pdb", model.coordinates.pdb_text()}, {"atoms", model.atoms}};
}

// What the density itself gives; false after a report.
bool visit_density(const Options& options, const std::optional<Model>& model,
                   const qx_ccp4_map& map, const MapFacts& facts, Json& page) {
  const double rms = facts.rms;
  if (!(rms > 0.0) || !std::isfinite(rms)) throw CommandError(2, options.map + " is flat");
  double centre[3] = {};
  find_centre(map, model, centre);
  const ShownBox box = shown_box(map, centre, 1e6 * options.most_points);
  if (!box.whole) {
    page["notices"].push_back(format(
        "The map has %d x %d x %d points: the page shows a box of %d x "
        "%d x %d of them (--points sets how many).",
        map.counts[0], map.counts[1], map.counts[2], box.counts[0], box.counts[1], box.counts[2]));
  }
  page["histogram"] = density_histogram(map, rms);
  page["density"] = packed_density(map, box, rms);
  page["operators"] = grid_operators(map, facts);
  page["scale"] = scale_of(facts);
  if (!options.data.empty()) return true;
  page["completeness"] = completeness_of_map(map, facts.records);
  return !page["completeness"].is_null();
}

// The page, and the facts that it holds.
Json compose_page(const Options& options, MapFacts& facts) {
  std::optional<Model> model;
  if (!options.model.empty()) model.emplace(options.model);
  for (const std::string& line : model ? model->coordinates.warnings() : Lines()) {
    std::cerr << "quorix report: " << line << '\n';
  }
  Json page = {{"title", std::filesystem::path(options.map).filename().string()},
               {"notices", Json::array()},
               {"made", format("Made by quorix %s.", QUORIX_VERSION)}};
  facts = read_map_facts(options.map, options.verbose,
                         [&](const qx_ccp4_map& map, const MapFacts& found) {
                           return visit_density(options, model, map, found, page);
                         });
  page["map"] = to_json(facts);
  page["symmetry"] = facts.symmetry.text();
  page["difference"] = looks_like_difference(options, facts);
  page["model"] = model ? model_json(*model) : Json(nullptr);
  if (!options.data.empty()) {
    Engine engine(options.verbose);
    page["completeness"] = completeness_of_data(read_reflections(engine, options.data),
                                                options.column, page["difference"].get<bool>());
  }
  return page;
}

// JSON that may stand in an HTML element: nothing in it ends the element.
std::string embedded(const Json& page) {
  std::string text = page.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  std::string safe;
  safe.reserve(text.size());
  for (const char c : text) {
    if (c == '<') {
      safe += "\\u003c";
    } else {
      safe += c;
    }
  }
  return safe;
}

std::string fill(const std::string& page, const std::map<std::string, std::string>& parts) {
  std::string text;
  std::size_t from = 0;
  for (std::size_t at = 0; (at = page.find('@', from)) != std::string::npos;) {
    const std::size_t end = page.find('@', at + 1);
    const auto part =
        end == std::string::npos ? parts.end() : parts.find(page.substr(at + 1, end - at - 1));
    if (part == parts.end()) {
      text += page.substr(from, at + 1 - from);
      from = at + 1;
    } else {
      text += page.substr(from, at - from) + part->second;
      from = end + 1;
    }
  }
  return text + page.substr(from);
}

void write_page(const std::filesystem::path& path, const Json& page) {
  const std::filesystem::path parts = parts_folder();
  std::string libraries;
  for (const char* name : {"d3-array.min.js", "d3-contour.min.js", "uglymol.js"}) {
    libraries += read_whole(parts / "third-party" / name) + "\n";
  }
  const std::string html =
      fill(read_whole(parts / "page.html"), {{"STYLE", read_whole(parts / "page.css")},
                                             {"DATA", embedded(page)},
                                             {"LIBRARIES", libraries},
                                             {"SCRIPT", read_whole(parts / "page.js")}});
  write_whole(path, html);
}

void check_outputs_of(const Options& options) {
  const std::filesystem::path folder(options.folder);
  const std::string stem = stem_of(options.map);
  std::vector<Output> outputs = script_outputs(stem, options.folder);
  outputs.push_back({(folder / (stem + ".html")).string(), FileKind::page});
  check_outputs({options.map, options.model, options.data}, outputs, options.force);
}

int run(const Options& options) {
  const Progress progress("looking at the map");
  (void)first_bytes(options.map, 1);
  check_outputs_of(options);
  MapFacts facts;
  Json page = compose_page(options, facts);
  std::error_code error;
  std::filesystem::create_directories(options.folder, error);
  const std::string stem = stem_of(options.map);
  const double rms = scaled_by_cell(facts) ? 1.0 : facts.rms;
  const auto scripts = viewer_scripts(stem, {{options.map, page["difference"].get<bool>(), rms}},
                                      options.model, options.folder);
  page["scripts"] = Json::array();
  for (const ViewerScript& script : scripts) {
    page["scripts"].push_back(
        {{"program", script.program}, {"command", script.command}, {"text", script.text}});
  }
  const std::filesystem::path folder(options.folder);
  write_page(folder / (stem + ".html"), page);
  write_scripts(options.folder, scripts);
  if (options.quiet) return 0;
  std::cout << format("%-11s ", "page") << (folder / (stem + ".html")).string() << '\n';
  for (const ViewerScript& script : scripts) {
    std::cout << format("%-11s ", script.program.c_str()) << (folder / script.file).string()
              << '\n';
  }
  return 0;
}

}  // namespace

void add_report(CLI::App& app, int& status) {
  auto options = std::make_shared<Options>();
  Options& o = *options;
  CLI::App* command =
      app.add_subcommand("report", "A map as a page to look at, and scripts for other programs");
  command->add_option("MAP", o.map, "CCP4 map, also gzipped")
      ->required()
      ->check(names_files("ccp4 map mrc ccp4.gz map.gz mrc.gz"));
  command->add_option("--model", o.model, "Atoms to show with it: PDB or mmCIF, also gzipped")
      ->type_name("FILE")
      ->check(names_files("pdb ent cif mmcif pdb.gz ent.gz cif.gz mmcif.gz"));
  command->add_option("-o,--output", o.folder, "Folder for the page and the scripts")
      ->type_name("FOLDER")
      ->check(names_folders())
      ->capture_default_str();
  auto* data = command
                   ->add_option("--data", o.data,
                                "Reflections whose completeness is shown (default: that of the "
                                "map's own coefficients)")
                   ->type_name("FILE")
                   ->check(names_files("mtz mtz.gz cif cif.gz ent ent.gz"));
  command->add_option("--column", o.column, "Column of the data (default: FWT or its like)")
      ->type_name("LABEL")
      ->needs(data);
  auto* difference =
      command->add_flag("--difference", o.difference, "A difference map: contours of both signs");
  command->add_flag("--no-difference", o.no_difference, "Not a difference map, whatever its name")
      ->excludes(difference);
  command->add_option("--points", o.most_points, "Most points that the page holds, in millions")
      ->check(CLI::Range(0.001, 100.0))
      ->capture_default_str();
  command->add_flag("--force", o.force,
                    "Write over a file that holds something else; never over an input");
  command->add_flag("-q,--quiet", o.quiet, "Warnings and errors only");
  command->add_flag("-v,--verbose", o.verbose, "Show everything the engine prints");
  command->footer(closing);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
