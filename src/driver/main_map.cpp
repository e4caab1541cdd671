// quorix-map: 14 arguments in, one CCP4 map out.
#include "driver/data_directory.h"
#include "driver/map_arguments.h"
#include "driver/process.h"

#include <quorix/driver.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

int run(int argc, char** argv) {
  if (argc != 15) {
    std::printf(
        "Usage: %s <space_group> <a> <b> <c> <alpha> <beta> <gamma> <reso_high> <reso_low> "
        "<reflection_file> <map_ampl_label> <map_phase_label> <fom_label> <map_file>\n",
        argc > 0 ? argv[0] : "quorix-map");
    return argc == 2 && std::strcmp(argv[1], "--help") == 0 ? 0 : 1;
  }
  double reals[8];
  for (int k = 0; k < 8; ++k) {
    if (std::sscanf(argv[2 + k], "%lf", &reals[k]) != 1) {
      std::printf("Error: failed to parse float argument #%d\n", k);
      return 2;
    }
  }
  qx::point_to_installed_data();
  if (!qx::check_map_arguments(argv[10], argv[14])) return 1;
  return quorix_zenvi_driver2(argv[1], reals, argv[10], argv[11], argv[12], argv[13], argv[14],
                              reals[6], reals[7]);
}

}  // namespace

int main(int argc, char** argv) {
  qx::set_up_process();
  const int status = run(argc, argv);
  if (qx::finish_output() || status != 0) return status;
  std::fprintf(stderr, "quorix-map: cannot write to standard output: %s\n", std::strerror(errno));
  return 1;
}
