// quorix batch: the options, and those that it hands on.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qx {

struct BatchOptions {
  std::vector<std::string> inputs;
  std::string output, range, model;
  int jobs = 0;                             // 0: the processors available
  double timeout = 0.0;                     // seconds, 0: none
  bool maps = false;                        // of observations and a model
  bool peaks = false;                       // are looked for in the maps
  std::optional<double> level, blob_level;  // of peaks and blobs, rms
  bool shared_grid = false, resume = false, overwrite = false, gather = false, quiet = false;
};

// The data sets of one process, from `first` on, and where their table goes.
struct Slice {
  std::size_t first = 0, last = 0;
  std::string stem = "results";
};

// Throws CommandError for a range that is none.
Slice slice_of(const std::string& range, std::size_t count);

void add_batch_options(CLI::App& command, BatchOptions& options);
// Everything that would fail for every data set alike is told before the first: throws
// CommandError.
void check_options(const BatchOptions& options);

// What stands behind -- on the line, for quorix map.
const std::vector<std::string>& words_handed_on();

}  // namespace qx
