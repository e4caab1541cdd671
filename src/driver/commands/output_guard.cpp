#include "driver/commands/output_guard.h"

#include "core/files_read.h"
#include "driver/commands/command_error.h"

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace qx {

namespace {

namespace fs = std::filesystem;

// One text for all names of a file, or for all ways to a name that is not there yet.
std::string identity_of(const std::string& path) {
  struct stat state = {};
  if (stat(path.c_str(), &state) == 0) {
    return format("%ju:%ju", static_cast<std::uintmax_t>(state.st_dev),
                  static_cast<std::uintmax_t>(state.st_ino));
  }
  std::error_code error;
  const fs::path whole = fs::absolute(path, error);
  return (fs::weakly_canonical(whole.parent_path(), error) / whole.filename()).string();
}

bool is_regular(const std::string& path) {
  struct stat state = {};
  return stat(path.c_str(), &state) != 0 || S_ISREG(state.st_mode);
}

bool goes_to_standard_output(const std::string& path) {
  struct stat own = {};
  struct stat state = {};
  if (fstat(STDOUT_FILENO, &own) != 0 || stat(path.c_str(), &state) != 0) return false;
  return (S_ISREG(own.st_mode) || S_ISFIFO(own.st_mode)) && is_same_file(own, state);
}

// A name beside it that is free and tells what it holds.
std::string other_name(const Output& output) {
  const char* ending = output.kind == FileKind::map       ? ".ccp4"
                       : output.kind == FileKind::page    ? ".html"
                       : output.kind == FileKind::mtz     ? ".mtz"
                       : output.kind == FileKind::drawing ? ".svg"
                       : output.kind == FileKind::atoms   ? ".pdb"
                                                          : ".txt";
  const fs::path path(output.path);
  fs::path stem = path.filename();
  if (stem.extension() == ".gz") stem = stem.stem();
  std::string name = (path.parent_path() / stem.stem()).string() + "_new";
  std::error_code error;
  while (fs::exists(name + ending, error)) name += "_new";
  return name + ending;
}

[[noreturn]] void refuse(const std::string& problem, const Output& output) {
  throw CommandError(2, problem + ": name another, such as " + other_name(output));
}

void check_against_inputs(const std::vector<std::string>& inputs, const Output& output) {
  for (const std::string& input : inputs) {
    if (input.empty() || identity_of(input) != identity_of(output.path)) continue;
    const std::string other = input == output.path ? "" : ", under the name " + input;
    refuse(output.path + " is an input" + other + ", and is not written over", output);
  }
}

void check_kind(const Output& output, bool force) {
  const FileKind kind = kind_of(output.path);
  if (kind == FileKind::folder) {
    throw CommandError(2, output.path + " is a folder: name a file in it");
  }
  const bool fine = kind == FileKind::missing || kind == FileKind::empty ||
                    kind == FileKind::special || kind == output.kind;
  if (fine || force) return;
  throw CommandError(2, output.path + " is there and is " + name_of(kind) +
                            ": name another, such as " + other_name(output) +
                            ", or say --force to replace it");
}

}  // namespace

void check_outputs(const std::vector<std::string>& inputs, const std::vector<Output>& outputs,
                   bool force) {
  for (const Output& output : outputs) {
    if (output.path.empty() || !is_regular(output.path)) continue;
    check_against_inputs(inputs, output);
    for (const Output* other = outputs.data(); other != &output; ++other) {
      if (other->path.empty() || identity_of(other->path) != identity_of(output.path)) continue;
      refuse(output.path + " would be written twice", output);
    }
  }
  for (const Output& output : outputs) {
    if (output.path.empty()) continue;
    if (goes_to_standard_output(output.path)) {
      throw CommandError(2, output.path + " is where standard output goes already: say - for a " +
                                "map on standard output, or send the rest elsewhere");
    }
    check_kind(output, force);
  }
}

}  // namespace qx
