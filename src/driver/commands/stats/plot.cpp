// The Wilson plot as a drawing.
#include "driver/commands/stats/job.h"

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

struct Axis {
  double low, high;    // of the values
  double first, last;  // where these lie in the drawing

  [[nodiscard]] double operator()(double value) const {
    return first + (value - low) / (high - low) * (last - first);
  }
};

// Steps of 1, 2 or 5 times a power of ten that divide the axis into four to ten.
double step_of(const Axis& axis) {
  const double rough = (axis.high - axis.low) / 8.0;
  const double power = std::pow(10.0, std::floor(std::log10(rough)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= rough) return factor * power;
  }
  return 10.0 * power;
}

std::vector<double> ticks_of(const Axis& axis) {
  const double step = step_of(axis);
  const auto first = std::lround(std::ceil(axis.low / step));
  const auto last = std::lround(std::floor(axis.high / step));
  std::vector<double> ticks;
  for (long i = first; i <= last; ++i) ticks.push_back(static_cast<double>(i) * step);
  return ticks;
}

std::string text_at(double x, double y, const char* anchor, const std::string& text) {
  std::string safe;
  for (const char c : text) {
    safe += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
  }
  return format("<text x='%.1f' y='%.1f' text-anchor='%s'>%s</text>\n", x, y, anchor, safe.c_str());
}

std::string line_between(double x1, double y1, double x2, double y2, const char* style) {
  return format("<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' %s/>\n", x1, y1, x2, y2, style);
}

constexpr const char* thin = "stroke='#888'";

std::string horizontal_axis(const Axis& x, double y) {
  std::string svg = line_between(x.first, y, x.last, y, thin);
  for (const double value : ticks_of(x)) {
    svg += line_between(x(value), y, x(value), y + 5, thin);
    svg += text_at(x(value), y + 20, "middle", format("%.3g", value));
    if (value > 0.0) {
      const std::string d = format("%.2f A", 1.0 / std::sqrt(2.0 * value));
      svg += text_at(x(value), y + 36, "middle", d);
    }
  }
  return svg + text_at(0.5 * (x.first + x.last), y + 56, "middle", "s^2 / 2, 1/A^2");
}

std::string vertical_axis(const Axis& y, double x) {
  std::string svg = line_between(x, y.first, x, y.last, thin);
  for (const double value : ticks_of(y)) {
    svg += line_between(x - 5, y(value), x, y(value), thin);
    svg += text_at(x - 9, y(value) + 4, "end", format("%.3g", value));
  }
  return svg;
}

}  // namespace

std::string wilson_plot_svg(const std::string& title, const qx_wilson_view& view,
                            const std::vector<qx_wilson_bin>& bins) {
  const auto line = [&](double half_s2) { return 2.0 * std::log(view.k) - view.b * half_s2; };
  const double end = 0.5 * bins.back().s2;
  Axis x = {0.5 * bins.front().s2, end, 70, 690};
  Axis y = {line(end), line(end), 400, 50};
  for (const qx_wilson_bin& bin : bins) {
    y.low = std::min({y.low, bin.log_ratio, line(0.5 * bin.s2)});
    y.high = std::max({y.high, bin.log_ratio, line(0.5 * bin.s2)});
  }
  x.low -= 0.05 * (x.high - x.low) + 1e-9;
  y.low -= 0.05 * (y.high - y.low) + 1e-9;
  y.high += 0.05 * (y.high - y.low) + 1e-9;
  std::string svg =
      "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 720 470' font-family='sans-serif' "
      "font-size='13'>\n<rect width='720' height='470' fill='white'/>\n";
  svg += text_at(70, 24, "start", title);
  svg += text_at(690, 24, "end",
                 format("k %.4g, B %.2f A^2, correlation %.4f", view.k, view.b, view.correlation));
  svg += text_at(70, 42, "start", "ln(<F^2/eps> / sum f^2)");
  svg += horizontal_axis(x, y.first) + vertical_axis(y, x.first);
  const double start = 0.5 * bins.front().s2;
  svg += line_between(x(start), y(line(start)), x(end), y(line(end)), "stroke='#b03030'");
  for (const qx_wilson_bin& bin : bins) {
    svg += format("<circle cx='%.1f' cy='%.1f' r='3.5' fill='#20508c'/>\n", x(0.5 * bin.s2),
                  y(bin.log_ratio));
  }
  return svg + "</svg>\n";
}

}  // namespace qx
