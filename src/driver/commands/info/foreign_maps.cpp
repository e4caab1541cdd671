#include "driver/commands/info/foreign_maps.h"

#include "driver/commands/command_error.h"
#include "driver/commands/readable_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <gemmi/unitcell.hpp>

namespace qx {

namespace {

constexpr const char* points_mark = "# Map generated from Quorix: x y z";
constexpr std::size_t record_frame = 4;

std::int32_t word_at(const std::string& bytes, std::size_t at) {
  std::int32_t word = 0;
  if (at + sizeof word <= bytes.size()) std::memcpy(&word, bytes.data() + at, sizeof word);
  return word;
}

bool begins_with_titles(const std::string& start) {
  const std::int32_t length = word_at(start, 0), count = word_at(start, 4);
  return count > 0 && count < 1000 && length == 4 + 80 * count &&
         word_at(start, record_frame + static_cast<std::size_t>(length)) == length;
}

class MapText {
 public:
  MapText(std::string path, std::string text) : path_(std::move(path)), text_(std::move(text)) {}

  std::string line() {
    if (at_ >= text_.size()) refuse("ends too early");
    const std::size_t end = std::min(text_.find('\n', at_), text_.size());
    std::string found = text_.substr(at_, end - at_);
    at_ = end + 1;
    if (!found.empty() && found.back() == '\r') found.pop_back();
    return found;
  }
  // Fields of one width on lines as long as they are.
  void fields(std::size_t n, std::size_t per_line, std::size_t width, std::vector<double>& values) {
    std::string now;
    for (std::size_t i = 0; i < n; ++i) {
      if (i % per_line == 0) now = line();
      values.push_back(number(now.size() > i % per_line * width
                                  ? now.substr(i % per_line * width, width)
                                  : std::string()));
    }
  }
  std::vector<double> words(const std::string& text) {
    std::vector<double> numbers;
    for (std::size_t at = 0;;) {
      at = text.find_first_not_of(' ', at);
      if (at == std::string::npos) return numbers;
      const std::size_t end = std::min(text.find(' ', at), text.size());
      numbers.push_back(number(text.substr(at, end - at)));
      at = end;
    }
  }
  double number(const std::string& field) {
    const std::size_t first = field.find_first_not_of(" +");
    const std::size_t last = field.find_last_not_of(' ');
    double value = 0.0;
    if (first == std::string::npos) refuse("has a number missing");
    const auto [end, error] = std::from_chars(field.data() + first, field.data() + last + 1, value);
    if (error != std::errc() || end != field.data() + last + 1 || !std::isfinite(value)) {
      refuse("has '" + field.substr(first, last + 1 - first) + "' where a number should be");
    }
    return value;
  }
  [[nodiscard]] bool at_end() const {
    return text_.find_first_not_of(" \r\n", at_) == std::string::npos;
  }
  [[nodiscard]] std::size_t left() const { return text_.size() - std::min(at_, text_.size()); }
  [[noreturn]] void refuse(const std::string& problem) const {
    throw CommandError(2, "the map " + path_ + " " + problem);
  }

 private:
  std::string path_, text_;
  std::size_t at_ = 0;
};

// Grid counts with first and last point of each axis.
std::size_t take_limits(const MapText& text, const std::vector<double>& nine, qx_ccp4_map& map) {
  double points = 1;
  for (std::size_t a = 0; a < 3; ++a) {
    const double n = nine[3 * a], low = nine[3 * a + 1], high = nine[3 * a + 2];
    constexpr double most = 1 << 24;
    if (n < 1 || n > most || std::fabs(low) > most || high < low || high - low >= most) {
      text.refuse("has impossible numbers of points");
    }
    map.intervals[a] = static_cast<std::int32_t>(n);
    map.starts[a] = static_cast<std::int32_t>(low);
    map.counts[a] = static_cast<std::int32_t>(high - low) + 1;
    points *= map.counts[a];
  }
  if (points > 4e9) text.refuse("has impossible numbers of points");
  return static_cast<std::size_t>(points);
}

void check_length(const MapText& text, std::size_t points, std::size_t least) {
  if (text.left() / least < points) text.refuse("is shorter than its numbers of points say");
}

void take_cell(const MapText& text, const std::vector<double>& cell, qx_ccp4_map& map) {
  const gemmi::UnitCell box(cell[0], cell[1], cell[2], cell[3], cell[4], cell[5]);
  if (!box.is_crystal() || !(box.volume > 0)) text.refuse("has no unit cell");
  std::copy_n(cell.begin(), 6, map.cell);
}

std::vector<double> read_formatted(MapText& text, MapFacts& facts) {
  (void)text.line();
  const std::string title_line = text.line();
  const double titles = text.number(title_line.substr(0, title_line.find('!')));
  for (int i = 0; i < titles; ++i) facts.labels.push_back(text.line());
  std::vector<double> nine, cell, values, end;
  text.fields(9, 9, 8, nine);
  text.fields(6, 6, 12, cell);
  take_cell(text, cell, facts.map);
  if (text.line().substr(0, 3) != "ZYX") text.refuse("has its axes in another order than ZYX");
  const std::size_t points = take_limits(text, nine, facts.map);
  check_length(text, points, 12);
  const auto sections = static_cast<std::size_t>(facts.map.counts[2]);
  for (std::size_t z = 0; z < sections; ++z) {
    (void)text.number(text.line());
    text.fields(points / sections, 6, 12, values);
  }
  if (text.number(text.line()) != -9999) text.refuse("does not end behind its last section");
  text.fields(2, 2, 12, end);
  facts.map.mean = end[0];
  facts.map.rms = end[1];
  return values;
}

std::vector<double> read_points(MapText& text, MapFacts& facts) {
  facts.labels.push_back(text.line().substr(2));
  const auto take = [&text](const char* name, std::size_t n) {
    const std::string line = text.line();
    const std::string begin = std::string("# ") + name + " ";
    if (!line.starts_with(begin)) text.refuse(std::string("has no line of its ") + name);
    std::vector<double> numbers = text.words(line.substr(begin.size()));
    if (numbers.size() != n) text.refuse(std::string("has a wrong line of its ") + name);
    return numbers;
  };
  take_cell(text, take("cell", 6), facts.map);
  facts.map.space_group = static_cast<std::int32_t>(take("group", 1)[0]);
  const std::vector<double> grid = take("grid", 3), box = take("box", 6);
  const std::size_t points = take_limits(
      text, {grid[0], box[0], box[1], grid[1], box[2], box[3], grid[2], box[4], box[5]}, facts.map);
  check_length(text, points, 8);
  std::vector<double> values;
  for (std::size_t i = 0; i < points; ++i) {
    const std::vector<double> point = text.words(text.line());
    if (point.size() != 4) text.refuse("has a line that is no point");
    values.push_back(point[3]);
  }
  if (!text.at_end()) text.refuse("goes on behind its last point");
  return values;
}

// Records between their lengths.
class MapRecords {
 public:
  MapRecords(const std::string& bytes, const MapText& text) : bytes_(bytes), text_(text) {}
  std::string next() {
    const auto size = static_cast<std::size_t>(std::max(0, word_at(bytes_, at_)));
    if (at_ + record_frame > bytes_.size() || size > bytes_.size() - at_ - record_frame ||
        bytes_.size() - at_ - record_frame - size < record_frame ||
        word_at(bytes_, at_ + record_frame + size) != static_cast<std::int32_t>(size)) {
      text_.refuse("is cut short, or has a record whose length is wrong");
    }
    std::string record = bytes_.substr(at_ + record_frame, size);
    at_ += size + 2 * record_frame;
    return record;
  }
  template <class T>
  std::vector<double> numbers(std::size_t n) {
    const std::string record = next();
    if (record.size() != n * sizeof(T)) text_.refuse("has a record of another length");
    std::vector<T> values(n);
    std::memcpy(values.data(), record.data(), record.size());
    return {values.begin(), values.end()};
  }

 private:
  const std::string& bytes_;
  const MapText& text_;
  std::size_t at_ = 0;
};

std::vector<double> read_unformatted(const std::string& bytes, const MapText& text,
                                     MapFacts& facts) {
  MapRecords records(bytes, text);
  const std::string titles = records.next();
  for (std::size_t at = 4; at + 80 <= titles.size(); at += 80) {
    std::string title = titles.substr(at, 80);
    title.erase(title.find_last_not_of(' ') + 1);
    facts.labels.push_back(title);
  }
  const std::vector<double> nine = records.numbers<std::int32_t>(9);
  take_cell(text, records.numbers<double>(6), facts.map);
  if (records.next() != "ZYX") text.refuse("has its axes in another order than ZYX");
  const std::size_t points = take_limits(text, nine, facts.map);
  check_length(text, points, sizeof(float));
  const auto sections = static_cast<std::size_t>(facts.map.counts[2]);
  std::vector<double> values;
  for (std::size_t z = 0; z < sections; ++z) {
    (void)records.numbers<std::int32_t>(1);
    const auto section = records.numbers<float>(points / sections);
    values.insert(values.end(), section.begin(), section.end());
  }
  if (records.numbers<std::int32_t>(1)[0] != -9999) {
    text.refuse("does not end behind its last section");
  }
  const auto end = records.numbers<double>(2);
  facts.map.mean = end[0];
  facts.map.rms = end[1];
  return values;
}

}  // namespace

std::string foreign_map_name(const std::string& start) {
  if (start.starts_with(points_mark)) return "list of points";
  if (begins_with_titles(start)) return "CNS map, unformatted";
  const std::size_t first = start.find('\n');
  const bool blank = first != std::string::npos && start.find_first_not_of(" \r") == first;
  const std::size_t mark = start.find("!NTITLE");
  return blank && mark < first + 40 ? "CNS map" : "";
}

MapFacts read_foreign_map_facts(const std::string& path) {
  const std::string bytes = whole_text(path);
  MapText text(path, bytes);
  MapFacts facts;
  facts.file = path;
  facts.format = foreign_map_name(bytes.substr(0, 4096));
  facts.axis_order = "xyz";
  facts.origin = "blank";
  const bool list = facts.format == "list of points";
  const std::vector<double> values = list ? read_points(text, facts)
                                     : facts.format == "CNS map"
                                         ? read_formatted(text, facts)
                                         : read_unformatted(bytes, text, facts);
  note_density(values.data(), facts);
  if (list) {
    facts.map.mean = facts.mean;
    facts.map.rms = facts.rms;
  }
  facts.map.minimum = facts.minimum;
  facts.map.maximum = facts.maximum;
  return facts;
}

}  // namespace qx
