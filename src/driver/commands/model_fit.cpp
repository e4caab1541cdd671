#include "driver/commands/model_fit.h"

#include <quorix/engine.h>
#include <quorix/scaling.h>

#include <cmath>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* warning_mark = "WARNING: ";

SectionText scale_section(const std::string& solvent) {
  SectionText text("xoverall");
  if (!solvent.empty()) text.line("param solvent " + solvent);
  return text.line("scale");
}

}  // namespace

std::string heed_warnings(const std::string& printed,
                          const std::function<void(const std::string&)>& hand_on) {
  std::string rest;
  for (std::size_t at = 0; at < printed.size();) {
    const std::size_t end = std::min(printed.find('\n', at), printed.size());
    const std::string line = printed.substr(at, end - at);
    at = end + 1;
    if (line.starts_with(warning_mark)) {
      hand_on(line.substr(std::string(warning_mark).size()));
    } else {
      rest += line + '\n';
    }
  }
  return rest;
}

std::string heed_warnings(FcalcJob& job, const std::string& printed) {
  return heed_warnings(printed, [&](const std::string& line) { warn(job, line); });
}

std::vector<SectionText> fit_sections(const std::string& solvent, bool brief) {
  std::vector<SectionText> sections;
  if (solvent != "none") sections.push_back(SectionText("xbulk").line("mask"));
  sections.push_back(scale_section(solvent));
  sections.push_back(SectionText("xoverall").line(brief ? "print brief" : "print"));
  sections.push_back(SectionText("xrfactor").line("calc").line("print"));
  return sections;
}

std::string fit_to_observations(Engine& engine, FcalcJob& job, const std::string& solvent,
                                bool brief) {
  std::string lines;
  const std::vector<SectionText> sections = fit_sections(solvent, brief);
  for (std::size_t i = 0; i < sections.size(); ++i) {
    const std::string printed = heed_warnings(job, engine.run(sections[i]));
    const bool shown = !brief || i + 2 >= sections.size();  // not how mask and fit went
    if (shown) lines += printed;
  }
  return lines;
}

Json agreement_as_json(std::int32_t n, double r, double correlation) {
  if (n < 1) return nullptr;
  return {{"reflections", n}, {"r", r}, {"correlation", correlation}};
}

Json scale_as_json() {
  qx_scale_view view = {};
  if (qx_get_scale_view(&view) != ok) return nullptr;
  constexpr const char* modes[] = {"none", "exp", "bins", "smooth"};
  Json bins = Json::array();
  for (std::int32_t i = 0; i < view.nbins; ++i) {
    bins.push_back({{"d", 1.0 / std::sqrt(view.centre[i])},
                    {"k_mask", view.k_mask[i]},
                    {"k_iso", view.k_iso[i]}});
  }
  return {{"k", view.k},
          {"b_cart", std::vector<double>(view.b, view.b + 6)},
          {"solvent",
           {{"mode", modes[view.solvent]},
            {"k_sol", view.k_sol},
            {"b_sol", view.b_sol},
            {"fraction", view.fraction}}},
          {"bins", bins}};
}

}  // namespace qx
