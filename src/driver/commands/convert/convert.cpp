// quorix convert: reflections from one format into another, and merging. Between reading and
// writing they are an MTZ file, which holds all that any of the formats does.
#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/commands/convert/job.h"
#include "driver/commands/free_flags.h"
#include "driver/commands/group_name.h"
#include "driver/commands/mtz_edit.h"
#include "driver/commands/output_place.h"
#include "driver/commands/reflection_file.h"

#include <quorix/mtz.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

struct Report {
  const TableFormat* from = nullptr;
  const TableFormat* to = nullptr;
  std::size_t rows = 0;
  std::vector<std::string> columns, lost;  // what stays behind
  std::string crystal, free_set;
  double wavelength = 0;
  std::optional<Merging> merging;
  std::vector<std::string> warnings;
};

bool is_word(const TableFormat& format, const char* word) {
  return std::string(format.word) == word;
}

// The engine's warnings, and what it says of columns.
void take_said(const std::string& said, Report& report) {
  std::istringstream lines(said);
  constexpr const char* others = "Columns that the format cannot hold: ";
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(others))
      report.lost.push_back("columns " + line.substr(std::string(others).size()));
    if (line.starts_with("Rows without")) report.lost.push_back(line);
    if (line.starts_with("WARNING: ")) report.warnings.push_back(line.substr(9));
    if (line.starts_with("Values were")) report.warnings.push_back(line);
  }
}

void convert_by_engine(const ConvertOptions& options, const char* from, const std::string& source,
                       const char* to, const std::string& target, Report& report) {
  Engine engine(options.verbose);
  take_said(
      engine.call([&] { return qx_convert_reflections(from, source.c_str(), to, target.c_str()); }),
      report);
}

gemmi::Mtz read_input(const ConvertOptions& options, Report& report) {
  report.from =
      options.from.empty() ? &format_of_content(options.input) : &format_of_word(options.from);
  if (is_word(*report.from, "MTZ") || is_word(*report.from, "CIF")) {
    const ReadableMtz readable = readable_mtz(options.input);
    Engine engine(options.verbose);
    (void)read_labels(engine, options.input, readable);  // the engine tells what is wrong with it
    return open_mtz(readable.path, options.input);
  }
  std::string path = options.input;
  TemporaryFile unpacked, table;
  if (is_gzipped(options.input)) {
    unpack(options.input, unpacked);
    path = unpacked.path();
  }
  convert_by_engine(options, report.from->word, path, "MTZ", table.path(), report);
  return open_mtz(table.path(), options.input);
}

void set_crystal(const ConvertOptions& options, gemmi::Mtz& mtz) {
  if (options.cell.size() == 6) {
    const auto& c = options.cell;
    const gemmi::UnitCell cell(c[0], c[1], c[2], c[3], c[4], c[5]);
    if (!cell.is_crystal() || !(cell.volume > 0)) throw CommandError(2, "--cell is no unit cell");
    mtz.set_cell_for_all(cell);
  }
  const std::string name = options.space_group.empty() ? mtz.spacegroup_name : options.space_group;
  if (!options.space_group.empty() || !mtz.spacegroup) {
    mtz.spacegroup =
        name.empty() ? nullptr : find_space_group(name, mtz.cell.alpha, mtz.cell.gamma);
  }
  if (!mtz.spacegroup && !name.empty()) throw CommandError(2, "unknown space group '" + name + "'");
  if (mtz.spacegroup) {
    mtz.spacegroup_name = mtz.spacegroup->hm;
    mtz.spacegroup_number = mtz.spacegroup->ccp4;
  }
  if (options.wavelength && !mtz.datasets.empty()) {
    mtz.datasets.back().wavelength = *options.wavelength;
  }
}

void check_crystal(const gemmi::Mtz& mtz, const Report& report) {
  if (is_word(*report.to, "HKL")) return;  // which tells neither
  if (!mtz.cell.is_crystal()) {
    throw CommandError(2, std::string(report.from->name) + " input has no cell: give --cell");
  }
  if (!mtz.spacegroup) {
    throw CommandError(
        2, std::string(report.from->name) + " input has no space group: give --spacegroup");
  }
}

[[noreturn]] void refuse_label(const ConvertOptions& options, const gemmi::Mtz& mtz,
                               const std::string& label) {
  std::string all;
  for (const auto& column : mtz.columns) {
    if (!all.empty()) all += ", ";
    all += column.label;
  }
  throw CommandError(2, options.input + " has no column " + label + ": it has " + all);
}

void select_columns(const ConvertOptions& options, gemmi::Mtz& mtz) {
  if (options.labels.empty()) return;
  for (const std::string& label : options.labels) {
    if (!mtz.column_with_label(label)) refuse_label(options, mtz, label);
  }
  for (std::size_t i = mtz.columns.size(); i-- > 3;) {
    const auto& wanted = options.labels;
    if (std::find(wanted.begin(), wanted.end(), mtz.columns[i].label) == wanted.end()) {
      mtz.remove_column(i);
    }
  }
}

// Value and error of an HKL file have no names.
void name_values(const ConvertOptions& options, const Report& report, gemmi::Mtz& mtz) {
  if (!is_word(*report.from, "HKL")) return;
  for (gemmi::Mtz::Column& column : mtz.columns) {
    const bool value = column.label == "VALUE", sigma = column.label == "SIGMA";
    if (!value && !sigma) continue;
    column.label = std::string(sigma ? "SIG" : "") + (options.amplitudes ? "F" : "I");
    if (value) column.type = options.amplitudes ? 'F' : 'J';
  }
  const gemmi::Mtz::Column* flag = mtz.column_with_label("FLAG");
  if (!flag) return;
  const bool none = std::all_of(flag->begin(), flag->end(),
                                [](float v) { return !(v != 0.0F) || std::isnan(v); });
  if (none) {
    mtz.remove_column(flag->idx);
  } else {
    mtz.columns[flag->idx].label = "FreeR_flag";
  }
}

FileColumn as_file_column(const gemmi::Mtz::Column& column) {
  auto values = std::make_shared<std::vector<float>>(column.begin(), column.end());
  FileColumn copy = {column.label, column.type, column.dataset_id, {}};
  copy.values = *values;
  copy.marked = values;
  return copy;
}

// The free set in the words of the format that is written: which value is free they say each in
// their own way.
void translate_flags(gemmi::Mtz& mtz, Report& report) {
  const bool cns = is_word(*report.to, "CNS"), hkl = is_word(*report.to, "HKL");
  if (!cns && !hkl && !is_word(*report.to, "CIF")) return;
  ReflectionFile names;
  for (const auto& column : mtz.columns) names.columns.push_back(as_file_column(column));
  const FileColumn* own = usual_free_column(names);
  if (!own) return;
  std::string problem;
  const auto set = choose_free_set(*own, {}, problem);
  if (!set) {
    report.warnings.push_back(problem);
    return;
  }
  report.free_set = set->line();
  const char* label = cns ? "TEST" : hkl ? "FLAG" : "status";
  const float working = hkl ? 1.0F : 0.0F, free = hkl ? -1.0F : 1.0F;
  std::size_t at = mtz.columns.size();
  for (const auto& column : mtz.columns) {
    if (column.label == (cns ? std::string("TEST") : own->label) && (cns || hkl)) at = column.idx;
  }
  if (at == mtz.columns.size()) {
    mtz.add_column(label, 'I', own->dataset, -1, true);
  } else {
    mtz.columns[at].label = label;
  }
  const std::size_t width = mtz.columns.size();
  for (std::size_t i = 0; i < own->values.size(); ++i) {
    const float flag = own->values[i];
    mtz.data[i * width + at] = std::isnan(flag)                  ? NAN
                               : std::lround(flag) == set->value ? free
                                                                 : working;
  }
}

void describe(const gemmi::Mtz& mtz, Report& report) {
  report.rows = static_cast<std::size_t>(mtz.nreflections);
  for (const auto& column : mtz.columns) {
    if (column.type != 'H') report.columns.push_back(column.label);
  }
  const gemmi::UnitCell& c = mtz.cell;
  report.crystal = mtz.cell.is_crystal() ? format("%g %g %g A, %g %g %g degrees", c.a, c.b, c.c,
                                                  c.alpha, c.beta, c.gamma)
                                         : std::string("no cell");
  report.crystal += mtz.spacegroup ? ", " + mtz.spacegroup->xhm() : ", no space group";
  for (const auto& set : mtz.datasets) {
    if (set.wavelength > 0) report.wavelength = set.wavelength;
  }
}

// What a format has no place for beside columns.
void tell_losses(const gemmi::Mtz& mtz, Report& report) {
  if (is_word(*report.to, "MTZ")) return;
  const bool hkl = is_word(*report.to, "HKL");
  if (hkl) report.lost.emplace_back("cell and space group");
  if (report.wavelength > 0 && (hkl || is_word(*report.to, "SCA")))
    report.lost.emplace_back("wavelength");
  if (mtz.history.size() > 1) report.lost.emplace_back("history");
  if (!mtz.title.empty()) report.lost.emplace_back("title");
  if (mtz.datasets.size() > 2) report.lost.emplace_back("which data set a column is of");
}

void write_output(const ConvertOptions& options, gemmi::Mtz& mtz, Report& report) {
  if (is_word(*report.to, "MTZ")) {
    write_mtz(mtz, options.output);
    return;
  }
  if (!mtz.batches.empty()) {
    throw CommandError(2, format("unmerged data (%zu batches) go into no format but MTZ: --merge "
                                 "merges them",
                                 mtz.batches.size()));
  }
  if (!mtz.spacegroup) mtz.spacegroup = &gemmi::get_spacegroup_p1();  // the format has none
  const TemporaryFile table;
  write_mtz(mtz, table.path());
  const OutputPlace place(options.output);
  convert_by_engine(options, "MTZ", table.path(), report.to->word, place.path(), report);
  place.deliver();
}

std::string number_or_dash(const std::optional<double>& value) {
  return value ? format("%8.4f", *value) : std::string("       -");
}

void tell_shell(const MergingShell& shell, bool overall) {
  std::cout << (overall ? format("%-15s", "overall")
                        : format("%6.2f - %6.2f", shell.low, shell.high))
            << format(" %9zu %8zu %6.2f", shell.observations, shell.unique, shell.multiplicity());
  if (shell.possible > 0) {
    std::cout << format(
        " %7.1f", 100.0 * static_cast<double>(shell.unique) / static_cast<double>(shell.possible));
  } else {
    std::cout << "       -";
  }
  std::cout << format(" %8.2f", shell.mean_over_sigma) << ' ' << number_or_dash(shell.r_merge)
            << ' ' << number_or_dash(shell.r_meas) << ' ' << number_or_dash(shell.r_pim) << ' '
            << number_or_dash(shell.cc_half) << '\n';
}

void tell_merging(const Merging& merging) {
  std::cout
      << "resolution       observed   unique  mult.  compl.  I/sigma  R merge   R meas    R pim    "
         "CC1/2\n";
  for (const MergingShell& shell : merging.shells) tell_shell(shell, false);
  tell_shell(merging.overall, true);
  if (merging.left_out > 0) {
    std::cout << format(
        "%zu observations without a value or an error, or of extinct reflections, "
        "were left out\n",
        merging.left_out);
  }
}

std::string joined(const std::vector<std::string>& texts, const char* comma) {
  std::string all;
  for (const std::string& text : texts) {
    if (!all.empty()) all += comma;
    all += text;
  }
  return all;
}

void tell(const ConvertOptions& options, const Report& report) {
  const auto say = [](const char* name, const std::string& text) {
    std::cout << format("%-12s", name) << text << '\n';
  };
  if (report.merging) tell_merging(*report.merging);
  say("read", options.input + ", " + report.from->name);
  say("crystal",
      report.crystal + (report.wavelength > 0 ? format(", %g A", report.wavelength) : ""));
  say("rows", format("%zu", report.rows));
  say("columns", joined(report.columns, " "));
  if (!report.free_set.empty()) say("free set", report.free_set);
  if (!report.lost.empty()) say("not held", joined(report.lost, "; "));
  say("written", options.output + ", " + report.to->name);
}

Json json_of(const MergingShell& shell) {
  const auto value = [](const std::optional<double>& number) {
    return number ? Json(*number) : Json();
  };
  return {{"low", shell.low},
          {"high", shell.high},
          {"observations", shell.observations},
          {"unique", shell.unique},
          {"possible", shell.possible},
          {"multiplicity", shell.multiplicity()},
          {"mean_over_sigma", shell.mean_over_sigma},
          {"r_merge", value(shell.r_merge)},
          {"r_meas", value(shell.r_meas)},
          {"r_pim", value(shell.r_pim)},
          {"cc_half", value(shell.cc_half)}};
}

Json to_json(const ConvertOptions& options, const Report& report) {
  Json json = {{"read", options.input},      {"from", report.from->name},
               {"file", options.output},     {"to", report.to->name},
               {"reflections", report.rows}, {"columns", report.columns},
               {"crystal", report.crystal},  {"wavelength", report.wavelength},
               {"not_held", report.lost},    {"warnings", report.warnings}};
  if (!report.merging) return json;
  json["merging"] = {{"overall", json_of(report.merging->overall)},
                     {"left_out", report.merging->left_out},
                     {"shells", Json::array()}};
  for (const MergingShell& shell : report.merging->shells) {
    json["merging"]["shells"].push_back(json_of(shell));
  }
  return json;
}

int run(const ConvertOptions& options) {
  check_options(options);
  if (options.json) keep_standard_output_clean();
  Report report;
  report.to = options.to.empty() ? &format_of_name(options.output) : &format_of_word(options.to);
  gemmi::Mtz mtz = read_input(options, report);
  if (mtz.nreflections < 1) throw CommandError(2, options.input + " holds no reflections");
  set_crystal(options, mtz);
  name_values(options, report, mtz);
  check_crystal(mtz, report);
  if (options.merge) report.merging = merge(mtz, options);
  select_columns(options, mtz);
  translate_flags(mtz, report);
  describe(mtz, report);
  add_history(mtz, std::string("quorix convert: from ") + report.from->name +
                       (options.merge ? ", merged" : ""));
  tell_losses(mtz, report);
  write_output(options, mtz, report);
  if (options.json) {
    std::cout
        << to_json(options, report).dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
        << '\n';
    return 0;
  }
  for (const std::string& text : report.warnings) {
    std::cerr << "quorix convert: warning: " << text << '\n';
  }
  if (!options.quiet) tell(options, report);
  return 0;
}

}  // namespace

void add_convert(CLI::App& app, int& status) {
  auto options = std::make_shared<ConvertOptions>();
  CLI::App* command =
      app.add_subcommand("convert", "Reflections from one format into another; merging");
  add_convert_options(*command, *options);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
