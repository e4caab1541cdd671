// The MTZ object: everything that a file says, all columns included. Texts keep the length of a
// header record.
#pragma once

#include "core/report.h"
#include "core/tagged.h"

#include <quorix/mtz.h>

#include <cstdint>
#include <limits>

struct stat;

namespace qx {

inline constexpr std::size_t mtz_record_size = 80;
using MtzText = char[mtz_record_size + 1];

// One data set with the crystal and the project it belongs to.
struct MtzDataset {
  std::int32_t id = 0;
  MtzText project = {};
  MtzText crystal = {};
  MtzText name = {};
  double cell[6] = {};
  double wavelength = 0.0;
};

struct MtzColumn {
  MtzText label = {};
  char type = 'R';
  double minimum = 0.0;
  double maximum = 0.0;
  std::int32_t dataset_id = 0;
  std::int32_t extra[2] = {};  // two further integers of the record, if any
  float* values = nullptr;     // within the object's block
};

struct MtzBatch {
  std::int32_t number = 0;
  MtzText title = {};
  MtzText axes[3] = {};
  std::int32_t nintegers = 0;
  std::int32_t nreals = 0;
  std::int32_t* integers = nullptr;
  float* reals = nullptr;
};

// An array that grows while a file is read; null while empty.
template <class T>
struct MtzList {
  std::int32_t count = 0;
  std::int32_t capacity = 0;
  T* items = nullptr;

  T& operator[](std::int32_t i) const { return items[i]; }
  [[nodiscard]] T* begin() const { return items; }
  [[nodiscard]] T* end() const { return items + count; }
};

// A new element with its defaults at the end; null after a report.
template <class T>
T* append(MtzList<T>& list, const char* tag) {
  if (list.count == list.capacity) {
    const std::int32_t capacity = list.capacity ? 2 * list.capacity : 8;
    T* items = allocate<T>(static_cast<std::size_t>(capacity), tag);
    if (!items) return nullptr;
    if (list.count > 0) {
      std::memcpy(static_cast<void*>(items), list.items,
                  static_cast<std::size_t>(list.count) * sizeof(T));
    }
    if (release(list.items) != ok) return nullptr;
    list.items = items;
    list.capacity = capacity;
  }
  return new (&list.items[list.count++]) T{};
}

struct MtzLine {
  MtzText text = {};
};

// What tells that a file is still the one that was read.
struct FileMark {
  std::uint64_t device = 0, number = 0;
  std::int64_t size = 0, seconds = 0, nanoseconds = 0;
  bool operator==(const FileMark&) const = default;
};
FileMark mark_of(const struct stat& state) noexcept;

}  // namespace qx

struct qxspg;

struct qxmtz {
  char* path = nullptr;  // of the file that was read
  qx::FileMark mark;
  qxmtz* next_held = nullptr;  // in the list of files that are held
  qx::MtzText version = {};
  qx::MtzText title = {};
  std::int32_t nreflections = 0;
  std::int32_t ncolumns_declared = 0;
  std::int32_t nbatches_declared = 0;
  std::int32_t ndatasets_declared = 0;
  bool has_dataset_count = false;
  bool has_cell = false;
  double cell[6] = {};
  std::int32_t sort[5] = {};
  std::int32_t nsymops_declared = 0;
  std::int32_t nprimitive = 0;
  char lattice = 'P';
  std::int32_t spacegroup_number = 0;
  qx::MtzText spacegroup_name = {};
  qx::MtzText point_group = {};
  double resolution[2] = {};                                // 1/d^2, smallest and largest
  float missing = std::numeric_limits<float>::quiet_NaN();  // marker besides NaN
  std::int32_t nhistory_declared = 0;
  qx::MtzList<qx::MtzLine> symops;
  qx::MtzList<qx::MtzDataset> datasets;
  qx::MtzList<qx::MtzColumn> columns;
  float* values = nullptr;  // the values of all columns
  qx::MtzList<qx::MtzLine> history;
  qx::MtzList<qx::MtzBatch> batches;
};

struct qxrefdata;

namespace qx {

// Whether the file is of this space group, as far as it tells.
bool has_same_group(const qxmtz& mtz, const qxspg& spg);

// Copies what fits into a record.
void copy_text(MtzText& to, const char* from) noexcept;

// One block for the values of all columns, so that it can stand on large pages: every column gets
// its part, uninitialised.
Status open_values(qxmtz& mtz);

// Smallest and largest value of a column of n.
void set_range(MtzColumn& column, std::int32_t n) noexcept;

// Position of the data set with this id, -1 if there is none.
std::int32_t find_dataset(const qxmtz& mtz, std::int32_t id) noexcept;

// Position of the column that `name` (label or crystal/dataset/label) means, -1 if there is none;
// `failed` after a report of a name that cannot be one.
Status locate_column(const qxmtz& mtz, const char* name, std::int32_t& position);

void print_mtz(const qxmtz& mtz);

// False if no more than the header was read.
inline bool has_rows(const qxmtz& mtz) noexcept { return mtz.values || mtz.nreflections < 1; }

// What is held of the file at `path`; null if it is not held, or has changed since.
qxmtz* held_mtz(const char* path) noexcept;
bool is_held(const qxmtz* mtz) noexcept;
void let_go(const qxmtz* mtz) noexcept;
// Reads the file, unless it is held.
Status read_mtz_once(qxrefdata* refdata, const char* path);

}  // namespace qx
