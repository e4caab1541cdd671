// What the engine has printed about a failure, for users who see one line of it.
#pragma once

#include <string>

namespace qx {

struct EngineReport {
  std::string routine;  // empty if nothing was printed in the form of a report
  std::string text;     // in one line
};

// What happened: the first report in `printed`, else its last paragraph.
EngineReport first_report(const std::string& printed);
// The first report in `printed`, which tells what happened, and what to do about it.
std::string report_line(const std::string& printed);
// What to do about it alone, behind a colon; empty where there is no advice.
std::string report_advice(const std::string& printed);

}  // namespace qx
