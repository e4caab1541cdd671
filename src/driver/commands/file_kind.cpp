#include "driver/commands/file_kind.h"

#include "driver/commands/command_error.h"
#include "driver/commands/info/foreign_maps.h"
#include "driver/commands/readable_file.h"

#include <quorix/map.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>
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

std::vector<double> numbers_in(const std::string& line) {
  std::istringstream words(line);
  std::vector<double> numbers;
  for (std::string word; words >> word;) {
    char* end = nullptr;
    numbers.push_back(std::strtod(word.c_str(), &end));
    if (*end != '\0') return {};
  }
  return numbers;
}

// Three indices and one to three numbers, between blanks or in the fields of such lists.
bool is_listed(const std::string& line) {
  std::string apart = line;
  if (line.size() >= 28)
    apart = line.substr(0, 4) + ' ' + line.substr(4, 4) + ' ' + line.substr(8, 4) + ' ' +
            line.substr(12, 8) + ' ' + line.substr(20, 8) + ' ' + line.substr(28);
  for (const std::string& text : {line, apart}) {
    const std::vector<double> n = numbers_in(text);
    if (n.size() < 4 || n.size() > 6) continue;
    if (std::all_of(n.begin(), n.begin() + 3,
                    [](double x) { return x == std::floor(x) && std::fabs(x) < 1e4; })) {
      return true;
    }
  }
  return false;
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
  if (!foreign_map_name(start).empty()) return FileKind::map;
  if (start.starts_with(script_mark)) return FileKind::script;
  if (begins_like_a_page(start)) return FileKind::page;
  if (start.starts_with("<svg")) return FileKind::drawing;
  if (start.find('\0') != std::string::npos) return FileKind::other;
  if (!table_word(start).empty()) return FileKind::table;
  return kind_of_text(path);
}

}  // namespace

std::string table_word(const std::string& start) {
  std::istringstream in(start);
  std::vector<std::string> lines;
  for (std::string line; lines.size() < 40 && std::getline(in, line);) {
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
    lines.push_back(line);
  }
  if (lines.size() > 3 && lines[0] == "    1" && numbers_in(lines[2].substr(0, 60)).size() == 6) {
    return "SCA";
  }
  const auto first = std::find(lines.begin(), lines.end(), "nH");
  if (lines.end() - first > 2 && first[1] == "nK" && first[2] == "nL") return "DTR";
  for (const std::string& line : lines) {
    const std::string word = line.substr(std::min(line.size(), line.find_first_not_of(" \t")), 4);
    for (const char* key : {"NREF", "DECL", "INDE"}) {
      if (strcasecmp(word.c_str(), key) == 0) return "CNS";
    }
  }
  std::erase_if(lines,
                [](const std::string& s) { return s.empty() || s[0] == '#' || s[0] == '!'; });
  const bool listed = lines.size() > 1
                          ? is_listed(lines[0]) && (lines.size() < 3 || is_listed(lines[1]))
                          : lines.size() == 1 && is_listed(lines[0]);
  return listed ? "HKL" : "";
}

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
    case FileKind::table:
      return "a list of reflections";
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
