#include "driver/map_arguments.h"

#include "core/files_read.h"

#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace qx {

namespace {

bool is_map(const char* path) {
  const File file(path, "rb");
  char header[212];
  return file && std::fread(header, 1, sizeof header, file.get()) == sizeof header &&
         std::memcmp(header + 208, "MAP ", 4) == 0;
}

}  // namespace

bool check_map_arguments(const char* reflection_file, const char* map_file) {
  struct stat input = {};
  struct stat output = {};
  if (stat(map_file, &output) != 0 || !S_ISREG(output.st_mode)) return true;
  if (stat(reflection_file, &input) == 0 && is_same_file(input, output)) {
    std::printf("Error: <map_file> %s is the <reflection_file>: name another\n", map_file);
    return false;
  }
  if (output.st_size == 0 || is_map(map_file)) return true;
  std::printf("Error: <map_file> %s is there and is no map: remove it or name another\n", map_file);
  return false;
}

}  // namespace qx
