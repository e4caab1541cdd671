// Running a text of sections, and the files that it names.
#pragma once

#include "driver/commands/job_text.h"
#include "driver/commands/output_place.h"
#include "driver/commands/reflection_file.h"

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qx {

// What a text writes and reads later is its own; no other file, nor `source`, which the text
// itself comes from (empty: no file), is written over. Throws CommandError.
void check_job_files(const JobText& text, const std::string& source, bool force);

// What the engine neither reads nor writes itself: other formats, compressed files.
class JobStandIns {
 public:
  void stand_in(JobText& text);
  void deliver() const;

 private:
  std::vector<ReadableMtz> inputs_;
  std::vector<std::unique_ptr<TemporaryFile>> unpacked_;
  std::vector<std::unique_ptr<OutputPlace>> outputs_;
};

// Where a text stopped.
struct JobStop {
  std::size_t line;     // from 1
  std::string command;  // empty: the text ends inside a section
};

struct JobResult {
  bool done = false;
  std::optional<JobStop> stop;
};

// One part in an engine of its own, which is gone afterwards. `stream` is what the text was read
// from, null if no file; `pause` is called before each section, and what it throws ends the run.
JobResult run_job_part(const JobText& text, const JobPart& part, std::FILE* stream,
                       const std::function<void()>& pause = {});

}  // namespace qx
