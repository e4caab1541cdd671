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

struct JobPart {
  std::size_t first, last;  // lines from 0, the last one not in it
};

struct JobFile {
  const JobCommand* command = nullptr;
  std::string path;
  // Tables of reflections in other formats than MTZ have uses of their own.
  enum class Use {
    reads_reflections,
    writes_reflections,
    reads_table,
    writes_table,
    writes_mmcif,
    writes_map
  } use;
};

class JobText {
 public:
  // Reads a stream to its end; a byte-order mark is no part of the text. False if reading failed.
  bool read(std::FILE* stream);

  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }
  [[nodiscard]] const std::vector<JobCommand>& commands() const { return commands_; }
  // The lines of each engine: an xter section ends one, and what stands behind it is for the next.
  [[nodiscard]] const std::vector<JobPart>& parts() const { return parts_; }
  // In the order of the text.
  [[nodiscard]] std::vector<JobFile> files() const;
  // The engine reads or writes another file in place of the one that the text names.
  void set_path(const JobFile& file, const std::string& path);
  [[nodiscard]] const std::vector<std::string>& engine_lines() const { return engine_lines_; }
  // The command that began on a line; null if none did.
  [[nodiscard]] const JobCommand* command_at(std::size_t line) const;

 private:
  void assemble();

  std::vector<std::string> lines_, engine_lines_;
  std::vector<JobCommand> commands_;
  std::vector<JobPart> parts_;
};

}  // namespace qx
