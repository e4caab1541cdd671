#include "driver/commands/job_run.h"

#include "core/files_read.h"
#include "core/load_lines.h"
#include "driver/commands/command_error.h"
#include "driver/commands/file_kind.h"
#include "driver/commands/output_guard.h"

#include <quorix/engine.h>
#include <quorix/parser.h>

namespace qx {

namespace {

FileKind kind_of_output(JobFile::Use use) {
  switch (use) {
    case JobFile::Use::writes_map:
      return FileKind::map;
    case JobFile::Use::writes_mmcif:
      return FileKind::reflections;
    case JobFile::Use::writes_table:
      return FileKind::table;
    default:
      return FileKind::mtz;
  }
}

}  // namespace

void check_job_files(const JobText& text, const std::string& source, bool force) {
  std::vector<std::string> inputs;
  if (!source.empty()) inputs.push_back(source);
  std::vector<Output> outputs;
  for (const JobFile& file : text.files()) {
    if (file.use == JobFile::Use::reads_reflections || file.use == JobFile::Use::reads_table) {
      inputs.push_back(file.path);
      continue;
    }
    outputs.push_back({file.path, kind_of_output(file.use)});
    check_outputs(inputs, outputs, force);
  }
}

void JobStandIns::stand_in(JobText& text) {
  for (const JobFile& file : text.files()) {
    if (file.use == JobFile::Use::reads_reflections) {
      const FileKind kind = kind_of(file.path);
      if (kind == FileKind::mtz && !is_gzipped(file.path)) continue;
      if (!holds_reflections(kind)) continue;  // the engine tells what is wrong with it
      inputs_.push_back(readable_mtz(file.path));
      text.set_path(file, inputs_.back().path);
    } else if (file.use == JobFile::Use::reads_table) {
      if (kind_of(file.path) == FileKind::missing || !is_gzipped(file.path)) continue;
      unpacked_.push_back(std::make_unique<TemporaryFile>());
      unpack(file.path, *unpacked_.back());
      text.set_path(file, unpacked_.back()->path());
    } else if (asks_for_gzip(file.path)) {
      outputs_.push_back(std::make_unique<OutputPlace>(file.path));
      text.set_path(file, outputs_.back()->path());
    }
  }
}

void JobStandIns::deliver() const {
  for (const auto& output : outputs_) output->deliver();
}

namespace {

Status load(const std::vector<std::string>& lines, const JobPart& part) {
  std::vector<const char*> pointers;
  pointers.reserve(part.last - part.first);
  for (std::size_t i = part.first; i < part.last; ++i) pointers.push_back(lines[i].c_str());
  return load_lines(static_cast<std::int32_t>(pointers.size()), pointers.data());
}

std::optional<JobStop> where(const JobText& text, const JobPart& part) {
  const std::int32_t line = last_command_line();
  if (line < 0) return JobStop{part.last, {}};
  const std::size_t number = part.first + static_cast<std::size_t>(line);
  const JobCommand* command = text.command_at(number);
  if (!command) return {};
  return JobStop{number + 1, command->text};
}

class PartEngine {
 public:
  PartEngine() : made_(qx_create_quorix() == ok) {}
  PartEngine(const PartEngine&) = delete;
  PartEngine& operator=(const PartEngine&) = delete;
  ~PartEngine() { qx_terminate_quorix(); }
  [[nodiscard]] bool made() const { return made_; }

 private:
  bool made_;
};

}  // namespace

JobResult run_job_part(const JobText& text, const JobPart& part, std::FILE* stream,
                       const std::function<void()>& pause) {
  const PartEngine engine;
  if (!engine.made() || (stream && !note_file_read(stream))) return {};
  const auto deaths = qx_get_die_count();
  if (load(text.engine_lines(), part) != ok) return {};
  while (qx_exist_quorix() && qx_is_quorix_text_left()) {
    if (pause) pause();
    (void)qx_quorix_ctrl();
    if (qx_get_die_count() != deaths) return {false, where(text, part)};
  }
  qx_terminate_quorix();
  return {qx_get_die_count() == deaths, {}};
}

}  // namespace qx
