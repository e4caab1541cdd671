#include "driver/commands/reflection_file.h"

#include "driver/commands/command_error.h"
#include "driver/commands/convert/formats.h"
#include "driver/commands/engine_run.h"
#include "driver/commands/file_kind.h"
#include "driver/commands/group_name.h"

#include <quorix/mtz.h>
#include <quorix/reflections.h>
#include <quorix/views.h>

#include <algorithm>
#include <cmath>
#include <future>
#include <gemmi/symmetry.hpp>  // for GroupOps, find_spacegroup_by_ops
#include <gemmi/unitcell.hpp>  // for UnitCell
#include <limits>

namespace qx {

namespace {

std::string path_of(const ReflectionFile& file, const FileColumn& column) {
  for (const FileDataset& set : file.datasets) {
    if (set.id == column.dataset) return set.crystal + "/" + set.name + "/" + column.label;
  }
  return column.label;
}

// Operators tell the setting, which a name such as R3 does not.
const gemmi::SpaceGroup* group_of(const ReflectionFile& file) {
  try {
    std::vector<gemmi::Op> operators;
    for (const std::string& text : file.operators) operators.push_back(gemmi::parse_triplet(text));
    if (!operators.empty()) {
      const auto* group = gemmi::find_spacegroup_by_ops(gemmi::split_centering_vectors(operators));
      if (group) return group;
    }
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {  // unreadable operators: the name has to do
  }
  return find_space_group(file.group_name, file.cell[3], file.cell[5]);
}

FileColumn as_column(const qx_mtz_view& mtz, const qx_mtz_column_view& view) {
  FileColumn column = {view.label, view.type, view.dataset, {}};
  if (!view.values) return column;
  column.values = {view.values, static_cast<std::size_t>(mtz.nrows)};
  if (std::isnan(mtz.missing)) return column;
  std::vector<float> values(column.values.begin(), column.values.end());
  std::replace(values.begin(), values.end(), mtz.missing, std::numeric_limits<float>::quiet_NaN());
  column.marked = std::make_shared<const std::vector<float>>(std::move(values));
  column.values = *column.marked;
  return column;
}

void copy_header(const qxrefdata* set, const qx_mtz_view& mtz, ReflectionFile& file) {
  file.title = mtz.title;
  file.group_name = mtz.group_name;
  file.group_number = mtz.group_number;
  file.batches = mtz.nbatches;
  file.rows = static_cast<std::size_t>(mtz.nrows);
  for (int i = 0; i < mtz.noperators; ++i) file.operators.emplace_back(qx_get_mtz_operator(set, i));
  for (int i = 0; i < mtz.nhistory; ++i) file.history.emplace_back(qx_get_mtz_history(set, i));
  qx_mtz_dataset_view part;
  for (int i = 0; qx_get_mtz_dataset_view(set, i, &part) == 1; ++i) {
    file.datasets.push_back({part.id, part.project, part.crystal, part.name, part.wavelength});
  }
  std::copy_n(mtz.cell, 6, file.cell);
}

void copy_columns(const qxrefdata* set, const qx_mtz_view& mtz, ReflectionFile& file) {
  qx_mtz_column_view column;
  for (int i = 0; qx_get_mtz_column_view(set, i, &column) == 1; ++i) {
    file.columns.push_back(as_column(mtz, column));
  }
}

constexpr float index_limit = 1e6F;

// The nearest whole number; half a step added to a float stays exact.
double whole(float value) {
  const auto exact = static_cast<double>(value);
  return static_cast<int>(exact + (exact < 0.0 ? -0.5 : 0.5));
}

// Least and largest 1/d^2 above 0 of indices, several at a time.
struct SphereLimits {
  static constexpr std::size_t lanes = 8;
  double smallest[lanes], largest[lanes];

  SphereLimits() {
    std::fill(smallest, smallest + lanes, std::numeric_limits<double>::infinity());
    std::fill(largest, largest + lanes, 0.0);
  }
  void add(const gemmi::UnitCell& cell, const float* h, const float* k, const float* l,
           std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      const bool known = std::fabs(h[i]) < index_limit && std::fabs(k[i]) < index_limit &&
                         std::fabs(l[i]) < index_limit;
      const double s2 = cell.calculate_1_d2_double(
          whole(known ? h[i] : 0.0F), whole(known ? k[i] : 0.0F), whole(known ? l[i] : 0.0F));
      smallest[i] = s2 > 0.0 && s2 < smallest[i] ? s2 : smallest[i];
      largest[i] = s2 > largest[i] ? s2 : largest[i];
    }
  }
};

void measure_resolution(ReflectionFile& file) {
  const gemmi::UnitCell cell(file.cell[0], file.cell[1], file.cell[2], file.cell[3], file.cell[4],
                             file.cell[5]);
  if (!cell.is_crystal() || file.columns.size() < 3) return;
  const float* h = file.columns[0].values.data();
  const float* k = file.columns[1].values.data();
  const float* l = file.columns[2].values.data();
  constexpr std::size_t lanes = SphereLimits::lanes;
  SphereLimits limits;
  std::size_t i = 0;
  for (; i + lanes <= file.rows; i += lanes) limits.add(cell, h + i, k + i, l + i, lanes);
  limits.add(cell, h + i, k + i, l + i, file.rows - i);
  const double largest = *std::max_element(limits.largest, limits.largest + lanes);
  const double smallest = *std::min_element(limits.smallest, limits.smallest + lanes);
  if (largest > 0.0) {
    file.resolution[0] = 1.0 / std::sqrt(largest);
    file.resolution[1] = 1.0 / std::sqrt(smallest);
  }
}

// A failure is the command's: nothing is printed where it comes about.
class SilentHost final : public EngineHost {
  void said(const std::string& /*text*/) override {}
  void pause() override {}
};

// In a thread of its own: the engine of this one may hold files by now.
void convert_table(const char* word, const std::string& from, const TemporaryFile& to,
                   const std::string& path) {
  const auto work = [&] {
    SilentHost host;
    set_engine_host(&host);
    Engine engine(false);
    engine.call(
        [&] { return qx_convert_reflections(word, from.c_str(), "MTZ", to.path().c_str()); });
  };
  try {
    std::async(std::launch::async, work).get();
  } catch (const EngineFailure& failure) {
    throw CommandError(2, "cannot read reflections from " + path + ": " + failure.what());
  }
}

}  // namespace

ReadableMtz readable_mtz(const std::string& path) {
  ReadableMtz mtz = {path, nullptr};
  bool gzipped = false;
  const std::string start = first_bytes(path, 4096, &gzipped);
  const bool is_mtz = start.starts_with("MTZ ");
  const std::string word = is_mtz ? std::string() : table_word(start);
  if (!is_mtz && word.empty() && start.find("data_") == std::string::npos) {
    throw CommandError(2, path + " is neither an MTZ nor an mmCIF file");
  }
  if (gzipped) {
    mtz.unpacked = std::make_shared<TemporaryFile>();
    unpack(path, *mtz.unpacked);
    mtz.path = mtz.unpacked->path();
  }
  if (is_mtz) return mtz;
  auto converted = std::make_shared<TemporaryFile>();
  mtz.is_table = !word.empty();
  if (mtz.is_table) {
    mtz.format = format_of_word(word).name;
    convert_table(word.c_str(), mtz.path, *converted, path);
  } else {
    mtz.format = "mmCIF";
    convert_mmcif(mtz.path, *converted, path);
  }
  mtz.unpacked = converted;
  mtz.path = converted->path();
  return mtz;
}

void ReflectionFile::lend() const {
  if (contents) qx_lend_mtz(readable.path.c_str(), contents.get());
}

bool ReflectionFile::index(std::size_t row, int (&hkl)[3]) const {
  if (columns.size() < 3) return false;
  for (std::size_t a = 0; a < 3; ++a) {
    const float value = columns[a].values[row];
    if (!(std::fabs(value) < index_limit)) return false;
    hkl[a] = static_cast<int>(whole(value));
  }
  return true;
}

std::vector<const FileColumn*> ReflectionFile::find(const std::string& name) const {
  std::vector<const FileColumn*> found;
  for (const FileColumn& column : columns) {
    if (column.label == name || path_of(*this, column) == name) found.push_back(&column);
  }
  return found;
}

std::string ReflectionFile::name_of(const FileColumn& column) const {
  return find(column.label).size() == 1 ? column.label : path_of(*this, column);
}

bool ReflectionFile::has_cell() const {
  const gemmi::UnitCell own(cell[0], cell[1], cell[2], cell[3], cell[4], cell[5]);
  return own.is_crystal() && own.volume > 0.0;
}

std::string ReflectionFile::engine_group() const { return group ? group->xhm() : std::string(); }

bool are_countable(const double* cell, double dmin) {
  const gemmi::UnitCell box(cell[0], cell[1], cell[2], cell[3], cell[4], cell[5]);
  if (!box.is_crystal() || !(dmin > 0.0)) return false;
  const double longest = std::max({1 / box.ar, 1 / box.br, 1 / box.cr, box.a, box.b, box.c});
  constexpr double most = 2e9;  // indices in the box that is searched
  const double searched = 8.0 * box.a * box.b * box.c / (dmin * dmin * dmin);
  return longest / dmin < 1e5 && searched < most && box.volume > 0.0;
}

namespace {

// The indices come first, wherever they stand in the file.
void put_indices_first(ReflectionFile& file) {
  for (const char* label : {"L", "K", "H"}) {
    const auto at = std::find_if(file.columns.begin(), file.columns.end(),
                                 [&](const FileColumn& c) { return c.label == label; });
    if (at != file.columns.end()) std::rotate(file.columns.begin(), at, at + 1);
  }
}

Status copy_file(const qxrefdata* set, ReflectionFile& file) {
  qx_mtz_view header;
  if (qx_get_mtz_view(set, &header) != 1) return failed;
  copy_header(set, header, file);
  copy_columns(set, header, file);
  put_indices_first(file);
  return ok;
}

enum class Reading { header, held, taken };

ReflectionFile read_any(Engine& engine, const std::string& path, const ReadableMtz& readable,
                        Reading reading) {
  ReflectionFile file;
  file.path = path;
  file.readable = readable;
  const bool whole = reading != Reading::header;
  engine.call([&] {
    qxrefdata* set = qx_new_qxrefdata_obj();
    if (!set) return failed;
    const auto read_mtz = whole ? qx_read_refdata_mtz_file_obj : qx_read_refdata_mtz_header_obj;
    if (read_mtz(set, readable.path.c_str()) != ok || copy_file(set, file) != ok) return failed;
    if (reading == Reading::held && qx_hold_refdata_mtz(set) != ok) return failed;
    if (reading == Reading::taken) file.contents = {qx_take_refdata_mtz(set), qx_end_mtz};
    return qx_delete_qxrefdata_obj(set);
  });
  file.group = group_of(file);
  if (whole) measure_resolution(file);
  return file;
}

// What stands in a table of text does not always tell its crystal.
void check_crystal(const ReflectionFile& file) {
  if (!file.readable.is_table || (file.has_cell() && file.group)) return;
  std::string missing, words = "quorix convert " + file.path + " " + stem_of(file.path) + ".mtz";
  if (!file.has_cell()) {
    missing = "cell";
    words += " --cell A B C ALPHA BETA GAMMA";
  }
  if (!file.group) {
    missing += missing.empty() ? "space group" : " and space group";
    words += " --spacegroup NAME";
  }
  throw CommandError(2, file.path + ", " + file.readable.format + ", does not tell its " + missing +
                            ": make an MTZ file of it that does, with " + words);
}

ReflectionFile read(Engine& engine, const std::string& path, const ReadableMtz& readable,
                    Reading reading) {
  ReflectionFile file = read_any(engine, path, readable, reading);
  check_crystal(file);
  return file;
}

}  // namespace

ReflectionFile read_reflections(Engine& engine, const std::string& path,
                                const ReadableMtz& readable) {
  return read(engine, path, readable, Reading::held);
}

ReflectionFile read_reflections(Engine& engine, const std::string& path) {
  return read(engine, path, readable_mtz(path), Reading::held);
}

ReflectionFile read_without_crystal(Engine& engine, const std::string& path) {
  return read_any(engine, path, readable_mtz(path), Reading::held);
}

ReflectionFile read_reflections(const std::string& path, bool verbose) {
  Engine engine(verbose);
  return read(engine, path, readable_mtz(path), Reading::taken);
}

ReflectionFile read_labels(Engine& engine, const std::string& path, const ReadableMtz& readable) {
  return read(engine, path, readable, Reading::header);
}

}  // namespace qx
