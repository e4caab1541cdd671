#include "driver/commands/batch/names.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <unordered_set>

namespace qx {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t longest = 180;  // bytes: what follows it must fit into a file's name as well

bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

bool is_utf8(const std::string& text) {
  try {
    (void)nlohmann::json(text).dump();
    return true;
  } catch (const nlohmann::json::type_error&) {
    return false;
  }
}

// What section lines, shells and other systems take without quotes.
std::string made_safe(std::string text) {
  const bool utf8 = is_utf8(text);
  for (char& c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool plain = byte < 0x80U ? std::isalnum(byte) || std::strchr("._+-=@", c) : utf8;
    if (!plain || c == '\0') c = '_';
  }
  if (text.size() > longest) {
    std::size_t end = longest;
    while (end > 0 && is_continuation(text[end])) --end;
    text.resize(end);
  }
  // Neither hidden nor like an option, nor one of the batch's own files.
  if (text.empty() || text.front() == '.' || text.front() == '-' || text.starts_with("results.") ||
      text == "shared_grid.json") {
    text.insert(0, "_");
  }
  return text;
}

// The file's name and the folders above it, with which a name is put together.
class Candidate {
 public:
  explicit Candidate(const std::string& path) {
    std::error_code error;
    const fs::path whole = fs::absolute(path, error).lexically_normal();
    full_ = whole.filename().string();
    stem_ = whole.filename();
    if (stem_.extension() == ".gz") stem_ = stem_.stem();
    stem_ = stem_.stem();
    for (const fs::path& part : whole.parent_path()) folders_.push_back(part.string());
  }

  static constexpr std::size_t levels = 7;
  // Level 0: stem; 1: folder_stem; 2: folder_file; 3: folder_folder_file ...
  [[nodiscard]] std::string name(std::size_t level) const {
    std::string text = level < 2 ? stem_.string() : full_;
    const std::size_t folders = std::min(level < 2 ? level : level - 1, above());
    for (std::size_t i = 1; i <= folders; ++i) text.insert(0, folders_[folders_.size() - i] + "_");
    return made_safe(text);
  }

 private:
  [[nodiscard]] std::size_t above() const { return std::max<std::size_t>(folders_.size(), 1) - 1; }

  fs::path stem_;
  std::string full_;
  std::vector<std::string> folders_;  // from the root on
};

struct Naming {
  Candidate candidate;
  std::size_t level = 0;
  std::string name = candidate.name(0);
};

// Gives those of one name the first longer names that are not all the same; false without such.
bool tell_apart(const std::vector<Naming*>& group) {
  std::size_t level = Candidate::levels;
  for (const Naming* naming : group) level = std::min(level, naming->level);
  while (++level < Candidate::levels) {
    const auto longer = [&](const Naming& naming) {
      return naming.candidate.name(std::max(level, naming.level));
    };
    const std::string first = longer(*group.front());
    if (std::all_of(group.begin(), group.end(),
                    [&](const Naming* naming) { return longer(*naming) == first; })) {
      continue;
    }
    for (Naming* naming : group) {
      naming->name = longer(*naming);
      naming->level = std::max(level, naming->level);
    }
    return true;
  }
  return false;
}

void number_the_rest(std::vector<std::string>& names) {
  std::unordered_set<std::string> taken(names.begin(), names.end());
  std::unordered_map<std::string, int> used;
  for (std::string& name : names) {
    int& number = used[name];
    if (number++ == 0) continue;
    while (taken.contains(name + "_" + std::to_string(number))) ++number;
    name += "_" + std::to_string(number);
    taken.insert(name);
  }
}

}  // namespace

std::vector<std::string> data_set_names(const std::vector<std::string>& paths) {
  std::vector<Naming> namings;
  namings.reserve(paths.size());
  for (const std::string& path : paths) namings.push_back({Candidate(path)});
  for (bool changed = true; changed;) {
    changed = false;
    std::unordered_map<std::string, std::vector<Naming*>> groups;
    for (Naming& naming : namings) groups[naming.name].push_back(&naming);
    for (const auto& [name, group] : groups) {
      if (group.size() > 1 && tell_apart(group)) changed = true;
    }
  }
  std::vector<std::string> names;
  names.reserve(namings.size());
  for (const Naming& naming : namings) names.push_back(naming.name);
  number_the_rest(names);
  return names;
}

}  // namespace qx
