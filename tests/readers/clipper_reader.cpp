// What clipper makes of a map, as JSON: clipper_reader MAP, with triples of grid indices (of the
// cell) on standard input. Linked with Debian's libclipper; no part of the build.
#include <clipper/clipper-ccp4.h>
#include <clipper/clipper.h>
#include <cstdio>
#include <iostream>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  clipper::CCP4MAPfile file;
  file.open_read(argv[1]);
  clipper::Xmap<float> map;
  file.import_xmap(map);
  const clipper::Spacegroup& group = map.spacegroup();
  const clipper::Cell& cell = map.cell();
  const clipper::Grid_sampling& grid = map.grid_sampling();
  const clipper::Map_stats statistics(map);
  std::printf("{\"group\": \"%s\", \"operators\": %d, ", group.symbol_hm().c_str(),
              group.num_symops());
  std::printf("\"cell\": [%.6g, %.6g, %.6g, %.6g, %.6g, %.6g], ", cell.a(), cell.b(), cell.c(),
              cell.alpha_deg(), cell.beta_deg(), cell.gamma_deg());
  std::printf("\"grid\": [%d, %d, %d], \"mean\": %.6g, \"deviation\": %.6g, \"values\": [",
              grid.nu(), grid.nv(), grid.nw(), statistics.mean(), statistics.std_dev());
  int u = 0, v = 0, w = 0;
  for (const char* separator = ""; std::cin >> u >> v >> w; separator = ", ") {
    std::printf("%s%.9g", separator, map.get_data(clipper::Coord_grid(u, v, w)));
  }
  std::printf("]}\n");
}
