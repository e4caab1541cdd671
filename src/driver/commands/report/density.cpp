// The density as the page of quorix report holds it.
#include "driver/commands/command_error.h"
#include "driver/commands/report/report.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <zlib.h>

namespace qx {

namespace {

constexpr int bins = 160;
constexpr double step = 0.1;      // of the embedded values, in rms
constexpr double lowest = -10.0;  // what byte 0 stands for, in rms

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
  const double byte = std::isnan(steps) ? -lowest / step : std::clamp(steps, 0.0, 255.0);
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

nlohmann::ordered_json packed_density(const qx_ccp4_map& map, const ShownBox& box, double rms) {
  std::string bytes;
  bytes.reserve(static_cast<std::size_t>(box.counts[0]) * static_cast<std::size_t>(box.counts[1]) *
                static_cast<std::size_t>(box.counts[2]));
  for (std::int32_t z = 0; z < box.counts[2]; ++z) {
    for (std::int32_t y = 0; y < box.counts[1]; ++y) {
      const double* row = map.density[box.first[2] + z][box.first[1] + y] + box.first[0];
      for (std::int32_t x = 0; x < box.counts[0]; ++x) bytes += byte_of(row[x], rms);
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
