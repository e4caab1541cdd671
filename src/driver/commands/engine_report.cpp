#include "driver/commands/engine_report.h"

#include <cctype>
#include <sstream>

namespace qx {

namespace {

// Lines between empty ones, as one; false behind the last.
bool next_paragraph(std::istringstream& in, std::string& text) {
  text.clear();
  for (std::string line; std::getline(in, line);) {
    line.erase(line.find_last_not_of(" \t\r") + 1);
    line.erase(0, line.find_first_not_of(' '));
    if (line.empty() && !text.empty()) return true;
    if (!line.empty()) text += (text.empty() ? "" : " ") + line;
  }
  return !text.empty();
}

// Behind "name_of_a_routine():", with which reports begin; npos for other paragraphs.
std::size_t end_of_heading(const std::string& paragraph) {
  std::size_t at = 0;
  while (at < paragraph.size() &&
         (std::isalnum(static_cast<unsigned char>(paragraph[at])) || paragraph[at] == '_')) {
    ++at;
  }
  if (at == 0 || paragraph.compare(at, 3, "():") != 0) return std::string::npos;
  return paragraph.find_first_not_of(' ', at + 3);
}

struct Remedy {
  const char* report;  // a part of it
  const char* advice;
};

constexpr Remedy remedies[] = {
    {"proper space group", "name the group with --spacegroup, as in 'P 21 21 21' or 'R 3 :H'"},
    {"Failed to set up cell", "give the cell with --cell"},
    {"no reflection survived", "are the limits those of the data (--dmin, --dmax)?"},
    {"no resolution range", "give two limits that are apart (--dmin, --dmax)"},
    {"does not fit in memory", "take a coarser grid or a smaller extent; is the cell in Angstrom?"},
    {"Failed to open memory", "the machine has no more: take a coarser grid"},
    {"Invalid map limits", "the lower limit of --extent comes first"},
    {"Zenvi does not know", "set ZENVI_DATA to the folder that holds xray"},
    {"no intensities", "take a format that holds what the file has: MTZ, mmCIF, CNS or HKL"},
    {"no columns that mmCIF", "take a format that holds what the file has: MTZ or CNS"},
    {"for writing", "is the folder there, and may you write in it?"},
    {"Failed to open file", "is it there, and may you use it?"},
    {"Failed to write", "is the disk full?"},
    {"appears broken", "get a whole copy of it"},
    {"broken mtz", "get a whole copy of it"},
    {"Failed to read", "get a whole copy of the file"},
};

}  // namespace

std::string report_advice(const std::string& printed) {
  for (const Remedy& remedy : remedies) {
    if (printed.find(remedy.report) != std::string::npos) return std::string(": ") + remedy.advice;
  }
  return {};
}

EngineReport first_report(const std::string& printed) {
  std::istringstream in(printed);
  EngineReport first;  // the last of the other paragraphs, if there is no report
  std::string atom;
  bool found = false;
  for (std::string paragraph; next_paragraph(in, paragraph);) {
    const std::size_t text = end_of_heading(paragraph);
    const bool report = text != std::string::npos;
    if (!found) first.text = report ? paragraph.substr(text) : paragraph;
    if (!found && report) first.routine = paragraph.substr(0, paragraph.find('('));
    // The caller of what reported knows which atom it was for.
    if (found && report && paragraph.compare(text, 5, "Atom ") == 0) atom = paragraph.substr(text);
    found = found || report;
  }
  first.text += (atom.empty() ? "" : ". ") + atom;
  return first;
}

std::string report_line(const std::string& printed) {
  const std::string text = first_report(printed).text;
  return text + report_advice(text);
}

}  // namespace qx
