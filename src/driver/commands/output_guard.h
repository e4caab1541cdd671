// Nothing that a user has is written over by mistake.
#pragma once

#include "driver/commands/file_kind.h"

#include <string>
#include <vector>

namespace qx {

struct Output {
  std::string path;  // empty: not asked for
  FileKind kind;     // what will stand there
};

// For the beginning of a command, before anything is computed. Throws CommandError, with what to
// type, for an output that is an input or another output, under whatever name, and for a file that
// is there and of another kind than is to be written; `force` allows the last.
void check_outputs(const std::vector<std::string>& inputs, const std::vector<Output>& outputs,
                   bool force);

}  // namespace qx
