// Finding columns by label alone or by crystal, data set and label.
#include "core/require.h"
#include "crystal/reflections.h"
#include "reflio/mtz.h"

#include <cstring>
#include <strings.h>

using qx::fail;
using qx::ok;
using qx::Status;

namespace qx {

namespace {

// The label of unmerged files that holds a slash without being a path.
bool is_misym(const char* label) { return strcasecmp(label, "M/ISYM") == 0; }

void copy_piece(char* to, const char* from, const char* end) {
  const auto size = static_cast<std::size_t>(end - from);
  std::memcpy(to, from, size);
  to[size] = '\0';
}

struct DatasetPosition {
  std::int32_t crystal = -1;
  std::int32_t dataset = -1;
};

DatasetPosition find_position(const qxmtz& mtz, const char* crystal, const char* dataset) {
  DatasetPosition position;
  for (std::int32_t i = 0; i < mtz.datasets.count; ++i) {
    if (strcasecmp(mtz.datasets[i].crystal, crystal) != 0) continue;
    if (position.crystal < 0) position.crystal = i;
    if (strcasecmp(mtz.datasets[i].name, dataset) != 0) continue;
    position.dataset = i;
    break;
  }
  return position;
}

std::int32_t find_label(const qxmtz& mtz, const char* label) {
  for (std::int32_t i = 0; i < mtz.columns.count; ++i) {
    if (std::strcmp(mtz.columns[i].label, label) == 0) return i;
  }
  return -1;
}

// A label with the other spelling of M/ISYM.
std::int32_t find_bare(const qxmtz& mtz, const char* label) {
  const std::int32_t position = find_label(mtz, label);
  if (position < 0 && std::strcmp(label, "M_ISYM") == 0) return find_label(mtz, "M/ISYM");
  return position;
}

std::int32_t find_in_dataset(const qxmtz& mtz, const char* crystal, const char* dataset,
                             const char* label) {
  const std::int32_t set = find_position(mtz, crystal, dataset).dataset;
  if (set < 0) return -1;
  for (std::int32_t i = 0; i < mtz.columns.count; ++i) {
    if (mtz.columns[i].dataset_id == mtz.datasets[set].id &&
        std::strcmp(mtz.columns[i].label, label) == 0) {
      return i;
    }
  }
  return -1;
}

}  // namespace

Status locate_column(const qxmtz& mtz, const char* name, std::int32_t& position) {
  position = *name ? find_bare(mtz, name) : -1;  // a label may itself hold slashes
  if (position >= 0) return ok;
  const std::size_t size = std::strlen(name) + 1;
  Tagged<char> pieces(3 * size, "plc_name");
  if (!pieces) return failed;
  char* crystal = pieces.get();
  char* dataset = crystal + size;
  char* label = dataset + size;
  QX_TRY(qx_get_mtz_cry_ds_col_name(name, crystal, dataset, label));
  if (*crystal) position = find_in_dataset(mtz, crystal, dataset, label);
  return ok;
}

}  // namespace qx

Status qx_get_mtz_cry_ds_col_name(const char* name, char* crystal, char* dataset, char* column) {
  *crystal = *dataset = *column = '\0';
  const char* end = name + std::strlen(name);
  const char* first = std::strchr(name, '/');
  if ((!first && *name) || qx::is_misym(name)) {
    qx::copy_piece(column, name, end);
    return ok;
  }
  const char* second = first ? std::strchr(first + 1, '/') : nullptr;
  if (!second || first == name || second == first + 1 || second + 1 == end) {
    return fail("qx_get_mtz_cry_ds_col_name():", "Not a valid definion for MTZ column: %s\n", name);
  }
  qx::copy_piece(crystal, name, first);
  qx::copy_piece(dataset, first + 1, second);
  qx::copy_piece(column, second + 1, end);
  return ok;
}

Status qx_get_mtz_cry_ds_pos(const char* crystal, const char* dataset,
                             std::int32_t* crystal_position, std::int32_t* dataset_position) {
  *crystal_position = *dataset_position = -1;
  const qxmtz* mtz = nullptr;
  QX_TRY(qx::require(" qx_get_mtz_cry_ds_pos():", qx_get_refdata_mtz, mtz,
                     "mtzdata object has not been created yet"));
  const qx::DatasetPosition position = qx::find_position(*mtz, crystal, dataset);
  *crystal_position = position.crystal;
  *dataset_position = position.dataset;
  return ok;
}

Status qx_get_mtz_col_pos(const qxmtz* mtz, const char* name, std::int32_t* position) {
  return qx::locate_column(*mtz, name, *position);
}

void qx_get_mtz_col_order(const qxmtz* mtz, std::int32_t nwanted, const char* const* labels,
                          std::int32_t* order) {
  for (std::int32_t i = 0; i < nwanted && i < 5; ++i) {
    order[i] = qx::find_bare(*mtz, labels[i]) + 1;
  }
}
