// A reflection file as the commands look at it before any section runs: what it says of itself, and
// its columns. MTZ, also gzipped, or structure-factor mmCIF.
#pragma once

#include "driver/commands/readable_file.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace gemmi {
struct SpaceGroup;
}

namespace qx {

struct FileColumn {
  std::string label;
  char type;
  std::int32_t dataset;
  std::vector<float> values;  // NaN where missing

  [[nodiscard]] std::size_t missing() const;
};

struct FileDataset {
  std::int32_t id;
  std::string project, crystal, name;
  double wavelength;
};

struct ReflectionFile {
  std::string path;                         // as the user gave it
  std::string readable;                     // what the sections read
  std::shared_ptr<TemporaryFile> unpacked;  // null when that is the file itself
  bool from_mmcif = false;
  std::string title, group_name;  // as the file writes them
  std::int32_t group_number = 0;
  std::vector<std::string> operators, history;
  const gemmi::SpaceGroup* group = nullptr;  // by the operators, else by name; null: not known
  double cell[6] = {};
  double resolution[2] = {};  // Angstrom, of the rows: high, low
  std::size_t rows = 0;
  std::int32_t batches = 0;
  std::vector<FileDataset> datasets;
  std::vector<FileColumn> columns;

  // The indices of a row; false if it has none.
  bool index(std::size_t row, int (&hkl)[3]) const;
  // All columns that `name` (label or crystal/dataset/label) means.
  [[nodiscard]] std::vector<const FileColumn*> find(const std::string& name) const;
  // The shortest name that means this column only.
  [[nodiscard]] std::string name_of(const FileColumn& column) const;
  // The name under which the engine's file has the group; empty: only its operators are known.
  [[nodiscard]] std::string engine_group() const;
};

// A file that the engine can open by name: the one that is named, or what it unpacks or converts
// to.
struct ReadableMtz {
  std::string path;
  std::shared_ptr<TemporaryFile> unpacked;  // null when that is the file itself
  bool from_mmcif = false;
};

// Throws CommandError for what is neither MTZ nor mmCIF.
ReadableMtz readable_mtz(const std::string& path);

// True if the cell is one, and its reflections to `dmin` (Angstrom) are few enough to be gone
// through: damaged files have cells of any size.
bool are_countable(const double* cell, double dmin);

// Throws CommandError, after a report of the engine if it is the engine that refuses the file.
ReflectionFile read_reflections(const std::string& path, bool verbose);

}  // namespace qx
