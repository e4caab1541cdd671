#include "driver/commands/whole_file.h"

#include "core/output_file.h"
#include "driver/commands/command_error.h"

#include <cerrno>
#include <cstring>

namespace qx {

void refuse_writing(const std::filesystem::path& path) {
  throw CommandError(2, "cannot write " + path.string() + ": " + std::strerror(errno));
}

void write_whole(const std::filesystem::path& path, const std::string& text) {
  OutputFile file;
  if (!file.open(path.c_str()) ||
      std::fwrite(text.data(), 1, text.size(), file.stream()) != text.size() || !file.commit()) {
    refuse_writing(path);
  }
}

}  // namespace qx
