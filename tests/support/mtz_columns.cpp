#include "support/mtz_columns.h"

#include "support/engine.h"

#include <cstdint>
#include <cstring>

namespace qx::test {

std::vector<float> column_of(const std::string& path, const std::string& label) {
  const std::string bytes = read_file(path);
  std::uint32_t word = 0;
  std::memcpy(&word, bytes.data() + 4, 4);
  const std::size_t header = 4 * (word - 1);
  std::size_t columns = 0;
  std::size_t at = 0;
  bool found = false;
  for (std::size_t place = header; place + 80 <= bytes.size(); place += 80) {
    const std::string record = bytes.substr(place, 80);
    if (!record.starts_with("COLUMN ")) continue;
    if (record.substr(7, label.size() + 1) == label + " ") {
      at = columns;
      found = true;
    }
    ++columns;
  }
  std::vector<float> values;
  for (std::size_t i = at; found && i < (header - 80) / 4; i += columns) {
    float value = 0.0F;
    std::memcpy(&value, bytes.data() + 80 + 4 * i, 4);
    values.push_back(value);
  }
  return values;
}

}  // namespace qx::test
