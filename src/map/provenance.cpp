#include "map/provenance.h"

#include "core/timer.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "grid/grid.h"
#include "map/ccp4_header.h"
#include "map/map.h"

#include <quorix/version.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace qx {

namespace {

constexpr int label_size = 80;

__attribute__((format(printf, 2, 3))) void add_label(Ccp4Header& header, const char* pattern, ...) {
  char text[label_size + 1];
  std::va_list values;
  va_start(values, pattern);
  std::vsnprintf(text, sizeof text, pattern, values);
  va_end(values);
  set_label(header, header.nlabels, text);
  ++header.nlabels;
}

// Of a long name its end tells most.
void add_name(Ccp4Header& header, const char* what, const char* name) {
  const std::size_t room = label_size - std::strlen(what) - 2;
  const std::size_t length = std::strlen(name);
  if (length <= room) {
    add_label(header, "%s: %s", what, name);
  } else {
    add_label(header, "%s: ...%s", what, name + (length - room + 3));
  }
}

void add_limits(Ccp4Header& header, const qxrefdata& set) {
  if (set.nreflections < 1 || !set.s_length) return;
  const auto [least, most] = std::minmax_element(set.s_length, set.s_length + set.nreflections);
  const double low = *least > 0.0 ? 1.0 / *least : 0.0;
  add_label(header, "Resolution: %.3f to %.3f A, %d reflections", *most > 0.0 ? 1.0 / *most : 0.0,
            low, set.nreflections);
}

void add_date(Ccp4Header& header) {
  const std::time_t now = time_of_files();
  std::tm utc = {};
  char date[32] = "";
  if (gmtime_r(&now, &utc)) (void)std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S UTC", &utc);
  add_label(header, "Written: %s", date);
}

}  // namespace

// The same words and digits as readers of this label look for.
void add_density_label(const qxmap& map, Ccp4Header& header) {
  if (map.scale != 0) {
    add_label(header, "Density: scaled to rms 1 from %.6g e/A^3", map.rms);
  } else {
    add_label(header, "Density: e/A^3, not scaled");
  }
}

Status add_provenance(const qxmap& map, const qxgrid& grid, const qxspg& spg, Ccp4Header& header) {
  const qxrefdata* set = map_refdata();
  if (!set) return failed;
  add_name(header, "Input", map.input);
  if (map.columns) add_name(header, "Columns", map.columns);
  add_limits(header, *set);
  add_label(header, "Space group: %s", spg.full_name ? spg.full_name : "by its operators");
  add_label(header, "Grid: %d x %d x %d", grid.nx, grid.ny, grid.nz);
  add_density_label(map, header);
  add_label(header, "Program: Quorix %s", QUORIX_VERSION);
  add_date(header);
  return ok;
}

}  // namespace qx
