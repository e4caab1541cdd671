// The mask of the bulk solvent as a map file.
#include "core/report.h"
#include "core/require.h"
#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/spacegroup.h"
#include "map/ccp4_file.h"
#include "solvent/solvent.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/spacegroup.h>

using qx::failed;
using qx::Status;

namespace {

constexpr const char* here = "qx_write_solvent_mask():";

qx::Ccp4Header header_of(const qx::MaskGrid& grid, const qxcell& cell, const qxspg& spg) {
  qx::Ccp4Header header = qx::blank_ccp4_header();
  const std::int32_t counts[3] = {grid.nx, grid.ny, grid.nz};
  for (int i = 0; i < 3; ++i) {
    header.counts[i] = header.intervals[i] = counts[i];
    header.starts[i] = 0;
  }
  header.mode = 2;
  qx::set_cell(header, cell);
  header.space_group = spg.spg_id;
  header.symmetry_bytes = 80 * spg.nops;
  header.nlabels = 2;
  qx::set_label(header, 0, "Map generated from Quorix");
  qx::set_label(header, 1, "Mask of the bulk solvent: 1 solvent, 0 model");
  return header;
}

}  // namespace

Status qx_write_solvent_mask(const char* path) {
  const qxsolvent* found = nullptr;
  QX_TRY(qx::require_of_engine(here, qx_get_qxsolvent, found,
                               " qxsolvent object has not been created yet "));
  if (!found->mask) QX_TRY(qx_make_solvent_mask());
  const qxsolvent* solvent = qx_get_qxsolvent();
  if (!solvent) return failed;
  const qxcell* cell = nullptr;
  QX_TRY(
      qx::require_of_engine(here, qx_get_qxcell, cell, "qxcell object has not been created yet "));
  const qxspg* spg = nullptr;
  QX_TRY(qx::require(here, qx_get_qxspg, spg, "qxspg object has not been created yet "));
  const qx::MaskGrid& grid = solvent->grid;
  const qx::Tagged<double> values(grid.points(), "pwm_mask");
  if (!values) return failed;
  for (std::size_t i = 0; i < grid.points(); ++i) values[i] = solvent->mask[i] ? 0.0 : 1.0;
  const qx::View3<const double> box = {values.get(), grid.nz, grid.ny, grid.nx};
  qx::Ccp4Header header = header_of(grid, *cell, *spg);
  qx::set_statistics(header, qx::statistics_of(box));
  return qx::write_ccp4(here, path, header, spg, box);
}
