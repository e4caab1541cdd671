// What was found, as a table, as JSON, as dummy atoms.
#include "driver/commands/command_error.h"
#include "driver/commands/peaks/job.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

std::string nearest_text(const DensitySite& site) {
  return site.name.empty() ? std::string() : format("  %5.2f A from ", site.distance) + site.name;
}

std::string cut_note(std::size_t shown, std::size_t found) {
  return shown < found ? format(" (the first %zu of them)", shown) : std::string();
}

// "at least 4 rms", "beyond 4 rms either way".
std::string level_text(const PeaksReport& report, const DensityMap& map, double level) {
  const char* sign = report.positive && report.negative ? "+-" : report.negative ? "-" : "";
  return format("%s%g rms (%s%.4g %s)", sign, level / map.rms, sign, level, map.unit());
}

void tell_peaks(const DensityMap& map, const PeaksReport& report) {
  std::cout << format("peaks       %zu beyond ", report.peaks_found)
            << level_text(report, map, report.level)
            << cut_note(report.peaks.size(), report.peaks_found) << '\n';
  if (report.peaks.empty()) return;
  std::cout << format("%5s %7s %8s %9s %8s %8s\n", "#", "rms", map.absolute ? map.unit() : "height",
                      "x", "y", "z");
  std::size_t number = 0;
  for (const DensityPeakSite& peak : report.peaks) {
    std::cout << format("%5zu %7.2f %8.3f %9.2f %8.2f %8.2f", ++number, peak.in_rms, peak.value,
                        peak.xyz[0], peak.xyz[1], peak.xyz[2])
              << nearest_text(peak) << '\n';
  }
}

void tell_blobs(const PeaksOptions& options, const DensityMap& map, const PeaksReport& report) {
  std::cout << format("blobs       %zu beyond ", report.blobs_found)
            << level_text(report, map, report.blob_level)
            << format(", of %g A^3 at least", options.min_volume)
            << cut_note(report.blobs.size(), report.blobs_found) << '\n';
  if (report.blobs.empty()) return;
  std::cout << format("%5s %7s %8s %7s %9s %8s %8s\n", "#", "score", "A^3", "peak", "x", "y", "z");
  std::size_t number = 0;
  for (const DensityBlobSite& blob : report.blobs) {
    std::cout << format("%5zu %7.1f %8.1f %7.2f %9.2f %8.2f %8.2f", ++number, blob.score,
                        blob.volume, blob.peak_in_rms, blob.xyz[0], blob.xyz[1], blob.xyz[2])
              << nearest_text(blob) << '\n';
  }
}

Json place_json(const DensitySite& site) {
  Json json = {{"xyz", site.xyz}, {"fractional", site.fractional}};
  if (site.name.empty()) return json;
  json["nearest"] = site.name;
  json["distance"] = site.distance;
  return json;
}

Json peaks_json(const PeaksReport& report) {
  Json rows = Json::array();
  for (const DensityPeakSite& peak : report.peaks) {
    Json row = {{"rms", peak.in_rms}, {"height", peak.value}};
    row.update(place_json(peak));
    rows.push_back(row);
  }
  return rows;
}

Json blobs_json(const PeaksReport& report) {
  Json rows = Json::array();
  for (const DensityBlobSite& blob : report.blobs) {
    Json row = {{"score", blob.score},
                {"volume", blob.volume},
                {"peak_rms", blob.peak_in_rms},
                {"peak", blob.peak},
                {"peak_xyz", blob.peak_xyz}};
    row.update(place_json(blob));
    rows.push_back(row);
  }
  return rows;
}

// A record; places that the format has no columns for are left out by the caller.
std::string dummy_atom(int serial, char chain, int number, const double (&xyz)[3], double rms) {
  return format("HETATM%5d  O   DUM %c%4d    %8.3f%8.3f%8.3f  1.00%6.2f           O\n",
                serial % 100000, chain, number % 10000, xyz[0], xyz[1], xyz[2],
                std::clamp(std::fabs(rms), 0.0, 999.99));
}

bool has_room(const double (&xyz)[3]) {
  return std::all_of(xyz, xyz + 3, [](double x) { return x > -999.9995 && x < 9999.9995; });
}

}  // namespace

void tell(const PeaksOptions& options, const DensityMap& map, const PeaksReport& report) {
  const auto& n = map.intervals;
  std::cout << "map         " << map.kind
            << format(", rms %.5f %s%s\n", map.rms, map.unit(),
                      map.is_whole_cell() ? "" : " (a part of the cell)")
            << "group       " << map.group << format(", grid %d x %d x %d\n", n[0], n[1], n[2]);
  if (!options.no_peaks) tell_peaks(map, report);
  if (!options.no_blobs) tell_blobs(options, map, report);
}

void tell_json(const PeaksOptions& options, const DensityMap& map, const PeaksReport& report) {
  Json json = {{"input", options.map.input},
               {"map", map.kind},
               {"difference", map.difference},
               {"unit", map.absolute ? Json("e/A^3") : Json(nullptr)},
               {"rms", map.rms},
               {"cell", map.cell},
               {"space_group", map.group},
               {"grid", map.intervals},
               {"whole_cell", map.is_whole_cell()}};
  if (!options.model.empty()) json["model"] = options.model;
  if (!options.no_peaks) {
    json["level_rms"] = report.level / map.rms;
    json["peaks_found"] = report.peaks_found;
    json["peaks"] = peaks_json(report);
  }
  if (!options.no_blobs) {
    json["blob_level_rms"] = report.blob_level / map.rms;
    json["blobs_found"] = report.blobs_found;
    json["blobs"] = blobs_json(report);
  }
  if (!options.output.empty()) json["output"] = options.output;
  json["warnings"] = map.warnings;
  std::cout << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

std::string dummy_atoms(const DensityMap& map, const PeaksReport& report) {
  const double* c = map.cell;
  std::string text = "REMARK   3 DUMMY ATOMS AT PEAKS (CHAINS P, N) AND BLOBS (B, D); B: RMS\n";
  text += format("CRYST1%9.3f%9.3f%9.3f%7.2f%7.2f%7.2f %-11.11s   1\n", c[0], c[1], c[2], c[3],
                 c[4], c[5], map.known_group ? map.known_group->xhm().c_str() : "P 1");
  int serial = 0;
  const auto add = [&](char chain, int number, const double(&xyz)[3], double rms) {
    if (has_room(xyz)) text += dummy_atom(++serial, chain, number, xyz, rms);
  };
  int number = 0;
  for (const DensityPeakSite& peak : report.peaks) {
    add(peak.value > 0.0 ? 'P' : 'N', ++number, peak.xyz, peak.in_rms);
  }
  number = 0;
  for (const DensityBlobSite& blob : report.blobs) {
    add(blob.peak > 0.0 ? 'B' : 'D', ++number, blob.xyz, blob.peak_in_rms);
  }
  return text + "END\n";
}

}  // namespace qx
