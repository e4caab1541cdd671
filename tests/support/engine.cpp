#include "support/engine.h"

#include <quorix/parser.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qx::test {

namespace {

std::string* taken = nullptr;  // by the innermost capture

void take(void* /*context*/, const char* piece, std::size_t size) { taken->append(piece, size); }

}  // namespace

std::string captured(const std::function<void()>& work) {
  std::string text;
  std::string* const outer = std::exchange(taken, &text);
  qx_set_output(take, nullptr);
  work();
  taken = outer;
  if (!outer) qx_set_output(nullptr, nullptr);
  return text;
}

bool run_section_text(const std::string& text) {
  constexpr std::size_t slot = 1024;
  std::vector<char> slots;
  std::vector<std::int32_t> lengths;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    slots.resize(slots.size() + slot, '\0');
    if (line.size() >= slot) line.resize(slot - 1);
    std::memcpy(slots.data() + lengths.size() * slot, line.data(), line.size());
    lengths.push_back(static_cast<std::int32_t>(line.size()));
    start = end + 1;
  }
  const auto before = qx_get_die_count();
  if (qx_set_parser_from_text(static_cast<std::int32_t>(lengths.size()), slots.data(),
                              lengths.data(), 0) != ok) {
    return false;
  }
  (void)qx_quorix_ctrl();
  if (qx_exist_quorix()) (void)qx_clean_qxparser();
  return qx_get_die_count() == before;
}

SectionResult section(const std::string& text) {
  SectionResult result{false, {}};
  result.output = captured([&] { result.ok = run_section_text(text); });
  return result;
}

std::filesystem::path real_data() {
  const char* named = std::getenv("QUORIX_REAL_DATA");
  const std::filesystem::path path =
      named ? std::filesystem::path(named)
            : std::filesystem::path(QUORIX_SOURCE_DIR) / ".." / "shared" / "data" / "real";
  return std::filesystem::is_directory(path) ? std::filesystem::canonical(path)
                                             : std::filesystem::path();
}

std::filesystem::path data_directory() { return std::filesystem::path(QUORIX_SOURCE_DIR) / "data"; }

ScratchDirectory::ScratchDirectory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "quorix-test-XXXXXX").string();
  path_ = mkdtemp(pattern.data());
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string read_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void Engine::SetUp() {
  setenv("ZENVI_DATA", data_directory().c_str(), 1);
  ASSERT_EQ(qx_create_quorix(), ok);
}

void Engine::TearDown() { qx_terminate_quorix(); }

}  // namespace qx::test
