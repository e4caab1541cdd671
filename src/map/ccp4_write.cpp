// Writing the box of the map as a CCP4 file.
#include "core/open_output.h"
#include "core/report.h"
#include "core/require.h"
#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/spacegroup.h"
#include "crystal/symop.h"
#include "grid/grid.h"
#include "map/box.h"
#include "map/ccp4_file.h"
#include "map/map.h"
#include "map/plane_output.h"
#include "map/provenance.h"

#include <quorix/density_box.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

using qx::Ccp4Header;
using qx::Ccp4Item;
using qx::fail;
using qx::ItemKind;
using qx::ok;
using qx::Status;

namespace {

constexpr auto here = "qx_wr_ccp4_map():";
constexpr double extreme = 1e10;
constexpr std::int32_t record_size = 80;
constexpr std::ptrdiff_t buffer_values = 1 << 18;  // at least a section, else about a megabyte

qx::View3<const double> box_of(const qxmap& map) {
  return {map.density[0][0], std::ptrdiff_t{map.zhigh} - map.zlow + 1,
          std::ptrdiff_t{map.yhigh} - map.ylow + 1, std::ptrdiff_t{map.xhigh} - map.xlow + 1};
}

int rounded(double value) {
  return static_cast<int>(std::nearbyint(std::isnan(value) ? 0.0 : std::clamp(value, -1e9, 1e9)));
}

Ccp4Header header_of(const qxmap& map, const qx::MapStatistics& statistics, const qxcell& cell,
                     const std::int32_t (&intervals)[3], const qxspg& spg) {
  Ccp4Header header = qx::blank_ccp4_header();
  const std::int32_t counts[3] = {map.xhigh - map.xlow + 1, map.yhigh - map.ylow + 1,
                                  map.zhigh - map.zlow + 1};
  const std::int32_t starts[3] = {map.xlow, map.ylow, map.zlow};
  std::copy_n(counts, 3, header.counts);
  std::copy_n(starts, 3, header.starts);
  std::copy_n(intervals, 3, header.intervals);
  header.mode = 2;
  qx::set_cell(header, cell);
  qx::set_statistics(header, statistics);
  header.space_group = spg.spg_id;
  if (map.symmetry_records) header.symmetry_bytes = record_size * spg.nops;
  if (map.zero_origin) std::fill_n(header.access + 16, 8, '\0');
  header.nlabels = 2;
  qx::set_label(header, 0, "Map generated from Quorix");
  char text[81];
  if (map.kind) {
    std::snprintf(text, sizeof text, "Map type: %s", map.kind);
  } else if (map.of_two_sets) {
    std::snprintf(text, sizeof text, "Map type: Fo - Fo");
  } else {
    std::snprintf(text, sizeof text, "Map type: %dFo - %dFc", rounded(map.u), rounded(map.v));
  }
  qx::set_label(header, 1, text);
  return header;
}

// True when all words of the item were written; else the raw writer has reported.
bool write_item(std::FILE* stream, const unsigned char* record, const Ccp4Item& item) {
  const unsigned char* bytes = record + item.offset;
  switch (item.kind) {
    case ItemKind::integers:
      return qx_write_raw_int(stream, reinterpret_cast<const std::int32_t*>(bytes), item.count) ==
             item.count;
    case ItemKind::reals:
      return qx_write_raw_float(stream, reinterpret_cast<const float*>(bytes), item.count) ==
             item.count;
    case ItemKind::stamp:
      return qx_write_machine_stamp(stream, 0) == ok;
    case ItemKind::characters:
    case ItemKind::label:
      break;
  }
  return qx_write_raw_char(stream, reinterpret_cast<const char*>(bytes), item.count) == item.count;
}

Status fail_label(const char* heading, const char* label) {
  int length = 80;
  while (length > 0 && label[length - 1] == ' ') --length;
  if (length == 0) return fail(heading, "Failed to write empty string ");
  return fail(heading, "Failed to write map label: %.*s", length, label);
}

Status write_header(const char* heading, std::FILE* stream, const Ccp4Header& header) {
  const auto* record = reinterpret_cast<const unsigned char*>(&header);
  for (const Ccp4Item& item : qx::ccp4_items()) {
    if (write_item(stream, record, item)) continue;
    if (item.kind == ItemKind::stamp) return qx::failed;
    if (item.write_text) return fail(heading, "%s", item.write_text);
    return fail_label(heading, reinterpret_cast<const char*>(record) + item.offset);
  }
  return ok;
}

// One operator a record, in the upper case that the oldest readers expect.
Status write_symmetry(const char* heading, std::FILE* stream, const qxspg& spg) {
  for (std::int32_t i = 0; i < spg.nops; ++i) {
    char text[qx::operator_text_size];
    if (!qx::format_operator(spg.ops[i], text)) {
      return fail(heading, "Failed to write symmetry operations ");
    }
    char record[record_size];
    std::fill_n(record, record_size, ' ');
    std::transform(text, text + std::strlen(text), record,
                   [](char c) { return static_cast<char>(std::toupper(c)); });
    if (qx_write_raw_char(stream, record, record_size) != record_size) {
      return fail(heading, "Failed to write symmetry operations ");
    }
  }
  return ok;
}

Status write_sections(const char* heading, std::FILE* stream, qx::View3<const double> box) {
  const std::ptrdiff_t section = box.n1 * box.n2;
  const std::ptrdiff_t together = std::clamp<std::ptrdiff_t>(buffer_values / section, 1, box.n0);
  const qx::Tagged<float> buffer(static_cast<std::size_t>(section * together), "pwcm_et");
  if (!buffer) return qx::failed;
  for (std::ptrdiff_t iz = 0; iz < box.n0; iz += together) {
    const auto count = static_cast<std::size_t>(section * std::min(together, box.n0 - iz));
    const double* source = box.row(iz, 0);
    float* target = buffer.get();
    for (std::size_t i = 0; i < count; ++i) target[i] = static_cast<float>(source[i]);
    if (std::fwrite(target, sizeof(float), count, stream) != count) {
      return fail(heading, "Failed to write map data ");
    }
  }
  return ok;
}

Status write_front(const char* heading, std::FILE* stream, const Ccp4Header& header,
                   const qxspg* symmetry) {
  QX_TRY(write_header(heading, stream, header));
  return symmetry ? write_symmetry(heading, stream, *symmetry) : ok;
}

// Planes first, as they come, and the header when the extremes are known; in a stream that only
// goes on, the other way round.
Status write_recipe(std::FILE* stream, qxmap& map, Ccp4Header& header, const qxspg* symmetry) {
  const auto finish_front = [&](const qx::Extremes& extremes) {
    qx::know_statistics(map, extremes);
    qx::set_statistics(header, map.statistics);
    return write_front(here, stream, header, symmetry);
  };
  qx::Extremes extremes;
  if (qx::takes_places(stream)) {
    const std::int64_t front = std::int64_t{sizeof header} + header.symmetry_bytes;
    QX_TRY(qx::write_planes(here, stream, front, *map.recipe, extremes));
    return finish_front(extremes);
  }
  qx::OrderedPlanes planes;
  QX_TRY(planes.open(*map.recipe, extremes));
  QX_TRY(finish_front(extremes));
  return planes.write(here, stream);
}

// Each item goes out by itself, so that a fault is reported under its own name.
Status open_map_file(const char* heading, const char* path, qx::OutputFile& file) {
  QX_TRY(qx::open_output(heading, path, file));
  std::setvbuf(file.stream(), nullptr, _IONBF, 0);
  return ok;
}

Status commit(const char* heading, qx::OutputFile& file) {
  return file.commit() ? ok : fail(heading, "Failed to write map data ");
}

}  // namespace

namespace qx {

Status write_ccp4(const char* heading, const char* path, const Ccp4Header& header,
                  const qxspg* symmetry, View3<const double> box) {
  OutputFile file;
  QX_TRY(open_map_file(heading, path, file));
  QX_TRY(write_front(heading, file.stream(), header, symmetry));
  QX_TRY(write_sections(heading, file.stream(), box));
  return commit(heading, file);
}

void set_cell(Ccp4Header& header, const qxcell& cell) {
  const double edges[6] = {cell.a, cell.b, cell.c, cell.alpha, cell.beta, cell.gamma};
  std::transform(edges, edges + 6, header.cell, [](double x) { return static_cast<float>(x); });
}

void set_statistics(Ccp4Header& header, const MapStatistics& statistics) {
  // The search for the extremes starts from these limits.
  header.minimum = static_cast<float>(std::min(extreme, statistics.minimum));
  header.maximum = static_cast<float>(std::max(-extreme, statistics.maximum));
  header.mean = static_cast<float>(statistics.mean);
  header.rms = static_cast<float>(statistics.rms);
}

}  // namespace qx

Status qx_wr_ccp4_map() {
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(here, qx_get_qxcell, cell, "qxcell object has not been created yet "));
  const qxgrid* grid = nullptr;
  QX_TRY(qx::require(here, qx_get_qxgrid, grid, "qxgrid object has not been created yet."));
  const qxspg* spg = nullptr;
  QX_TRY(qx::require(here, qx_get_qxspg, spg, "qxspg object has not been created yet "));
  qxmap* map = nullptr;
  QX_TRY(qx::require(here, qx_get_qxmap, map, "qxmap object has not been created yet."));
  if (!qx::has_density(*map)) return fail(here, "There is no way to get map coefficients.");
  if (map->density && !map->statistics_known) {
    map->statistics = qx::statistics_of(box_of(*map));
    map->statistics_known = true;
  }
  const char* path = map->path ? map->path : "";
  Ccp4Header header = header_of(*map, map->statistics, *cell, {grid->nx, grid->ny, grid->nz}, *spg);
  if (map->input) {
    QX_TRY(qx::add_provenance(*map, *grid, *spg, header));
  } else if (map->density_label) {
    qx::add_density_label(*map, header);
  }
  const qxspg* symmetry = map->symmetry_records ? spg : nullptr;
  if (map->density) return qx::write_ccp4(here, path, header, symmetry, box_of(*map));
  qx::OutputFile file;
  QX_TRY(open_map_file(here, path, file));
  QX_TRY(write_recipe(file.stream(), *map, header, symmetry));
  return commit(here, file);
}

Status qx_write_density_box(const char* path, const qx_density_box* box, const char* kind,
                            double unit, std::int32_t symmetry_records) {
  constexpr auto heading = "qx_write_density_box():";
  const qxcell* cell = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxcell, cell, "qxcell object has not been created yet "));
  const qxspg* spg = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxspg, spg, "qxspg object has not been created yet "));
  qxmap map;
  map.xlow = box->starts[0];
  map.ylow = box->starts[1];
  map.zlow = box->starts[2];
  map.xhigh = map.xlow + box->counts[0] - 1;
  map.yhigh = map.ylow + box->counts[1] - 1;
  map.zhigh = map.zlow + box->counts[2] - 1;
  map.symmetry_records = symmetry_records != 0;
  map.zero_origin = true;
  const qx::View3<const double> points = {box->density, box->counts[2], box->counts[1],
                                          box->counts[0]};
  Ccp4Header header = header_of(map, qx::statistics_of(points), *cell, box->intervals, *spg);
  char text[81];
  std::snprintf(text, sizeof text, "Map type: %s", kind);
  qx::set_label(header, 1, text);
  if (unit > 0.0) {
    map.scale = unit == 1.0 ? 0 : 1;
    map.rms = unit;
    qx::add_density_label(map, header);
  }
  return qx::write_ccp4(heading, path, header, map.symmetry_records ? spg : nullptr, points);
}
