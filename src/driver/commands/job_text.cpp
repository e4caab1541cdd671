#include "driver/commands/job_text.h"

#include "core/command_line.h"
#include "core/text.h"
#include "driver/commands/section_text.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace qx {

namespace {

bool begins(const std::string& text, const char* word) {
  return starts_with(first_word(text.c_str()).start, word);
}

// The words of a command by their first four letters, in any case.
bool word_is(const char*& at, const char* word) {
  const Word next = first_word(at);
  if (next.size == 0 || !starts_with(next.start, word)) return false;
  at = next.end();
  return true;
}

// What the engine's own search for the key "file" finds.
std::string file_named_in(const std::string& command) {
  std::string line = command;
  std::string value(line.size() + 1, '\0');
  (void)take_name_after(line.data(), find_setting(line.c_str(), "file"), value.data());
  value.resize(value.find('\0'));
  return value;
}

std::optional<JobFile::Use> use_of(const std::string& command) {
  const char* at = command.c_str();
  const bool reads = word_is(at, "read");
  if (!reads && !word_is(at, "writ")) return {};
  for (const char* word : {"ccp4", "cns", "xyz"}) {
    if (!reads && word_is(at, word)) return JobFile::Use::writes_map;
  }
  while (word_is(at, "refl")) {
  }
  if (word_is(at, "mtz")) {
    return reads ? JobFile::Use::reads_reflections : JobFile::Use::writes_reflections;
  }
  for (const char* word : {"cif", "mmc"}) {
    if (word_is(at, word)) return reads ? JobFile::Use::reads_table : JobFile::Use::writes_mmcif;
  }
  for (const char* word : {"cns", "hkl", "sca", "dtr"}) {
    if (word_is(at, word)) return reads ? JobFile::Use::reads_table : JobFile::Use::writes_table;
  }
  return {};
}

}  // namespace

bool JobText::read(std::FILE* stream) {
  std::string line;
  char piece[65536];
  for (std::size_t n = 0; (n = std::fread(piece, 1, sizeof piece, stream)) > 0;) {
    const char* end = piece + n;
    for (const char* at = piece; at != end;) {
      const char* stop = std::find(at, end, '\n');
      line.append(at, stop);
      if (stop == end) break;
      lines_.push_back(std::move(line));
      line.clear();
      at = stop + 1;
    }
  }
  if (!line.empty()) lines_.push_back(line);
  if (!lines_.empty() && lines_.front().starts_with("\xef\xbb\xbf")) lines_.front().erase(0, 3);
  while (!lines_.empty() && first_word(lines_.back().c_str()).size == 0) lines_.pop_back();
  assemble();
  return std::ferror(stream) == 0;
}

void JobText::assemble() {
  JobCommand command;
  enum { outside, inside, ending } where = outside;
  std::size_t first = 0;  // of the part
  for (std::size_t i = 0; i < lines_.size(); ++i) {
    std::string line = lines_[i].substr(0, lines_[i].find('\0'));  // as far as the engine reads it
    tidy_line(line.data());
    if (*line.c_str() == '\0') continue;
    const bool continued = chop_continuation(line.data());
    line.resize(std::strlen(line.c_str()));
    if (!line.empty()) {
      if (command.text.empty()) command.first = i;
      command.text += (command.text.empty() ? "" : " ") + line;
      command.last = i;
    }
    if (continued || command.text.empty()) continue;
    const bool ends = where != outside && begins(command.text, "xend");
    if (ends && where == ending) {
      parts_.push_back({first, i + 1});
      first = i + 1;
    }
    where = ends                           ? outside
            : where != outside             ? where
            : begins(command.text, "xter") ? ending
                                           : inside;
    commands_.push_back(std::move(command));
    command = {};
  }
  if (!command.text.empty()) commands_.push_back(std::move(command));
  if (!commands_.empty() && commands_.back().first >= first) {
    parts_.push_back({first, lines_.size()});
  }
  engine_lines_ = lines_;
}

void JobText::set_path(const JobFile& file, const std::string& path) {
  const JobCommand& command = *file.command;
  std::string line = command.text;
  const Word key = find_setting(line.c_str(), "file");
  const auto at = static_cast<std::size_t>(key.start - line.c_str());
  std::string name(line.size() + 1, '\0');
  (void)take_name_after(line.data(), key, name.data());
  line.resize(std::strlen(line.c_str()));
  engine_lines_[command.first] = line.insert(at, "file " + coded_name(path) + " ");
  for (std::size_t i = command.first + 1; i <= command.last; ++i) engine_lines_[i].clear();
}

std::vector<JobFile> JobText::files() const {
  std::vector<JobFile> files;
  for (const JobCommand& command : commands_) {
    const auto use = use_of(command.text);
    if (!use) continue;
    std::string path = file_named_in(command.text);
    if (!path.empty()) files.push_back({&command, std::move(path), *use});
  }
  return files;
}

const JobCommand* JobText::command_at(std::size_t line) const {
  const auto found = std::find_if(commands_.begin(), commands_.end(),
                                  [&](const JobCommand& command) { return command.first == line; });
  return found == commands_.end() ? nullptr : &*found;
}

}  // namespace qx
