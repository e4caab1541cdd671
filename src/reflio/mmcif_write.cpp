// Writing structure factors in mmCIF: one block, of the columns that there are items for.
#include "core/output_file.h"
#include "core/say.h"
#include "reflio/mmcif_items.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace qx {

namespace {

constexpr const char* writing = "write_mmcif():";

struct Chosen {
  const MtzColumn* columns[mmcif_item_count] = {};
  const MmcifItem* tags[mmcif_item_count] = {};
  std::size_t count = 0;
};

// An item is written once, of the first column that is it.
void choose(const qxmtz& mtz, Chosen& held) {
  for (const MtzColumn& column : mtz.columns) {
    const MmcifItem* item = column.type == 'H' ? nullptr : mmcif_item_of(column);
    const MmcifItem** const end = held.tags + held.count;
    if (!item || std::find(held.tags, end, item) != end) continue;
    held.columns[held.count] = &column;
    held.tags[held.count++] = item;
  }
}

void print_header(std::FILE* out, const qxmtz& mtz, const Chosen& held) {
  constexpr const char* names[] = {"length_a",    "length_b",   "length_c",
                                   "angle_alpha", "angle_beta", "angle_gamma"};
  std::fputs("data_reflections\n_entry.id reflections\n", out);
  if (mtz.has_cell) {
    std::fputs("_cell.entry_id reflections\n", out);
    for (std::size_t i = 0; i < 6; ++i) std::fprintf(out, "_cell.%s %.5g\n", names[i], mtz.cell[i]);
  }
  if (mtz.spacegroup_name[0]) {
    std::fprintf(out, "_symmetry.entry_id reflections\n_symmetry.space_group_name_H-M '%s'\n",
                 mtz.spacegroup_name);
    if (mtz.spacegroup_number > 0) {
      std::fprintf(out, "_symmetry.Int_Tables_number %d\n", mtz.spacegroup_number % 1000);
    }
  }
  if (mtz.symops.count > 0) {
    std::fputs("loop_\n_symmetry_equiv.id\n_symmetry_equiv.pos_as_xyz\n", out);
    for (std::int32_t i = 0; i < mtz.symops.count; ++i) {
      std::fprintf(out, "%d '%s'\n", i + 1, mtz.symops[i].text);
    }
  }
  const double wavelength = wavelength_of(mtz);
  if (wavelength > 0.0) {
    std::fprintf(out,
                 "_diffrn_radiation.diffrn_id 1\n_diffrn_radiation.wavelength_id 1\n"
                 "_diffrn_radiation_wavelength.id 1\n"
                 "_diffrn_radiation_wavelength.wavelength %.5f\n",
                 wavelength);
  }
  std::fputs("loop_\n_refln.index_h\n_refln.index_k\n_refln.index_l\n", out);
  for (std::size_t i = 0; i < held.count; ++i) std::fprintf(out, "%s\n", held.tags[i]->name);
}

void print_value(std::FILE* out, const qxmtz& mtz, const Chosen& held, std::size_t c,
                 std::int32_t row) {
  const float value = held.columns[c]->values[row];
  const bool status = std::strcmp(held.tags[c]->name, "_refln.status") == 0;
  if (is_missing(mtz, *held.columns[c], row)) {
    std::fputs(status ? " x" : " ?", out);
  } else if (status) {
    std::fputs(value == 1.0F ? " f" : " o", out);
  } else {
    std::fprintf(out, " %s", NumberText(value).text);
  }
}

}  // namespace

bool write_mmcif(const char* path, const qxmtz& mtz) {
  const TableOutput output(writing, path, mtz);
  Chosen held;
  choose(mtz, held);
  if (held.count == 0) return output.refuse("There are no columns that mmCIF has items for.");
  OutputFile file;
  if (!output.open(file)) return false;
  print_header(file.stream(), mtz, held);
  for (std::int32_t i = 0; i < mtz.nreflections; ++i) {
    for (std::int32_t a = 0; a < 3; ++a) {
      std::fprintf(file.stream(), "%s%d", a > 0 ? " " : "", index_of(mtz, a, i));
    }
    for (std::size_t c = 0; c < held.count; ++c) print_value(file.stream(), mtz, held, c, i);
    std::fputc('\n', file.stream());
  }
  if (!output.commit(file)) return false;
  output.tell_others(held.columns, held.count);
  return true;
}

}  // namespace qx
