// quorix free: the reflections that refinement never sees.
#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/commands/free/job.h"
#include "driver/commands/mtz_edit.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

gemmi::Mtz::Column& flag_column(gemmi::Mtz& mtz, const std::string& label) {
  for (gemmi::Mtz::Column& column : mtz.columns) {
    if (column.label != label) continue;
    if (column.idx < 3) throw CommandError(2, "--label " + label + " is an index");
    column.type = 'I';
    return column;
  }
  return mtz.add_column(label, 'I', mtz.columns.back().dataset_id, -1, true);
}

void add_rows(gemmi::Mtz& mtz, const FreeFlags& flags, std::size_t at) {
  for (std::size_t i = 0; i < flags.added.size(); ++i) {
    const std::size_t row = mtz.data.size();
    mtz.data.resize(row + mtz.columns.size(), mtz.valm);
    for (std::size_t a = 0; a < 3; ++a) mtz.data[row + a] = static_cast<float>(flags.added[i][a]);
    mtz.data[row + at] = static_cast<float>(flags.added_flags[i]);
  }
  mtz.nreflections += static_cast<int>(flags.added.size());
  if (!flags.added.empty()) mtz.sort();
}

void write(const FreeOptions& options, const ReflectionFile& file, const FreeFlags& flags,
           const std::string& label) {
  gemmi::Mtz mtz = open_mtz(file.readable.path, file.path);
  if (!mtz.has_data() || mtz.nreflections != static_cast<int>(file.rows)) {
    throw CommandError(2, file.path + " cannot be written again");
  }
  if (!mtz.spacegroup) mtz.spacegroup = file.group;
  const std::size_t at = flag_column(mtz, label).idx;
  const std::size_t width = mtz.columns.size();
  for (std::size_t i = 0; i < file.rows; ++i) {
    mtz.data[i * width + at] = flags.rows[i] ? static_cast<float>(*flags.rows[i]) : mtz.valm;
  }
  add_rows(mtz, flags, at);
  add_history(mtz, "quorix free: " + label +
                       (flags.source.file.empty()
                            ? format(", %g %%, seed %lld", options.percent,
                                     static_cast<long long>(options.seed))
                            : std::string(options.extend ? ", kept and extended" : ", kept")));
  write_mtz(mtz, options.output);
}

double percent_free(const FreeFlags& flags) {
  return 100.0 * static_cast<double>(flags.count(flags.values.free_value())) /
         static_cast<double>(std::max<std::size_t>(1, flags.flagged()));
}

std::string naming(const FreeFlags& flags) {
  if (flags.values.two) {
    return format("%d free, %d works", flags.values.values[0], flags.values.values[1]);
  }
  int last = static_cast<int>(std::ceil(flags.values.per_free)) - 1;
  for (const int value : flags.values.values) last = std::max(last, value);
  return format("0 to %d, %d free", last, flags.values.free_value());
}

void tell(const FreeOptions& options, const FreeFlags& flags, const std::string& label) {
  const auto say = [](const char* name, const std::string& text) {
    std::cout << format("%-12s", name) << text << '\n';
  };
  say("flags", label + ": " + naming(flags));
  say("free", format("%zu of %zu reflections (%.2f %%)", flags.count(flags.values.free_value()),
                     flags.flagged(), percent_free(flags)));
  if (!flags.source.file.empty()) {
    say("kept",
        format("%zu from ", flags.kept) + flags.source.file + ": " + flags.source.set.line());
  }
  say("drawn", format("%zu, seed %lld", flags.drawn, static_cast<long long>(options.seed)));
  if (options.complete) say("added", format("%zu rows with flags alone", flags.added.size()));
  say("symmetry",
      format("one flag for what %zu rotations of the lattice relate (%zu of the group)",
             flags.operators, flags.own_operators) +
          (flags.source.follows_lattice ? "" : "; the kept set does not follow the lattice"));
  say("written", options.output);
}

Json to_json(const FreeOptions& options, const FreeFlags& flags, const std::string& label) {
  Json json = {{"file", options.output},
               {"label", label},
               {"convention", flags.values.two ? "binary" : "groups"},
               {"free_value", flags.values.free_value()},
               {"reflections", flags.rows.size() + flags.added.size()},
               {"flagged", flags.flagged()},
               {"free", flags.count(flags.values.free_value())},
               {"percent", percent_free(flags)},
               {"kept", flags.kept},
               {"drawn", flags.drawn},
               {"added", flags.added.size()},
               {"seed", options.seed},
               {"lattice_rotations", flags.operators},
               {"group_rotations", flags.own_operators}};
  if (!flags.source.file.empty()) {
    json["like"] = {{"file", flags.source.file},
                    {"label", flags.source.set.label},
                    {"follows_lattice", flags.source.follows_lattice}};
  }
  json["warnings"] = flags.warnings;
  return json;
}

int run(const FreeOptions& options) {
  check_options(options);
  if (options.json) keep_standard_output_clean();
  const ReflectionFile file = read_reflections(options.input, options.verbose);
  const FreeFlags flags = make_flags(options, file);
  const std::string label = choose_label(options, file, flags);
  if (!options.json) {
    for (const std::string& text : flags.warnings) {
      std::cerr << "quorix free: warning: " << text << '\n';
    }
  }
  write(options, file, flags, label);
  if (options.json) {
    std::cout << to_json(options, flags, label)
                     .dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
              << '\n';
  } else if (!options.quiet) {
    tell(options, flags, label);
  }
  return 0;
}

}  // namespace

void add_free(CLI::App& app, int& status) {
  auto options = std::make_shared<FreeOptions>();
  CLI::App* command =
      app.add_subcommand("free", "Flags of the free set, new or kept from an older file");
  add_free_options(*command, *options);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
