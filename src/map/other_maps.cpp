// Writing the box of the map for programs that read no CCP4 maps: CNS maps, as text or in Fortran's
// unformatted records, and lists of points.
#include "map/other_maps.h"

#include "core/open_output.h"
#include "core/require.h"
#include "core/tagged.h"
#include "crystal/cell.h"
#include "crystal/spacegroup.h"
#include "grid/grid.h"
#include "map/map.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace qx {

namespace {

constexpr int title_width = 80;
constexpr const char* titles[] = {" REMARKS MAP GENERATED FROM QUORIX",
                                  " REMARKS DENSITY IN THE UNITS OF THE MAP"};

// The box with all that its file tells.
struct Written {
  std::FILE* out = nullptr;
  View3<const double> box = {};
  std::int32_t low[3] = {}, grid[3] = {};
  double cell[6] = {};
  const double* frac2orth = nullptr;
  std::int32_t group = 0;
  MapStatistics statistics;

  // Counts, first and last point along each axis.
  void limits(std::int32_t (&nine)[9]) const {
    const std::ptrdiff_t n[3] = {box.n2, box.n1, box.n0};
    for (int a = 0; a < 3; ++a) {
      nine[3 * a] = grid[a];
      nine[3 * a + 1] = low[a];
      nine[3 * a + 2] = low[a] + static_cast<std::int32_t>(n[a]) - 1;
    }
  }
  [[nodiscard]] double deviation() const {
    const double mean = statistics.mean;
    return std::sqrt(std::fmax(0.0, statistics.rms * statistics.rms - mean * mean));
  }
};

// Six values of twelve characters a line.
bool write_values(std::FILE* out, const double* values, std::ptrdiff_t n) {
  for (std::ptrdiff_t i = 0; i < n; ++i) {
    std::fprintf(out, "%12.5E%s", in_cns_field(values[i]), i % 6 == 5 || i + 1 == n ? "\n" : "");
  }
  return std::ferror(out) == 0;
}

bool write_formatted(const Written& map) {
  std::FILE* out = map.out;
  std::fprintf(out, "\n%8d !NTITLE\n", 2);
  for (const char* title : titles) std::fprintf(out, "%s\n", title);
  std::int32_t nine[9];
  map.limits(nine);
  for (const std::int32_t number : nine) std::fprintf(out, "%8d", number);
  std::fputc('\n', out);
  bool written = write_values(out, map.cell, 6);
  std::fputs("ZYX\n", out);
  for (std::ptrdiff_t z = 0; z < map.box.n0 && written; ++z) {
    std::fprintf(out, "%8d\n", static_cast<int>(z));
    written = write_values(out, map.box.row(z, 0), map.box.n1 * map.box.n2);
  }
  std::fprintf(out, "%8d\n%12.4E%12.4E\n", -9999, in_cns_field(map.statistics.mean),
               in_cns_field(map.deviation()));
  return written;
}

// A record stands between its lengths.
bool write_record(std::FILE* out, const void* bytes, std::size_t size) {
  const auto length = static_cast<std::int32_t>(size);
  return std::fwrite(&length, sizeof length, 1, out) == 1 &&
         std::fwrite(bytes, 1, size, out) == size &&
         std::fwrite(&length, sizeof length, 1, out) == 1;
}

bool write_titles(std::FILE* out) {
  char record[4 + 2 * title_width];
  std::memset(record, ' ', sizeof record);
  const std::int32_t count = 2;
  std::memcpy(record, &count, sizeof count);
  for (int i = 0; i < 2; ++i) {
    std::memcpy(record + 4 + i * title_width, titles[i], std::strlen(titles[i]));
  }
  return write_record(out, record, sizeof record);
}

bool write_unformatted(const Written& map, float* section) {
  std::int32_t nine[9];
  map.limits(nine);
  bool written = write_titles(map.out) && write_record(map.out, nine, sizeof nine) &&
                 write_record(map.out, map.cell, sizeof map.cell) &&
                 write_record(map.out, "ZYX", 3);
  const std::ptrdiff_t points = map.box.n1 * map.box.n2;
  for (std::int32_t z = 0; z < map.box.n0 && written; ++z) {
    const double* row = map.box.row(z, 0);
    for (std::ptrdiff_t i = 0; i < points; ++i) section[i] = static_cast<float>(row[i]);
    written = write_record(map.out, &z, sizeof z) &&
              write_record(map.out, section, static_cast<std::size_t>(points) * sizeof *section);
  }
  const std::int32_t end = -9999;
  const double statistics[2] = {map.statistics.mean, map.deviation()};
  return written && write_record(map.out, &end, sizeof end) &&
         write_record(map.out, statistics, sizeof statistics);
}

// Each point with its place in Angstrom.
bool write_points(const Written& map) {
  std::FILE* out = map.out;
  const double* c = map.cell;
  std::int32_t n[9];
  map.limits(n);
  std::fprintf(out, "# Map generated from Quorix: x y z in Angstrom, density\n");
  std::fprintf(out, "# cell %.4f %.4f %.4f %.4f %.4f %.4f\n", c[0], c[1], c[2], c[3], c[4], c[5]);
  std::fprintf(out, "# group %d\n# grid %d %d %d\n# box %d %d %d %d %d %d\n", map.group, n[0], n[3],
               n[6], n[1], n[2], n[4], n[5], n[7], n[8]);
  for (std::ptrdiff_t z = 0; z < map.box.n0; ++z) {
    for (std::ptrdiff_t y = 0; y < map.box.n1; ++y) {
      const double* row = map.box.row(z, y);
      for (std::ptrdiff_t x = 0; x < map.box.n2; ++x) {
        const double f[3] = {static_cast<double>(map.low[0] + x) / map.grid[0],
                             static_cast<double>(map.low[1] + y) / map.grid[1],
                             static_cast<double>(map.low[2] + z) / map.grid[2]};
        for (int i = 0; i < 3; ++i) {
          const double* m = map.frac2orth + 4 * i;
          std::fprintf(out, "%.3f ", m[0] * f[0] + m[1] * f[1] + m[2] * f[2] + m[3]);
        }
        std::fprintf(out, "%.6g\n", row[x]);
      }
    }
    if (std::ferror(out) != 0) return false;
  }
  return true;
}

View3<const double> points_of(const qxmap& map) {
  return {map.density[0][0], std::ptrdiff_t{map.zhigh} - map.zlow + 1,
          std::ptrdiff_t{map.yhigh} - map.ylow + 1, std::ptrdiff_t{map.xhigh} - map.xlow + 1};
}

Status describe(const char* heading, qxmap& map, Written& written) {
  const qxcell* cell = nullptr;
  QX_TRY(require(heading, qx_get_qxcell, cell, "qxcell object has not been created yet "));
  const qxgrid* grid = nullptr;
  QX_TRY(require(heading, qx_get_qxgrid, grid, "qxgrid object has not been created yet."));
  const qxspg* spg = nullptr;
  QX_TRY(require(heading, qx_get_qxspg, spg, "qxspg object has not been created yet "));
  if (!has_density(map)) return fail(heading, "There is no way to get map coefficients.");
  if (!map_density(map)) return failed;
  written.box = points_of(map);
  written.statistics = statistics_of(written.box);
  const std::int32_t low[3] = {map.xlow, map.ylow, map.zlow};
  const std::int32_t counts[3] = {grid->nx, grid->ny, grid->nz};
  const double edges[6] = {cell->a, cell->b, cell->c, cell->alpha, cell->beta, cell->gamma};
  std::copy_n(low, 3, written.low);
  std::copy_n(counts, 3, written.grid);
  std::copy_n(edges, 6, written.cell);
  written.frac2orth = cell->frac2orth;
  written.group = spg->spg_id;
  return ok;
}

}  // namespace

Status write_other_map(const char* heading, qxmap& map, OtherMap format) {
  Written written;
  QX_TRY(describe(heading, map, written));
  Tagged<float> section;
  if (format == OtherMap::cns_unformatted) {
    section = Tagged<float>(static_cast<std::size_t>(written.box.n1 * written.box.n2), "pwcm_et");
    if (!section) return failed;
  }
  OutputFile file;
  QX_TRY(open_output(heading, map.path ? map.path : "", file));
  written.out = file.stream();
  const bool good = format == OtherMap::cns_formatted ? write_formatted(written)
                    : format == OtherMap::cns_unformatted
                        ? write_unformatted(written, section.get())
                        : write_points(written);
  return good && file.commit() ? ok : fail(heading, "Failed to write map data ");
}

}  // namespace qx
