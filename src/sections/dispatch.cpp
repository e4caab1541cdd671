// The section table and the loop over it.
#include "core/command.h"
#include "core/report.h"
#include "core/timer.h"

#include <quorix/engine.h>

#include <cstring>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

struct SectionRow {
  const char* key;
  Status (*run)();
  const char* failure;
};

constexpr SectionRow sections[] = {
    {"XCRY", qx_xcry_ctrl, "Failed to process xcry section. "},
    {"XMOD", qx_xmod_ctrl, "Failed to process xmod section. "},
    {"XRFA", qx_xrfactor_ctrl, "Failed to process xrfactor section. "},
    {"XMOL", qx_xmol_ctrl, "Failed to process xmol section. "},
    {"XPAR", qx_syspart_ctrl, "Failed to process xpartition system section. "},
    {"XTAR", qx_target_ctrl, "Failed to process target section. "},
    {"XGRI", qx_grid_ctrl, "Failed to process grid section. "},
    {"XFOR", qx_ffac_ctrl, "Failed to process xformfact section. "},
    {"XWAT", qx_water_ctrl, "Failed to process xwater pick up section. "},
    {"XCRO", qx_cross_validate_ctrl, "Failed to process xcross-validation section. "},
    {"XVER", qx_xverbose_ctrl, "Failed to process xverbose section. "},
    {"XFFT", qx_xfft_ctrl, "Failed to process xfft section. "},
    {"XFCC", qx_xfc_ctrl, "Failed to process xfc section. "},
    {"XMAP", qx_map_generation_ctrl, "Failed to process xmap generation section. "},
    {"XFOF", qx_fofomap_generation_ctrl, "Failed to process xfofo map generation section. "},
    {"XWIL", qx_wilson_ctrl, "Failed to process xwilson plot section. "},
    {"XOVE", qx_xoverall_ctrl, "Failed to process xoverall section. "},
    {"XBUL", qx_xbulk_ctrl, "Failed to process xbulk section. "},
    {"XMLF", qx_xmlf_ctrl, "Failed to process xmlf section. "},
    {"XCUT", qx_xcut_ctrl, "Failed to process xcut section. "},
    {"XOMI", qx_xomit_ctrl, "Failed to process xomit section. "},
    {"XTER", qx_xter_ctrl, "Failed to process xtermination section. "},
};

constexpr const char* heading = "qx_quorix_ctrl():";

Status dispatch() {
  char word[5];
  if (qx::next_command(word) != ok || word[0] == '\0') {
    return fail(heading, "Failed to get quorix command. ");
  }
  for (const SectionRow& row : sections) {
    if (std::strcmp(word, row.key) != 0) continue;
    qx::begin_timed_section(word);
    return row.run() == ok ? ok : fail(heading, "%s", row.failure);
  }
  return fail(heading, "*** Unknow quorix task: %s ***\n", word);
}

}  // namespace

Status qx_quorix_ctrl() {
  (void)dispatch();
  return ok;
}
