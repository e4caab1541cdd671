#include "driver/commands/file_kind.h"

#include "driver/commands/command_error.h"
#include "driver/commands/readable_file.h"

#include <quorix/map.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

namespace qx {

namespace {

constexpr std::size_t start_size = 4096;

bool begins_like_a_page(const std::string& start) {
  std::string text = start.substr(0, 512);
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const std::size_t at = text.find_first_not_of(" \t\r\n\xef\xbb\xbf");
  return at != std::string::npos &&
         (text.compare(at, 14, "<!doctype html") == 0 || text.compare(at, 5, "<html") == 0);
}

bool line_begins(const char* line, const char* with) {
  return std::strncmp(line, with, std::strlen(with)) == 0;
}

// Headers before the first atom or reflection are of any length: line by line to whatever decides.
FileKind kind_of_text(const std::string& path) {
  constexpr int most_lines = 10'000'000;
  const auto stream = gzopen(path.c_str(), "rb");
  if (!stream) return FileKind::unreadable;
  FileKind kind = FileKind::other;
  char line[256];
  for (int n = 0; n < most_lines && kind == FileKind::other; ++n) {
    if (!gzgets(stream, line, sizeof line)) break;
    if (strcasestr(line, "_refln.")) kind = FileKind::reflections;
    if (strcasestr(line, "_atom_site.")) kind = FileKind::atoms;
    for (const char* record : {"ATOM  ", "HETATM", "CRYST1"}) {
      if (line_begins(line, record)) kind = FileKind::atoms;
    }
  }
  gzclose(stream);
  return kind;
}

FileKind kind_of_content(const std::string& path) {
  std::string start;
  try {
    start = first_bytes(path, start_size);
  } catch (const CommandError&) {
    return FileKind::unreadable;
  }
  if (start.starts_with("MTZ ")) return FileKind::mtz;
  if (qx_starts_ccp4_map(start.data(), start.size()) == 1) return FileKind::map;
  if (start.starts_with(script_mark)) return FileKind::script;
  if (begins_like_a_page(start)) return FileKind::page;
  if (start.starts_with("<svg")) return FileKind::drawing;
  if (start.find('\0') != std::string::npos) return FileKind::other;
  return kind_of_text(path);
}

}  // namespace

FileKind kind_of(const std::string& path) {
  struct stat state = {};
  if (stat(path.c_str(), &state) != 0) return FileKind::missing;
  if (S_ISDIR(state.st_mode)) return FileKind::folder;
  if (!S_ISREG(state.st_mode)) return FileKind::special;
  if (state.st_size == 0) return FileKind::empty;
  if (access(path.c_str(), R_OK) != 0) return FileKind::unreadable;
  return kind_of_content(path);
}

const char* name_of(FileKind kind) {
  switch (kind) {
    case FileKind::missing:
      return "nothing";
    case FileKind::unreadable:
      return "a file that cannot be read";
    case FileKind::folder:
      return "a folder";
    case FileKind::special:
      return "a pipe or a device";
    case FileKind::empty:
      return "an empty file";
    case FileKind::mtz:
      return "an MTZ file";
    case FileKind::reflections:
      return "a file of reflections";
    case FileKind::atoms:
      return "a file of coordinates";
    case FileKind::map:
      return "a map";
    case FileKind::page:
      return "a page";
    case FileKind::drawing:
      return "a drawing";
    case FileKind::script:
      return "a script of quorix";
    case FileKind::other:
      break;
  }
  return "a file of another kind";
}

}  // namespace qx
