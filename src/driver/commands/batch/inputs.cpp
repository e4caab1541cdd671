#include "driver/commands/batch/inputs.h"

#include "driver/commands/batch/names.h"
#include "driver/commands/command_error.h"
#include "driver/commands/convert/formats.h"
#include "driver/commands/file_kind.h"
#include "driver/commands/readable_file.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <sstream>
#include <unordered_set>

namespace qx {

namespace {

namespace fs = std::filesystem;

bool ends_like_reflections(std::string path, std::initializer_list<const char*> endings) {
  std::transform(path.begin(), path.end(), path.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (path.ends_with(".gz")) path.resize(path.size() - 3);
  return std::any_of(endings.begin(), endings.end(),
                     [&](const char* ending) { return path.ends_with(ending); });
}

bool is_named_like_reflections(const std::string& path) {
  return ends_like_reflections(path, {".mtz", ".cif", ".ent"});
}

// Coordinates and restraints share these endings, and stand in the same folders.
bool may_be_something_else(const std::string& path) {
  if (!ends_like_reflections(path, {".cif", ".ent"})) return false;
  try {
    return first_bytes(path, 1 << 20).find("_refln.") == std::string::npos;
  } catch (const CommandError&) {
    return false;  // unreadable: a data set that fails, with the reason
  }
}

class Search {
 public:
  explicit Search(const fs::path& output) {
    std::error_code error;
    output_ = fs::weakly_canonical(output, error);
  }

  void add_argument(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) throw CommandError(2, "there is no file or folder " + path);
    if (fs::is_directory(status)) {
      add_folder(path);
    } else if (is_named_like_reflections(path) || is_reflections_inside(path)) {
      add_file(path);
    } else {
      add_list(path);
    }
  }

  std::vector<std::string> paths, notes;

 private:
  static bool is_reflections_inside(const std::string& path) {
    const std::string start = first_bytes(path, 4096);
    // Lists of files are text as well: the content alone could mislead.
    if (is_named_like_table(path) && !table_word(start).empty()) return true;
    return start.starts_with("MTZ ") || start.find("\nloop_") != std::string::npos;
  }

  void add_file(const std::string& path) {
    std::error_code error;
    fs::path real = fs::weakly_canonical(path, error);
    if (error) real = fs::absolute(path, error);
    if (seen_.insert(real.string()).second) {
      paths.push_back(path.front() == '-' ? "./" + path : path);
    } else {
      notes.push_back(path + " is named twice: it is one data set");
    }
  }

  void add_folder(const fs::path& folder) {
    std::error_code error;
    if (fs::weakly_canonical(folder, error) == output_) return;
    std::vector<fs::directory_entry> entries;
    fs::directory_iterator at(folder, error);
    for (; !error && at != fs::directory_iterator(); at.increment(error)) entries.push_back(*at);
    if (error) notes.push_back("cannot search " + folder.string() + ": " + error.message());
    std::sort(entries.begin(), entries.end());
    for (const fs::directory_entry& entry : entries) {
      const std::string path = entry.path().string();
      if (entry.path().filename().string().front() == '.') continue;
      if (entry.is_directory(error)) {
        if (!entry.is_symlink(error)) add_folder(entry.path());  // links may lead in a circle
      } else if (is_named_like_reflections(path) && !entry.is_other(error) &&
                 !may_be_something_else(path)) {
        add_file(path);
      }
    }
  }

  void add_list(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw CommandError(2, "cannot read " + path);
    const fs::path folder = fs::path(path).parent_path();
    std::string line;
    for (bool first = true; std::getline(file, line); first = false) {
      if (line.find('\0') != std::string::npos) {
        throw CommandError(2, path + " is neither a reflection file nor a list of such files");
      }
      if (first && line.starts_with("\xef\xbb\xbf")) line.erase(0, 3);
      const std::string entry = without_comment(line);
      if (entry.empty()) continue;
      const fs::path member = folder / entry;
      std::error_code error;
      if (fs::is_directory(member, error)) {
        add_folder(member);
      } else {
        add_file(member.string());  // one that is missing is told in the table
      }
    }
  }

  // A # inside a word belongs to it.
  static std::string without_comment(const std::string& line) {
    constexpr const char* blanks = " \t\r\v\f";
    std::size_t end = line.size();
    for (std::size_t at = 0; (at = line.find('#', at)) != std::string::npos; ++at) {
      if (at > 0 && !std::strchr(blanks, line[at - 1])) continue;
      end = at;
      break;
    }
    const std::size_t first = line.find_first_not_of(blanks);
    if (first >= end) return {};
    return line.substr(first, line.find_last_not_of(blanks, end - 1) + 1 - first);
  }

  fs::path output_;
  std::unordered_set<std::string> seen_;
};

}  // namespace

BatchInputs find_data_sets(const std::vector<std::string>& arguments, const fs::path& output) {
  Search search(output);
  for (const std::string& argument : arguments) search.add_argument(argument);
  BatchInputs inputs;
  const std::vector<std::string> names = data_set_names(search.paths);
  for (std::size_t i = 0; i < names.size(); ++i) inputs.sets.push_back({search.paths[i], names[i]});
  inputs.notes = std::move(search.notes);
  return inputs;
}

namespace {

// The file's name without what tells its format.
std::string stem_of_file(const fs::path& path) {
  std::string name = path.filename().string();
  for (const char* ending : {".gz", ".mtz", ".cif", ".mmcif", ".ent", ".pdb"}) {
    if (name.size() > std::strlen(ending) && name.ends_with(ending)) {
      name.resize(name.size() - std::strlen(ending));
    }
  }
  if (is_named_like_table(name) && name.rfind('.') > 0) name.resize(name.rfind('.'));
  return name;
}

void replace_all(std::string& text, const std::string& mark, const std::string& with) {
  for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += with.size()) {
    text.replace(at, mark.size(), with);
  }
}

// Files with coordinates in a folder, by name.
std::vector<fs::path> coordinates_in(const fs::path& folder) {
  std::vector<fs::path> found;
  std::error_code error;
  fs::directory_iterator at(folder, error);
  for (; !error && at != fs::directory_iterator(); at.increment(error)) {
    const std::string path = at->path().string();
    const bool named = ends_like_reflections(path, {".pdb", ".ent", ".cif", ".mmcif"});
    if (at->path().filename().string().front() == '.' || !named) continue;
    if (at->is_regular_file(error) && kind_of(path) == FileKind::atoms) found.push_back(path);
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::string names_of(const std::vector<fs::path>& paths) {
  std::string text;
  for (const fs::path& path : paths) text += " " + path.filename().string();
  return text;
}

}  // namespace

void find_model(DataSet& set, const std::string& pattern) {
  const fs::path folder = fs::path(set.path).parent_path();
  if (!pattern.empty()) {
    set.model = pattern;
    replace_all(set.model, "{name}", stem_of_file(set.path));
    replace_all(set.model, "{folder}", folder.empty() ? "." : folder.string());
    std::error_code error;
    if (!fs::exists(set.model, error)) set.problem = "there is no model " + set.model;
    return;
  }
  std::vector<fs::path> models = coordinates_in(folder.empty() ? fs::path(".") : folder);
  std::vector<fs::path> own;
  for (const fs::path& path : models) {
    if (stem_of_file(path) == stem_of_file(set.path)) own.push_back(path);
  }
  if (!own.empty()) models = own;
  if (models.size() == 1) {
    set.model = models.front().string();
  } else if (models.empty()) {
    set.problem = "no model stands beside the data: name one with --model";
  } else {
    set.problem = "several models stand beside the data:" + names_of(models);
  }
}

void find_model_if_any(DataSet& set, const std::string& pattern) {
  find_model(set, pattern);
  if (pattern.empty()) set.problem.clear();
}

}  // namespace qx
