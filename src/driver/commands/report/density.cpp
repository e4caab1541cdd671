// The density as the page of quorix report holds it.
#include "driver/commands/command_error.h"
#include "driver/commands/report/report.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <gemmi/unitcell.hpp>
#include <nlohmann/json.hpp>
#include <zlib.h>

namespace qx {

namespace {

constexpr int bins = 160;
constexpr double step = 0.1;      // of the embedded values, in rms
constexpr double lowest = -10.0;  // what byte 0 stands for, in rms
constexpr double most_byte = 254.0;
constexpr char not_held = '\xff';

std::string base64(const std::string& bytes) {
  constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve(bytes.size() / 3 * 4 + 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t have = std::min<std::size_t>(3, bytes.size() - i);
    unsigned word = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      word = word << 8 | (k < have ? static_cast<unsigned char>(bytes[i + k]) : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      text += k <= have ? digits[word >> (18 - 6 * k) & 63U] : '=';
    }
  }
  return text;
}

std::string gzipped(const std::string& bytes) {
  z_stream stream = {};
  constexpr int gzip_window = 15 + 16;
  if (deflateInit2(&stream, 9, Z_DEFLATED, gzip_window, 9, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw CommandError(2, "the density cannot be compressed");
  }
  std::string out(deflateBound(&stream, static_cast<uLong>(bytes.size())), '\0');
  // zlib takes what it only reads as no constant.
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int status = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  if (status != Z_STREAM_END) throw CommandError(2, "the density cannot be compressed");
  return out;
}

template <class Work>
void for_each_value(const qx_ccp4_map& map, Work work) {
  const std::size_t n = static_cast<std::size_t>(map.counts[0]) *
                        static_cast<std::size_t>(map.counts[1]) *
                        static_cast<std::size_t>(map.counts[2]);
  const double* value = map.density[0][0];
  for (std::size_t i = 0; i < n; ++i) work(value[i]);
}

char byte_of(double value, double rms) {
  const double steps = std::nearbyint((value / rms - lowest) / step);
  const double byte = std::isnan(steps) ? -lowest / step : std::clamp(steps, 0.0, most_byte);
  return static_cast<char>(static_cast<unsigned char>(byte));
}

}  // namespace

nlohmann::ordered_json density_histogram(const qx_ccp4_map& map, double rms) {
  double low = INFINITY;
  double high = -INFINITY;
  for_each_value(map, [&](double value) {
    low = std::min(low, value);
    high = std::max(high, value);
  });
  low = std::max(low, -12.0 * rms);
  high = std::min(high, 20.0 * rms);
  if (!(low < high)) {
    low = -rms;
    high = rms;
  }
  std::vector<std::int64_t> counts(bins);
  for_each_value(map, [&](double value) {
    const double place = (value - low) / (high - low) * bins;
    if (std::isnan(place)) return;
    ++counts[static_cast<std::size_t>(std::clamp(place, 0.0, bins - 1.0))];
  });
  return {{"low", low}, {"high", high}, {"counts", counts}};
}

ShownBox shown_box(const qx_ccp4_map& map, const double (&centre)[3], double most) {
  ShownBox box = {};
  std::copy_n(map.counts, 3, box.counts);
  const double points = static_cast<double>(map.counts[0]) * map.counts[1] * map.counts[2];
  if (points <= most) return box;
  box.whole = false;
  // Equal edges in grid points; what one axis cannot use, the longer ones get.
  double left = most;
  bool done[3] = {};
  for (int i = 0; i < 3; ++i) {
    int a = -1;
    for (int b = 0; b < 3; ++b) {
      if (!done[b] && (a < 0 || map.counts[b] < map.counts[a])) a = b;
    }
    done[a] = true;
    const double edge = std::pow(left, 1.0 / (3 - i));
    box.counts[a] = std::min(map.counts[a], std::max(1, static_cast<std::int32_t>(edge)));
    left /= box.counts[a];
    const double first = std::nearbyint(centre[a] - map.starts[a] - 0.5 * box.counts[a]);
    box.first[a] = static_cast<std::int32_t>(
        std::clamp(first, 0.0, static_cast<double>(map.counts[a] - box.counts[a])));
  }
  return box;
}

namespace {

bool is_whole_cell(const qx_ccp4_map& map) {
  return std::equal(map.counts, map.counts + 3, map.intervals, std::greater_equal<>());
}

std::int32_t wrapped(std::int32_t index, std::int32_t n) { return ((index % n) + n) % n; }

// The points within a radius of places, each marked in a box about all of them.
class Marked {
 public:
  Marked(const qx_ccp4_map& map, double radius)
      : map_(map),
        cell_(map.cell[0], map.cell[1], map.cell[2], map.cell[3], map.cell[4], map.cell[5]),
        radius_(radius) {
    const double stars[3] = {cell_.ar, cell_.br, cell_.cr};
    for (int a = 0; a < 3; ++a) reach_[a] = radius * stars[a] * map.intervals[a];
  }

  // In grid points of the map.
  [[nodiscard]] std::array<double, 3> on_grid(const std::array<double, 3>& place) const {
    const gemmi::Fractional at = cell_.fractionalize(gemmi::Position(place[0], place[1], place[2]));
    return {at.x * map_.intervals[0] - map_.starts[0], at.y * map_.intervals[1] - map_.starts[1],
            at.z * map_.intervals[2] - map_.starts[2]};
  }
  // False for more than `most` points, marked or not.
  bool surround(const std::vector<std::array<double, 3>>& places, double most) {
    double low[3] = {INFINITY, INFINITY, INFINITY};
    double high[3] = {-INFINITY, -INFINITY, -INFINITY};
    for (const auto& place : places) {
      const auto at = on_grid(place);
      for (int a = 0; a < 3; ++a) {
        low[a] = std::min(low[a], at[static_cast<std::size_t>(a)] - reach_[a]);
        high[a] = std::max(high[a], at[static_cast<std::size_t>(a)] + reach_[a]);
      }
    }
    double points = 1.0;
    for (int a = 0; a < 3; ++a) {
      constexpr double far = 1e8;  // no place of a crystal
      if (!(low[a] > -far && high[a] < far)) return false;
      box.first[a] = static_cast<std::int32_t>(std::floor(low[a]));
      box.counts[a] = static_cast<std::int32_t>(std::ceil(high[a])) - box.first[a] + 1;
      if (box.counts[a] >= map_.intervals[a]) {
        box.first[a] = 0;
        box.counts[a] = map_.intervals[a];
      }
      points *= box.counts[a];
    }
    if (points > most) return false;
    box.held.assign(static_cast<std::size_t>(points), 0);
    return true;
  }
  void mark(const std::array<double, 3>& at) {
    std::int32_t low[3];
    std::int32_t high[3];
    for (int a = 0; a < 3; ++a) {
      low[a] = static_cast<std::int32_t>(std::ceil(at[static_cast<std::size_t>(a)] - reach_[a]));
      high[a] = static_cast<std::int32_t>(std::floor(at[static_cast<std::size_t>(a)] + reach_[a]));
    }
    for (std::int32_t z = low[2]; z <= high[2]; ++z) {
      for (std::int32_t y = low[1]; y <= high[1]; ++y) {
        for (std::int32_t x = low[0]; x <= high[0]; ++x) mark_point(at, x, y, z);
      }
    }
  }

  ShownBox box = {};
  double marked = 0.0;

 private:
  void mark_point(const std::array<double, 3>& at, std::int32_t x, std::int32_t y, std::int32_t z) {
    char& held = box.held[index(x, y, z)];
    if (held) return;
    const gemmi::Fractional apart((x - at[0]) / map_.intervals[0], (y - at[1]) / map_.intervals[1],
                                  (z - at[2]) / map_.intervals[2]);
    if (cell_.orthogonalize_difference(apart).length_sq() > radius_ * radius_) return;
    held = 1;
    marked += 1.0;
  }
  [[nodiscard]] std::size_t index(std::int32_t x, std::int32_t y, std::int32_t z) const {
    const auto place = [&](std::int32_t at, int a) {
      return static_cast<std::size_t>(wrapped(at - box.first[a], map_.intervals[a]));
    };
    const auto nx = static_cast<std::size_t>(box.counts[0]);
    const auto ny = static_cast<std::size_t>(box.counts[1]);
    return (place(z, 2) * ny + place(y, 1)) * nx + place(x, 0);
  }

  const qx_ccp4_map& map_;
  gemmi::UnitCell cell_;
  double radius_;
  double reach_[3] = {};
};

}  // namespace

std::optional<ShownBox> neighbourhood(const qx_ccp4_map& map,
                                      const std::vector<std::array<double, 3>>& places,
                                      double radius, double most) {
  constexpr double empty_share = 8.0;  // points that are not held pack to nothing
  if (!is_whole_cell(map) || places.empty()) return {};
  Marked marked(map, radius);
  if (!marked.surround(places, empty_share * most)) return {};
  for (const auto& place : places) marked.mark(marked.on_grid(place));
  if (marked.marked > most) return {};
  marked.box.whole = false;
  return std::move(marked.box);
}

nlohmann::ordered_json packed_density(const qx_ccp4_map& map, const ShownBox& box, double rms) {
  std::string bytes;
  bytes.reserve(static_cast<std::size_t>(box.counts[0]) * static_cast<std::size_t>(box.counts[1]) *
                static_cast<std::size_t>(box.counts[2]));
  // A box of the whole cell may lie across its border.
  const bool periodic = is_whole_cell(map);
  const auto index = [&](std::int32_t i, int a) {
    return periodic && !box.whole ? wrapped(box.first[a] + i, map.intervals[a]) : box.first[a] + i;
  };
  for (std::int32_t z = 0; z < box.counts[2]; ++z) {
    for (std::int32_t y = 0; y < box.counts[1]; ++y) {
      const double* row = map.density[index(z, 2)][index(y, 1)];
      for (std::int32_t x = 0; x < box.counts[0]; ++x) {
        const bool held = box.held.empty() || box.held[bytes.size()];
        bytes += held ? byte_of(row[index(x, 0)], rms) : not_held;
      }
    }
  }
  const std::vector<int> starts = {map.starts[0] + box.first[0], map.starts[1] + box.first[1],
                                   map.starts[2] + box.first[2]};
  return {{"counts", box.counts},
          {"starts", starts},
          {"step", step},
          {"lowest", lowest},
          {"data", base64(gzipped(bytes))}};
}

}  // namespace qx
