#include "support/mtz_maker.h"

#include <cstring>

namespace qx::test {

namespace {

std::uint32_t bits(float value) {
  std::uint32_t word = 0;
  std::memcpy(&word, &value, 4);
  return word;
}

std::string number(std::size_t value) { return std::string(1, ' ').append(std::to_string(value)); }

}  // namespace

MtzMaker::MtzMaker(const std::vector<std::vector<int>>& indices) {
  const char* labels[] = {"H", "K", "L"};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    columns.push_back({labels[axis], 'H', 0, {}});
    for (const auto& hkl : indices) columns[axis].values.push_back(static_cast<float>(hkl[axis]));
  }
}

MtzMaker& MtzMaker::add(const std::string& label, char type, std::vector<float> values,
                        int dataset) {
  values.resize(rows());
  columns.push_back({label, type, dataset, std::move(values)});
  return *this;
}

std::size_t MtzMaker::rows() const { return columns[0].values.size(); }

std::size_t MtzMaker::header_start() const { return 80 + 4 * columns.size() * rows(); }

std::string MtzMaker::word(std::uint32_t value) const {
  std::string text(4, '\0');
  for (unsigned i = 0; i < 4; ++i) {
    const unsigned shift = 8 * (big_endian ? 3 - i : i);
    text[i] = static_cast<char>((value >> shift) & 0xffU);
  }
  return text;
}

std::string MtzMaker::record(const std::string& text) const {
  std::string line = text;
  for (const auto& [start, replacement] : edits) {
    if (line.compare(0, start.size(), start) != 0) continue;
    if (replacement.empty()) return {};
    line = replacement;
  }
  line.resize(80, ' ');
  return line;
}

std::string MtzMaker::main_header() const {
  std::string text = record("VERS " + version) + record("TITLE " + title);
  text += record("NCOL" + number(columns.size()) + number(rows()) + number(batches.size()));
  text += record("CELL " + cell) + record("SORT 1 2 3 0 0") + record("SYMINF " + symmetry);
  for (const auto& line : operators) text += record("SYMM " + line);
  text += record("RESO 0.0010 0.2500") + record("VALM " + missing);
  for (const auto& column : columns) {
    text += record("COLUMN " + column.label + " " + column.type + " -1.0000 1.0000 " +
                   std::to_string(column.dataset));
  }
  text += record("NDIF" + number(datasets.size()));
  for (const auto& set : datasets) {
    const std::string id = std::to_string(set.id) + " ";
    text += record("PROJECT " + id + set.project) + record("CRYSTAL " + id + set.crystal);
    text += record("DATASET " + id + set.name) + record("DCELL " + id + cell);
    text += record("DWAVEL " + id + std::to_string(set.wavelength));
  }
  for (const auto& line : extra) text += record(line);
  return text + record("END");
}

std::string MtzMaker::trailer() const {
  std::string text = record("MTZHIST" + number(history.size()));
  for (const auto& line : history) text += record(line);
  if (!batches.empty()) text += record("MTZBATS");
  for (const auto& batch : batches) {
    text += record("BH " + std::to_string(batch.number) +
                   number(batch.integers.size() + batch.reals.size()) +
                   number(batch.integers.size()) + number(batch.reals.size()));
    text += record("TITLE " + batch.title);
    for (const std::int32_t value : batch.integers) text += word(static_cast<std::uint32_t>(value));
    for (const float value : batch.reals) text += word(bits(value));
    text += record("BHCH AX1 AX2 AX3");
  }
  return text + record("MTZENDOFHEADERS");
}

std::string MtzMaker::bytes() const {
  const auto location = static_cast<std::uint32_t>(header_start() / 4 + 1);
  std::string text = "MTZ ";
  text += word(wide_location ? 0xffffffffU : location);
  text += big_endian ? std::string("\x11\x11\0\0", 4) : std::string("\x44\x41\0\0", 4);
  if (wide_location) text += big_endian ? word(0) + word(location) : word(location) + word(0);
  text.resize(80, '\0');
  for (std::size_t row = 0; row < rows(); ++row) {
    for (const auto& column : columns) text += word(bits(column.values[row]));
  }
  return text + main_header() + trailer();
}

std::vector<std::vector<int>> half_sphere(int hmax, int kmax, int lmax) {
  std::vector<std::vector<int>> indices;
  for (int h = -hmax; h <= hmax; ++h) {
    for (int k = -kmax; k <= kmax; ++k) {
      for (int l = 0; l <= lmax; ++l) {
        if (l > 0 || k > 0 || (k == 0 && h > 0)) indices.push_back({h, k, l});
      }
    }
  }
  return indices;
}

}  // namespace qx::test
