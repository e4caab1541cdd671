#include "driver/map_arguments.h"

#include "core/files_read.h"
#include "core/text.h"

#include <quorix/map.h>

#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace qx {

namespace {

bool is_map(const char* path) {
  const File file(path, "rb");
  char header[212];
  return file && std::fread(header, 1, sizeof header, file.get()) == sizeof header &&
         qx_starts_ccp4_map(header, sizeof header) == 1;
}

// Paths stand in the script as they are: a comment mark, a quote or a control character in one
// would quietly make it another path.
bool can_be_carried(const char* argument, const char* path) {
  for (const char* at = path; *at; ++at) {
    char name[32];
    if (!is_printable(*at)) {
      std::snprintf(name, sizeof name, "the control character %u", static_cast<unsigned>(*at));
    } else if (std::strchr("#!\"", *at)) {
      std::snprintf(name, sizeof name, "the character %c", *at);
    } else {
      continue;
    }
    std::printf(
        "Error: %s %s holds %s: use a link or another name (quorix map takes it as it is)\n",
        argument, path, name);
    return false;
  }
  return true;
}

}  // namespace

bool check_map_arguments(const char* reflection_file, const char* map_file) {
  if (!can_be_carried("<reflection_file>", reflection_file)) return false;
  if (!can_be_carried("<map_file>", map_file)) return false;
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
