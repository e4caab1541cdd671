// quorix free: what was asked for, and the flags of a file.
#pragma once

#include "driver/commands/free/draw.h"
#include "driver/commands/free_flags.h"

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qx {

struct FreeOptions {
  std::string input, output, like, like_label, label, values = "groups";
  double percent = 5.0, obliquity = 3.0;
  std::int64_t seed = 137;
  std::optional<int> free_value;
  bool extend = false, replace = false, complete = false;
  bool force = false, json = false, quiet = false, verbose = false;
};

void add_free_options(CLI::App& command, FreeOptions& options);
// Throws CommandError.
void check_options(const FreeOptions& options);

struct FreeSource {
  std::string file;  // empty: none
  FreeSet set;
  std::size_t conflicts = 0;
  bool follows_lattice = true;
};

struct FreeFlags {
  FreeSource source;
  FlagValues values;
  std::vector<std::optional<int>> rows;  // of the file
  std::vector<gemmi::Miller> added;      // indices that it lacks, and their flags
  std::vector<int> added_flags;
  std::size_t kept = 0, drawn = 0;  // of the rows
  std::size_t operators = 0;        // of the lattice
  std::size_t own_operators = 0;    // of the group
  std::vector<std::string> warnings;

  [[nodiscard]] std::size_t count(int value) const;
  [[nodiscard]] std::size_t flagged() const;
};

// Throws CommandError.
FreeFlags make_flags(const FreeOptions& options, const ReflectionFile& file);
// The label that the flags get; throws CommandError for one that is there and may not be replaced.
std::string choose_label(const FreeOptions& options, const ReflectionFile& file,
                         const FreeFlags& flags);

}  // namespace qx
