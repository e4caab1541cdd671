#include "sf/partition.h"

#include "core/constants.h"
#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "crystal/reflections.h"
#include "model/molsys.h"

#include <quorix/engine.h>
#include <quorix/model.h>
#include <quorix/reflections.h>
#include <quorix/structfact.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace qx {

namespace {

// The partition and the molecular system, either of which may be absent.
struct Parts {
  qxsyspart* partition = nullptr;
  const molsys* system = nullptr;

  Status fetch() {
    qxsyspart* found = qx_get_qxsyspart();
    if (!found && !qx_exist_quorix()) return failed;
    partition = found;
    system = qx_get_molsys();
    return system || qx_exist_quorix() ? ok : failed;
  }
  [[nodiscard]] bool by_entry() const {
    return partition && partition->by_entry && system && system->full.nentries > 0;
  }
  [[nodiscard]] std::int32_t of_atoms() const { return by_entry() ? system->full.nentries : 1; }
  [[nodiscard]] std::int32_t count() const {
    return of_atoms() + (partition && partition->partial_re ? 1 : 0);
  }
  [[nodiscard]] PartScale scale(std::int32_t part) const {
    return partition && part < partition->nscales ? partition->scales[part] : PartScale{};
  }
  // Atoms computed with that lie before the end of an entry.
  [[nodiscard]] std::int32_t end(std::int32_t part) const {
    const std::int32_t* list = system->to_full;
    const std::int32_t entry_end = system->full.entry_ends[part];
    return static_cast<std::int32_t>(std::lower_bound(list, list + system->natom, entry_end) -
                                     list);
  }
};

// Structure factors of another partition are none of this one.
Status drop_factors() {
  qxstructfact* sf = qx_get_qxstructfact();
  if (!qx_exist_quorix()) return failed;
  return sf ? release_all_sums(sf) : ok;
}

Status fetch_partition(const char* heading, Parts& parts) {
  QX_TRY(parts.fetch());
  return parts.partition ? ok : fail(heading, "qxsyspart object has not been created yet.");
}

}  // namespace

Status count_atom_parts(std::int32_t& count) {
  Parts parts;
  QX_TRY(parts.fetch());
  count = parts.of_atoms();
  return ok;
}

Status atoms_of_part(std::int32_t part, std::int32_t& first, std::int32_t& last) {
  Parts parts;
  QX_TRY(parts.fetch());
  first = parts.by_entry() && part > 0 ? parts.end(part - 1) : 0;
  last = parts.by_entry() ? parts.end(part) : parts.system ? parts.system->natom : 0;
  return ok;
}

Status open_parts(qxstructfact& sf) {
  Parts parts;
  QX_TRY(parts.fetch());
  const std::int32_t count = parts.count();
  QX_TRY(open_list(sf.parts, count, "pns_parts"));
  sf.nparts = count;
  std::fill_n(sf.parts, count, PartSums{});
  return reset_scales(sf);
}

Status reset_scales(qxstructfact& sf) {
  Parts parts;
  QX_TRY(parts.fetch());
  for (std::int32_t i = 0; i < sf.nparts; ++i) {
    sf.parts[i].scale = parts.scale(i).scale;
    sf.parts[i].b = parts.scale(i).b;
  }
  return ok;
}

Status fill_partial(const char* heading, const qxrefdata& data, qxstructfact& sf) {
  Parts parts;
  QX_TRY(parts.fetch());
  if (!parts.partition || parts.partition->npartial != data.nreflections) {
    return fail(heading, "The partial structure factors are those of other reflections.");
  }
  double ratio = 1.0;
  QX_TRY(sampling_ratio(heading, ratio));
  const PartSums& sums = sf.parts[sf.nparts - 1];
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const double factor = 1.0 / (ratio * sf.prefactor[i]);
    sums.re[i] = factor * parts.partition->partial_re[i];
    sums.im[i] = factor * parts.partition->partial_im[i];
  }
  return ok;
}

Status recalculate_factors(const char* heading) {
  const qxstructfact* before = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxstructfact, before,
                               "qxstructfact object has not been created yet "));
  const std::int32_t count = before->nparts;
  Tagged<PartScale> scales(static_cast<std::size_t>(count), "prf_scale");
  if (!scales) return failed;
  for (std::int32_t i = 0; i < count; ++i) {
    scales[static_cast<std::size_t>(i)] = {before->parts[i].scale, before->parts[i].b};
  }
  QX_TRY(qx_calc_system_struct_factor());
  qxstructfact* after = qx_get_qxstructfact();
  if (!after) return failed;
  for (std::int32_t i = 0; i < std::min(count, after->nparts); ++i) {
    after->parts[i].scale = scales[static_cast<std::size_t>(i)].scale;
    after->parts[i].b = scales[static_cast<std::size_t>(i)].b;
  }
  return ok;
}

}  // namespace qx

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Parts;
using qx::Status;

Status qx_set_qxsyspart_by(std::int32_t by) {
  constexpr const char* heading = "qx_set_qxsyspart_by():";
  Parts parts;
  QX_TRY(qx::fetch_partition(heading, parts));
  if (by != 0 && by != 1) return fail(heading, "There is no partition of kind %d.", by);
  parts.partition->by_entry = by == 1;
  return qx::drop_factors();
}

namespace {

Status copy_partial(const char* heading, qxsyspart& partition) {
  const qxrefdata* data = qx_get_qxrefdata();
  if (!qx_exist_quorix()) return failed;
  if (!data || data->nreflections < 1 || !data->fpart || !data->phip) {
    return fail(heading, "There are no partial structure factors: FPART and PHIP.");
  }
  const auto n = static_cast<std::size_t>(data->nreflections);
  QX_TRY(qx::open_block(partition.partial_re, n, "psp_re"));
  QX_TRY(qx::open_block(partition.partial_im, n, "psp_im"));
  for (std::size_t i = 0; i < n; ++i) {
    const auto amplitude = static_cast<double>(data->fpart[i]);
    const double phase = static_cast<double>(data->phip[i]) * qx::pi / 180.0;
    const bool known = std::isfinite(amplitude) && std::isfinite(phase);
    partition.partial_re[i] = known ? amplitude * std::cos(phase) : 0.0;
    partition.partial_im[i] = known ? amplitude * std::sin(phase) : 0.0;
  }
  partition.npartial = data->nreflections;
  return ok;
}

}  // namespace

Status qx_set_qxsyspart_fpart(std::int32_t with) {
  constexpr const char* heading = "qx_set_qxsyspart_fpart():";
  Parts parts;
  QX_TRY(qx::fetch_partition(heading, parts));
  parts.partition->npartial = 0;
  QX_TRY(qx::release(parts.partition->partial_re));
  QX_TRY(qx::release(parts.partition->partial_im));
  if (with != 0) QX_TRY(copy_partial(heading, *parts.partition));
  return qx::drop_factors();
}

namespace {

// Room for the scales of all parts, those that were set kept.
Status open_scales(qxsyspart& partition, std::int32_t count) {
  if (partition.nscales >= count) return ok;
  qx::PartScale* wider = qx::allocate<qx::PartScale>(static_cast<std::size_t>(count), "psp_scale");
  if (!wider) return failed;
  std::fill_n(wider, count, qx::PartScale{});
  std::copy_n(partition.scales, partition.nscales, wider);
  QX_TRY(qx::release(partition.scales));
  partition.scales = wider;
  partition.nscales = count;
  return ok;
}

}  // namespace

Status qx_set_qxsyspart_scale(std::int32_t part, double scale, double b) {
  constexpr const char* heading = "qx_set_qxsyspart_scale():";
  Parts parts;
  QX_TRY(qx::fetch_partition(heading, parts));
  const std::int32_t count = parts.count();
  if (part == count) {
    return fail(heading, "Part %d is the solvent: its scale comes with the overall scale.", part);
  }
  if (part < 0 || part > count) return fail(heading, "There is no part %d of the system.", part);
  if (!std::isfinite(scale) || !std::isfinite(b)) {
    return fail(heading, "Invalid scale %f or B %f of a part ", scale, b);
  }
  QX_TRY(open_scales(*parts.partition, count));
  parts.partition->scales[part] = {scale, b};
  qxstructfact* sf = qx_get_qxstructfact();
  if (!qx_exist_quorix()) return failed;
  if (sf && part < sf->nparts) {
    sf->parts[part].scale = scale;
    sf->parts[part].b = b;
  }
  return ok;
}

Status qx_get_qxsyspart_count(std::int32_t* count) {
  Parts parts;
  QX_TRY(parts.fetch());
  *count = parts.count() + 1;
  return ok;
}

Status qx_print_qxsyspart() {
  Parts parts;
  QX_TRY(parts.fetch());
  const std::int32_t of_atoms = parts.of_atoms();
  for (std::int32_t part = 0; part < of_atoms; ++part) {
    std::int32_t first = 0;
    std::int32_t last = 0;
    QX_TRY(qx::atoms_of_part(part, first, last));
    const qx::PartScale scale = parts.scale(part);
    qx::say("Part %-23d: %d atoms, scale = %.5f  B = %.3f\n", part, last - first, scale.scale,
            scale.b);
  }
  if (parts.count() > of_atoms) {
    const qx::PartScale scale = parts.scale(of_atoms);
    qx::say("Part %-23d: FPART of the data, scale = %.5f  B = %.3f\n", of_atoms, scale.scale,
            scale.b);
  }
  qx::say("Part %-23d: bulk solvent\n", parts.count());
  return ok;
}
