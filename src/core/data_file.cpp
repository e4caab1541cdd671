#include "core/data_file.h"

#include "core/report.h"
#include "core/tagged.h"

#include <quorix/engine.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
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

namespace {

constexpr std::size_t path_size = 4096;

// The file that holds the library: its own, or the program that it is linked into. False if that
// cannot be told.
bool library_path(char (&path)[path_size]) noexcept {
  Dl_info info = {};
  if (dladdr(reinterpret_cast<const void*>(&library_path), &info) == 0 || !info.dli_fname) {
    return false;
  }
  // A program is known by the name that it was called by.
  const char* file = std::strstr(info.dli_fname, ".so") ? info.dli_fname : "/proc/self/exe";
  return realpath(file, path) != nullptr;
}

// Installed beside the library, or in the checkout whose build folder holds it: the path of a file
// there, empty without.
void find_beside_library(const char* name, char (&path)[path_size]) noexcept {
  char library[path_size];
  path[0] = '\0';
  if (!library_path(library)) return;
  *std::strrchr(library, '/') = '\0';
  for (const char* data : {"/../share/quorix", "/../../share/quorix", "/../data"}) {
    const int length = std::snprintf(path, path_size, "%s%s/xray/%s", library, data, name);
    if (length > 0 && length < static_cast<int>(path_size) && access(path, R_OK) == 0) return;
  }
  path[0] = '\0';
}

}  // namespace

char* qx_get_database_file(const char* name) {
  if (access(name, R_OK) == 0) return qx::duplicate_text(name, "pgd_file");
  if (const char* folder = std::getenv("ZENVI_DATA")) {
    const std::size_t size = std::strlen(folder) + std::strlen(name) + sizeof "/xray/";
    qx::Tagged<char> path(size, "pgd_file");
    if (!path) return nullptr;
    std::snprintf(path.get(), size, "%s/xray/%s", folder, name);
    if (access(path.get(), R_OK) == 0) return path.release();
  } else {
    char path[path_size];
    find_beside_library(name, path);
    if (path[0]) return qx::duplicate_text(path, "pgd_file");
  }
  // Kept: the second line names a variable other than the one that is looked at.
  (void)qx::fail("qx_get_database_file():",
                 "Zenvi does not know where to get file %s \n"
                 "make sure environmental variable HALDEN_EXEC has been defined ",
                 name);
  return nullptr;
}
