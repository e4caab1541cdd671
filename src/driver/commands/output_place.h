// Where an output goes that the engine cannot write itself: standard output, a gzipped file.
#pragma once

#include "driver/commands/readable_file.h"

#include <memory>
#include <string>

namespace qx {

// True for names by which a gzipped file is asked for.
bool asks_for_gzip(const std::string& path);

// A name that the engine writes to, and the way from there to what was asked for.
class OutputPlace {
 public:
  // "-" is standard output only where `dash` says so.
  explicit OutputPlace(const std::string& wanted, bool dash = false);
  [[nodiscard]] std::string path() const;
  // To be called when the file is whole; throws CommandError if it does not get where it should.
  void deliver() const;

 private:
  std::string wanted_;
  bool to_standard_output_;
  std::unique_ptr<TemporaryFile> file_;  // in between; null without
};

}  // namespace qx
