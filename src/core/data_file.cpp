#include "core/data_file.h"

#include "core/report.h"
#include "core/tagged.h"

#include <quorix/engine.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace qx {

bool next_significant_line(std::FILE* stream, char* line, std::size_t size) noexcept {
  const auto is_space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  while (std::fgets(line, static_cast<int>(size), stream)) {
    std::size_t length = std::strlen(line);
    while (length > 0 && is_space(line[length - 1])) --length;
    line[length] = '\0';
    std::size_t first = 0;
    while (is_space(line[first])) ++first;
    if (line[first] == '\0' || line[first] == '#') continue;
    std::memmove(line, line + first, length - first + 1);
    return true;
  }
  return false;
}

}  // namespace qx

char* qx_get_database_file(const char* name) {
  if (access(name, R_OK) == 0) return qx::duplicate_text(name, "pgd_file");
  if (const char* folder = std::getenv("ZENVI_DATA")) {
    const std::size_t size = std::strlen(folder) + std::strlen(name) + sizeof "/xray/";
    qx::Tagged<char> path(size, "pgd_file");
    if (!path) return nullptr;
    std::snprintf(path.get(), size, "%s/xray/%s", folder, name);
    if (access(path.get(), R_OK) == 0) return path.release();
  }
  // Kept: the second line names a variable other than the one that is looked at.
  (void)qx::fail("qx_get_database_file():",
                 "Zenvi does not know where to get file %s \n"
                 "make sure environmental variable HALDEN_EXEC has been defined ",
                 name);
  return nullptr;
}
