// The one door for reflection files: what a file says of itself, and its columns, as the commands
// look at them before any section runs. MTZ or structure-factor mmCIF, or one of the tables of text
// that are read by way of MTZ; also gzipped. The engine reads a file once; sections that read
// `readable` are handed what is there.
#pragma once

#include "driver/commands/engine_run.h"
#include "driver/commands/readable_file.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace gemmi {
struct SpaceGroup;
}
struct qxmtz;

namespace qx {

struct FileColumn {
  std::string label;
  char type;
  std::int32_t dataset;
  // NaN where missing; in memory of the engine or of the file's contents, or `marked`.
  std::span<const float> values;
  std::shared_ptr<const std::vector<float>> marked = {};  // where the file's mark is another
};

struct FileDataset {
  std::int32_t id;
  std::string project, crystal, name;
  double wavelength;
};

// A file that the engine can open by name: the one that is named, or what it unpacks or converts
// to.
struct ReadableMtz {
  std::string path;
  std::shared_ptr<TemporaryFile> unpacked;  // null when that is the file itself
  std::string format = "MTZ";               // of the file that is named
  bool is_table = false;                    // of text: it may tell neither cell nor group
};

struct ReflectionFile {
  std::string path;               // as the user gave it
  ReadableMtz readable;           // what the sections read
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
  std::shared_ptr<const qxmtz> contents;  // null: an engine holds them

  // To an engine that runs sections which read the file; this stays where it is until that goes.
  void lend() const;
  [[nodiscard]] bool has_cell() const;
  // The indices of a row; false if it has none.
  bool index(std::size_t row, int (&hkl)[3]) const;
  // All columns that `name` (label or crystal/dataset/label) means.
  [[nodiscard]] std::vector<const FileColumn*> find(const std::string& name) const;
  // The shortest name that means this column only.
  [[nodiscard]] std::string name_of(const FileColumn& column) const;
  // The name under which the engine's file has the group; empty: only its operators are known.
  [[nodiscard]] std::string engine_group() const;
};

// Throws CommandError for what is no file of reflections.
ReadableMtz readable_mtz(const std::string& path);

// True if the cell is one, and its reflections to `dmin` (Angstrom) are few enough to be gone
// through: damaged files have cells of any size.
bool are_countable(const double* cell, double dmin);

// All of a file, which the engine holds from now on: columns are there as long as the engine is.
// Throws CommandError, after a report of the engine if it is the engine that refuses the file, and
// for a table without a cell or a group, with what to type.
ReflectionFile read_reflections(Engine& engine, const std::string& path);
ReflectionFile read_reflections(Engine& engine, const std::string& path,
                                const ReadableMtz& readable);
// A file that outlives the engine that read it; other engines may be lent it.
ReflectionFile read_reflections(const std::string& path, bool verbose);
// Of a file whose crystal is not asked for.
ReflectionFile read_without_crystal(Engine& engine, const std::string& path);
// Of a file without its values: labels can be chosen by it.
ReflectionFile read_labels(Engine& engine, const std::string& path, const ReadableMtz& readable);

}  // namespace qx
