// quorix-map: 14 arguments in, one CCP4 map out.
#include "driver/data_directory.h"
#include "driver/map_arguments.h"
#include "driver/process.h"

#include <quorix/driver.h>
#include <quorix/version.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// Behind the line of usage.
constexpr const char* arguments_told =
    "\nMakes a map of the whole cell from two columns of an MTZ file, scaled to an rms of 1.\n\n"
    "  <space_group>      name or number: 'P 21 21 21', P212121, 'R 3 :H', 19\n"
    "  <a>                cell edges in A\n"
    "  <b>\n"
    "  <c>\n"
    "  <alpha>            cell angles in degrees\n"
    "  <beta>\n"
    "  <gamma>\n"
    "  <reso_high>        high-resolution limit in A; 0: 1.0\n"
    "  <reso_low>         low-resolution limit in A; 0: 50.0\n"
    "  <reflection_file>  MTZ file\n"
    "  <map_ampl_label>   column of amplitudes\n"
    "  <map_phase_label>  column of phases in degrees\n"
    "  <fom_label>        '': coefficients are taken as they are\n"
    "  <map_file>         CCP4 map to write\n\n"
    "\"quorix map\" finds most of them in the file; \"man quorix-map\" tells more.\n";

int run(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::puts("quorix-map " QUORIX_VERSION);
    return 0;
  }
  if (argc != 15) {
    std::printf(
        "Usage: %s <space_group> <a> <b> <c> <alpha> <beta> <gamma> <reso_high> <reso_low> "
        "<reflection_file> <map_ampl_label> <map_phase_label> <fom_label> <map_file>\n",
        argc > 0 ? argv[0] : "quorix-map");
    if (argc != 2 || std::strcmp(argv[1], "--help") != 0) return 1;
    std::fputs(arguments_told, stdout);
    return 0;
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
  qx::check_environment("quorix-map");
  const int status = run(argc, argv);
  if (qx::finish_output() || status != 0) return status;
  std::fprintf(stderr, "quorix-map: cannot write to standard output: %s\n", std::strerror(errno));
  return 1;
}
