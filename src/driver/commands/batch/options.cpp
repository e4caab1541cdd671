#include "driver/commands/batch/options.h"

#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/commands/map/job.h"
#include "driver/commands/maps/job.h"
#include "driver/commands/option_facts.h"
#include "driver/commands/peaks/job.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

namespace qx {

namespace {

std::vector<std::string> words_for_map;

// The words behind -- as the subcommand would take them, beside the names that the batch gives.
void parse_words(CLI::App& app, const char* subcommand, const std::vector<const char*>& names) {
  app.set_help_flag();
  std::vector<std::string> words(words_for_map.rbegin(), words_for_map.rend());
  words.insert(words.end(), names.rbegin(), names.rend());
  try {
    app.parse(words);
  } catch (const CLI::ParseError& error) {
    throw CommandError(
        2, std::string("behind --, options of quorix ") + subcommand + ": " + error.what());
  }
}

void refuse_given(const std::vector<std::pair<bool, const char*>>& refused,
                  const char* subcommand) {
  for (const auto& [given, name] : refused) {
    if (!given) continue;
    throw CommandError(2, std::string(name) + " cannot be handed on to quorix " + subcommand +
                              " (the batch names the maps and reads the reports itself)");
  }
}

void check_maps_options(const BatchOptions& options) {
  if (options.shared_grid) {
    throw CommandError(2, "--shared-grid is for maps of coefficients, not beside --maps");
  }
  MapsOptions maps;
  CLI::App app;
  add_maps_options(app, maps);
  parse_words(app, "maps", {"MODEL", "IN", "-o", "OUT"});
  refuse_given({{!maps.prefix.empty(), "--maps"},
                {maps.base.json, "--json"},
                {maps.print_sections, "--print-sections"},
                {maps.base.verbose, "--verbose"}},
               "maps");
}

constexpr const char* closing = R"(
What stands behind -- is handed on to quorix map, for every data set alike:
  quorix batch lists/today.txt -o maps -j 4 -- --dmin 1.8 --frac 0.25

With --maps every data set goes through quorix maps, with the model beside it (the coordinates of its
name, else the only ones in its folder) or with that of --model:
  quorix batch screen/ -o out --maps --model '{folder}/dimple.pdb' -- --dmin 1.8

Each data set gets a folder in OUT with its maps and a record, result.json. OUT/results.tsv and
OUT/results.json have a row for each: status, reason, resolution, group, grid, rms, files; with --maps also R factors, with
--peaks the highest peak and the largest blob above zero, with the nearest atom of the model:
  quorix batch screen/ -o out --maps --peaks --level 4.5

Exit status:
  0    every data set is done
  1    some are not; the tables tell which and why
  2    bad usage, or OUT cannot be written
  130  interrupted (143: terminated); --resume goes on from there
)";

void add_search_options(CLI::App& command, BatchOptions& o) {
  auto* peaks = command.add_flag(
      "--peaks", o.peaks,
      "Look for peaks and blobs in each difference map (without one in the 2mFo-DFc map), beside "
      "the model if there is one: the first of them in the table, ten in the record, dummy atoms "
      "in NAME_sites.pdb");
  command.add_option("--level", o.level, "With --peaks: peaks from this many rms on (default: 4)")
      ->type_name("X")
      ->needs(peaks);
  command
      .add_option("--blob-level", o.blob_level,
                  "With --peaks: blobs beyond this many rms (default: 3 in difference maps, else "
                  "1)")
      ->type_name("X")
      ->needs(peaks);
}

void add_work_options(CLI::App& command, BatchOptions& o) {
  command
      .add_option("INPUT", o.inputs,
                  "Reflection files (MTZ, structure-factor mmCIF, also gzipped), folders to search "
                  "for them, or lists: text files with a path per line, relative to the list, and "
                  "# before comments")
      ->required()
      ->check(names_files("mtz mtz.gz cif cif.gz ent ent.gz txt lst"));
  command.add_option("-o,--output", o.output, "Folder for the results")
      ->type_name("FOLDER")
      ->required();
  command
      .add_option("-j,--jobs", o.jobs,
                  "Data sets at a time (default: the processors available to the process)")
      ->type_name("N")
      ->check(CLI::Range(1, 4096));
  command
      .add_option("--timeout", o.timeout,
                  "Seconds after which a data set is given up (default: never)")
      ->type_name("SECONDS")
      ->check(CLI::PositiveNumber);
  command.add_flag("--maps", o.maps,
                   "Coefficients and maps of measured amplitudes and a model: quorix maps instead "
                   "of quorix map");
  command
      .add_option("--model", o.model,
                  "With --maps or --peaks: the model, {name} and {folder} in it being those of "
                  "each data set "
                  "(default: what stands beside the data)")
      ->type_name("FILE")
      ->check(names_files("pdb ent cif mmcif pdb.gz ent.gz cif.gz mmcif.gz"));
  add_search_options(command, o);
  command.add_flag("--shared-grid", o.shared_grid,
                   "One grid for all data sets of a space group: the largest counts that any of "
                   "them needs along each axis");
}

void add_course_options(CLI::App& command, BatchOptions& o) {
  auto* range = command
                    .add_option("--range", o.range,
                                "Only the I-th of N equal parts of the data sets, for array jobs; "
                                "the tables are results.I-of-N")
                    ->type_name("I/N");
  auto* resume = command.add_flag("--resume", o.resume,
                                  "Take over data sets whose record is whole, of the same input, "
                                  "options and version, and whose "
                                  "maps are whole; make the others, failed ones included");
  auto* overwrite = command.add_flag("--overwrite", o.overwrite, "Make everything anew");
  overwrite->excludes(resume);
  command
      .add_flag("--gather", o.gather,
                "Only write the tables of all data sets, from the records of all parts")
      ->excludes(range)
      ->excludes(resume)
      ->excludes(overwrite);
  command.add_flag("-q,--quiet", o.quiet, "Neither progress nor summary");
}

}  // namespace

const std::vector<std::string>& words_handed_on() { return words_for_map; }

Slice slice_of(const std::string& range, std::size_t count) {
  Slice slice = {0, count};
  if (range.empty()) return slice;
  unsigned part = 0;
  unsigned parts = 0;
  int used = 0;
  if (std::sscanf(range.c_str(), "%u/%u%n", &part, &parts, &used) != 2 ||
      static_cast<std::size_t>(used) != range.size() || part < 1 || part > parts) {
    throw CommandError(2, "--range takes I/N with I from 1 to N, not " + range);
  }
  slice.first = count * (part - 1) / parts;
  slice.last = count * part / parts;
  slice.stem = format("results.%u-of-%u", part, parts);
  return slice;
}

void check_options(const BatchOptions& options) {
  check_level("--level", options.level);
  check_level("--blob-level", options.blob_level);
  if (options.maps) return check_maps_options(options);
  if (!options.model.empty() && !options.peaks) {
    throw CommandError(2, "--model belongs to --maps or --peaks: give both");
  }
  MapOptions map;
  CLI::App app;
  add_map_options(app, map);
  parse_words(app, "map", {"IN"});
  if (!map.files.empty()) {
    throw CommandError(2, map.files.front() +
                              " cannot be handed on to quorix map: it would be the "
                              "one of every data set");
  }
  refuse_given({{!map.prefix.empty(), "--prefix"},
                {map.json, "--json"},
                {map.show_grid, "--show-grid"},
                {map.print_sections, "--print-sections"},
                {map.verbose, "--verbose"},
                {options.shared_grid && !map.counts.empty(), "--grid beside --shared-grid"}},
               "map");
}

void add_batch_options(CLI::App& command, BatchOptions& options) {
  add_work_options(command, options);
  add_course_options(command, options);
  command.footer(closing);
}

void take_map_options(int& argc, char** argv) {
  if (argc < 2 || std::string_view(argv[1]) != "batch") return;
  char** const end = argv + argc;
  char** const mark =
      std::find_if(argv, end, [](const char* word) { return std::string_view(word) == "--"; });
  if (mark == end) return;
  words_for_map.assign(mark + 1, end);
  argc = static_cast<int>(mark - argv);
}

}  // namespace qx
