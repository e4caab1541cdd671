// Runs the corpus of one target, file by file, without a fuzzer: what was found once stays found.
// Usage: fuzz_replay TARGET FOLDER
#include "fuzz/target.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

std::vector<std::uint8_t> bytes_of(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

const qx::fuzz::Target* find(const char* name) {
  for (const qx::fuzz::Target& target : qx::fuzz::targets()) {
    if (std::strcmp(target.name, name) == 0) return &target;
  }
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  const qx::fuzz::Target* target = argc == 3 ? find(argv[1]) : nullptr;
  if (!target) return 2;
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(argv[2])) {
    files.push_back(std::filesystem::absolute(entry.path()));
  }
  std::sort(files.begin(), files.end());
  qx::fuzz::set_up_process();
  for (const auto& file : files) {
    std::fprintf(stderr, "%s\n", file.filename().c_str());
    const std::vector<std::uint8_t> bytes = bytes_of(file);
    target->run(bytes);
  }
  return files.empty() ? 1 : 0;
}
