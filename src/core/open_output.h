// The door for files that the engine writes: reports what keeps a file from being written.
#pragma once

#include "core/files_read.h"
#include "core/output_file.h"
#include "core/report.h"

namespace qx {

// Opens `file` at `path`; a file that this job has read, or that cannot be opened, is reported
// under `heading`.
inline Status open_output(const char* heading, const char* path, OutputFile& file) {
  if (is_file_read(path)) {
    return fail(heading, "The file \"%s\" has been read in this job: write to another one. ", path);
  }
  if (!file.open(path)) return fail(heading, "Failed to open file \"%s\" ", path);
  return ok;
}

}  // namespace qx
