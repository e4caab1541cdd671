// quorix batch: maps of many data sets, a process for each.
#include "core/processor_count.h"
#include "driver/commands/batch/grid.h"
#include "driver/commands/batch/inputs.h"
#include "driver/commands/batch/lock.h"
#include "driver/commands/batch/options.h"
#include "driver/commands/batch/pool.h"
#include "driver/commands/batch/progress.h"
#include "driver/commands/batch/record.h"
#include "driver/commands/batch/table.h"
#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"
#include "driver/commands/file_kind.h"
#include "driver/commands/readable_file.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>

namespace qx {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t most_failures_told = 10;

[[noreturn]] void refuse_to_replace(const std::string& path) {
  throw CommandError(2, path + " would be lost: move it away, or choose another folder with -o");
}

void check_tables(const fs::path& stem) {
  const std::pair<std::string, std::string> tables[] = {
      {stem.string() + ".tsv", "name\tstatus\t"}, {stem.string() + ".json", "[\n {\"name\":"}};
  for (const auto& [path, mark] : tables) {
    const FileKind kind = kind_of(path);
    if (kind == FileKind::missing || kind == FileKind::empty) continue;
    if (kind == FileKind::folder) refuse_to_replace(path);
    const std::string start = first_bytes(path, mark.size());
    if (start != mark && start != "[\n]\n") refuse_to_replace(path);
  }
}

class Batch {
 public:
  Batch(const BatchOptions& options, const std::vector<DataSet>& sets)
      : options_(options),
        sets_(sets),
        slice_(slice_of(options.range, sets.size())),
        output_(options.output) {
    if (options.shared_grid) grids_.emplace(output_, sets, words_handed_on());
  }

  int run() {
    std::error_code error;
    fs::create_directories(output_, error);
    if (error) throw CommandError(2, "cannot make " + options_.output + ": " + error.message());
    check_inputs();
    if (!fs::exists(output_ / BatchLock::file_name, error)) check_what_is_there();
    const BatchLock lock(output_);
    if (options_.gather) return gather();
    if (!lock.take_data_sets(slice_.first, slice_.last - slice_.first)) {
      throw CommandError(2, "another batch is at work on these data sets in " + options_.output);
    }
    prepare();
    const std::size_t places =
        static_cast<std::size_t>(options_.jobs > 0 ? options_.jobs : usable_processors());
    Pool pool(places, options_.timeout);
    if (grids_) look_up_grids(pool, lock);
    if (!pool.stopped()) make_maps(pool);
    const bool complete = write_tables();
    if (pool.stopped()) return 128 + pool.stopped();
    return complete ? 0 : 1;
  }

 private:
  [[nodiscard]] DataSetFolder folder(std::size_t item) const { return {output_, sets_[item]}; }
  [[nodiscard]] std::vector<std::string> map_options(std::size_t item) const {
    return grids_ ? grids_->options(item) : words_handed_on();
  }
  [[nodiscard]] Json wanted(std::size_t item) const {
    return folder(item).wanted(map_options(item));
  }

  int gather() {
    if (grids_) {
      grids_->load();
      grids_->settle();
    }
    return write_tables() ? 0 : 1;
  }

  // In a folder that has seen no batch yet the results take no other file's place.
  void check_what_is_there() const {
    check_tables(output_ / slice_.stem);
    for (std::size_t i = slice_.first; i < slice_.last; ++i) {
      const std::string foreign = folder(i).foreign_file();
      if (!foreign.empty()) refuse_to_replace(foreign);
    }
  }
  // Nowhere do they take that of an input.
  void check_inputs() const {
    for (std::size_t i = slice_.first; i < slice_.last; ++i) {
      if (folder(i).takes_place_of(sets_[i].path)) refuse_to_replace(sets_[i].path);
      const std::string& model = sets_[i].model;
      if (!model.empty() && folder(i).takes_place_of(model)) refuse_to_replace(model);
    }
  }

  void prepare() const {
    if (!options_.resume && !options_.overwrite) {
      bool used = fs::exists(output_ / (slice_.stem + ".tsv"));
      for (std::size_t i = slice_.first; i < slice_.last && !used; ++i) {
        used = folder(i).has_record();
      }
      if (used) {
        throw CommandError(2, options_.output +
                                  " holds results already: --resume takes over what is whole, "
                                  "--overwrite makes everything anew, or choose another folder");
      }
    }
    if (options_.range.empty()) remove_strays(output_);  // no other part is at work
    if (options_.overwrite) {
      for (std::size_t i = slice_.first; i < slice_.last; ++i) folder(i).clear();
    }
  }

  // For all data sets, whichever of them are this process's: the first one to come does it.
  void look_up_grids(Pool& pool, const BatchLock& lock) {
    while (!lock.take_grids()) {
      (void)pool.wait(0.2);
      if (pool.stopped()) return;
    }
    grids_->load();
    const std::vector<std::size_t> items = grids_->unknown();
    BatchProgress progress("grids", items.size(), options_.quiet);
    std::size_t next = 0;
    while (!pool.stopped() && (next < items.size() || !pool.empty())) {
      if (next < items.size() && !pool.full()) {
        pool.start(items[next], grids_->question(items[next]));
        ++next;
        continue;
      }
      const auto result = pool.wait(0.2);
      progress.refresh();
      if (!result) continue;
      grids_->answer(*result);
      progress.step(true, !result->done);
    }
    pool.end_all();
    grids_->settle();
    if (!items.empty()) grids_->save();
    lock.leave_grids();
    if (options_.quiet) return;
    for (const std::string& line : grids_->lines()) progress.say("grid of " + line);
  }

  void make_maps(Pool& pool) {
    BatchProgress progress("maps", slice_.last - slice_.first, options_.quiet);
    std::size_t next = slice_.first;
    while (!pool.stopped() && (next < slice_.last || !pool.empty())) {
      if (next < slice_.last && !pool.full()) {
        begin(next++, pool, progress);
        continue;
      }
      const auto result = pool.wait(0.2);
      progress.refresh();
      if (result) go_on(*result, pool, progress);
    }
    pool.end_all();
    for (const auto& [item, unused] : running_) folder(item).clear_work();
    rate_ = progress.rate();
    seconds_ = progress.seconds();
  }

  void begin(std::size_t item, Pool& pool, BatchProgress& progress) {
    Json& conditions = running_[item] = wanted(item);
    if (options_.resume) {
      std::string doubt;
      const Json record = folder(item).record(conditions, doubt);
      if (doubt.empty() && DataSetFolder::is_complete(record)) {
        running_.erase(item);
        ++taken_over_;
        progress.step(false, false);
        return;
      }
    }
    ChildResult refused;
    refused.item = item;
    try {
      const std::vector<std::string> arguments = folder(item).begin(map_options(item));
      refused.reason = grids_ ? grids_->problem(item) : sets_[item].problem;
      if (refused.reason.empty()) return pool.start(item, arguments);
    } catch (const CommandError& error) {
      refused.reason = error.what();
    }
    finish(refused, progress);
  }

  // From the maps to what is in them, if that is wanted, and to the record.
  void go_on(const ChildResult& result, Pool& pool, BatchProgress& progress) {
    if (made_.contains(result.item)) return finish(with_maps(result), progress);
    if (!result.done || !sets_[result.item].peaks) return finish(result, progress);
    ChildResult refused = result;
    try {
      pool.start(result.item, folder(result.item).search(result));
      made_[result.item] = result;
      return;
    } catch (const CommandError& error) {
      refused.done = false;
      refused.reason = error.what();
    }
    finish(refused, progress);
  }

  // A search and the maps that it was made in, which are good also where the model serves nothing.
  ChildResult with_maps(ChildResult search) {
    auto made = made_.extract(search.item);
    search.found = std::move(search.output);
    search.output = std::move(made.mapped().output);
    search.seconds += made.mapped().seconds;
    if (search.refused) {
      search.done = true;
      search.no_search = std::move(search.reason);
      search.reason.clear();
    }
    return search;
  }

  void finish(const ChildResult& result, BatchProgress& progress) {
    const Json record = folder(result.item).finish(running_.at(result.item), result);
    running_.erase(result.item);
    const bool failed = record["status"] != "done";
    const std::string& name = sets_[result.item].name;
    if (failed) {
      tell_failure(name + ": " + record["reason"].get<std::string>(), progress);
    } else if (!result.no_search.empty()) {
      tell_failure(name + ": no peaks: " + result.no_search, progress);
    }
    progress.step(true, failed);
  }

  void tell_failure(const std::string& line, BatchProgress& progress) {
    if (options_.quiet || ++failures_told_ > most_failures_told) return;
    progress.say(line);
    if (failures_told_ == most_failures_told) {
      progress.say("(further failures are told in the table only)");
    }
  }

  // From the records, which are all that counts; true if every data set is done.
  bool write_tables() {
    const fs::path stem = output_ / slice_.stem;
    ResultsTable table(stem);
    std::map<std::string, std::size_t> statuses;
    for (std::size_t i = slice_.first; i < slice_.last; ++i) {
      std::string doubt;
      const Json record = folder(i).record(wanted(i), doubt);
      const Json row = table_row(sets_[i], record, doubt);
      ++statuses[row["status"].get<std::string>()];
      table.add(row);
    }
    table.finish();
    if (!options_.quiet) tell(statuses, stem.string() + ".tsv");
    return statuses["done"] == slice_.last - slice_.first;
  }

  void tell(const std::map<std::string, std::size_t>& statuses, const std::string& path) const {
    const std::size_t sets = slice_.last - slice_.first;
    std::cout << format("%zu data set%s", sets, sets == 1 ? "" : "s");
    for (const auto& [status, count] : statuses) std::cout << ", " << count << ' ' << status;
    if (options_.resume) std::cout << ", " << taken_over_ << " of them taken over";
    if (seconds_ > 0.0) std::cout << format("; %.1f s, %.3g/s", seconds_, rate_);
    std::cout << ": " << path << '\n';
  }

  const BatchOptions& options_;
  const std::vector<DataSet>& sets_;
  Slice slice_;
  fs::path output_;
  std::optional<SharedGrids> grids_;
  std::map<std::size_t, Json> running_;      // and what their records must agree with
  std::map<std::size_t, ChildResult> made_;  // maps that are being searched
  std::size_t taken_over_ = 0, failures_told_ = 0;
  double rate_ = 0.0, seconds_ = 0.0;
};

std::vector<std::string> levels_of_peaks(const BatchOptions& options) {
  std::vector<std::string> words;
  if (options.level) words.insert(words.end(), {"--level", format("%.9g", *options.level)});
  if (options.blob_level) {
    words.insert(words.end(), {"--blob-level", format("%.9g", *options.blob_level)});
  }
  return words;
}

int run(const BatchOptions& options) {
  check_options(options);
  BatchInputs inputs = find_data_sets(options.inputs, options.output);
  for (DataSet& set : inputs.sets) {
    set.with_model = options.maps;
    set.peaks = options.peaks;
    set.levels = levels_of_peaks(options);
    if (options.maps) {
      find_model(set, options.model);
    } else if (options.peaks) {
      find_model_if_any(set, options.model);
    }
  }
  for (const std::string& note : inputs.notes) std::cerr << "quorix batch: " << note << '\n';
  if (inputs.sets.empty()) {
    throw CommandError(2,
                       "no data sets: neither files named, nor .mtz, .cif, .ent (or .gz of them) "
                       "with reflections in the folders (" +
                           options.output + " itself is left out)");
  }
  return Batch(options, inputs.sets).run();
}

}  // namespace

void add_batch(CLI::App& app, int& status) {
  auto options = std::make_shared<BatchOptions>();
  CLI::App* command = app.add_subcommand(
      "batch", "Maps of many data sets, several at a time, with a table of results");
  add_batch_options(*command, *options);
  command->callback([options, &status] { status = run(*options); });
}

}  // namespace qx
