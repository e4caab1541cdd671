// A text of sections as quorix run sees it before the engine does: its lines, the commands that the
// engine will put together from them, and the files that they name.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace qx {

struct JobCommand {
  std::size_t first = 0, last = 0;  // lines, from 0
  std::string text;                 // without comments, continued lines joined
};

struct JobFile {
  const JobCommand* command = nullptr;
  std::string path;
  enum class Use { reads_reflections, writes_reflections, writes_map } use;
};

class JobText {
 public:
  // Reads a stream to its end; a byte-order mark is no part of the text. False if reading failed.
  bool read(std::FILE* stream);

  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }
  // Up to the end of the xter section, if there is one: nothing behind it is run.
  [[nodiscard]] const std::vector<JobCommand>& commands() const { return commands_; }
  [[nodiscard]] bool goes_on_behind_the_end() const { return goes_on_; }
  // In the order of the text.
  [[nodiscard]] std::vector<JobFile> files() const;
  // The command that began on a line; null if none did.
  [[nodiscard]] const JobCommand* command_at(std::size_t line) const;

 private:
  void assemble();

  std::vector<std::string> lines_;
  std::vector<JobCommand> commands_;
  bool goes_on_ = false;
};

}  // namespace qx
