// The map run: arguments to five sections, line by line.
#include "core/name_code.h"
#include "core/report.h"
#include "driver/section_job.h"

#include <quorix/driver.h>
#include <quorix/engine.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using qx::Status;

namespace {

Status no_memory() {
  return qx::fail("quorix_zenvi_driver2():", "Failed to compose the section. ");
}

// The lines of one section, each as long as its values make it.
class Script {
 public:
  Script() = default;
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;
  ~Script() {
    for (int i = 0; i < count_; ++i) std::free(lines_[i]);
  }

  void add(const char* format, ...) QX_PRINTF(2, 3) {
    std::va_list values;
    va_start(values, format);
    char* line = nullptr;
    if (vasprintf(&line, format, values) >= 0) {
      lines_[count_++] = line;
    } else {
      whole_ = false;
    }
    va_end(values);
  }
  // A script that lacks a line would make another map.
  [[nodiscard]] Status run() const {
    if (!whole_) return no_memory();
    return qx::run_section_lines(count_, lines_);
  }

 private:
  char* lines_[8] = {};
  int count_ = 0;
  bool whole_ = true;
};

// A label as the script carries it: as it is, unless the line would lose its end or the next line.
class ScriptLabel {
 public:
  explicit ScriptLabel(const char* label) : text_(label) {
    const std::size_t size = std::strlen(label);
    const bool goes_on = size > 0 && std::strchr("-&", label[size - 1]);
    if (!goes_on && !std::strpbrk(label, "#!") && !qx::opens_name_code(label)) return;
    code_ = static_cast<char*>(std::malloc(qx::coded_size(label)));
    if (code_) qx::code_name(label, code_);
    text_ = code_;
  }
  ScriptLabel(const ScriptLabel&) = delete;
  ScriptLabel& operator=(const ScriptLabel&) = delete;
  ~ScriptLabel() { std::free(code_); }
  // Null without memory.
  [[nodiscard]] const char* text() const { return text_; }

 private:
  const char* text_;
  char* code_ = nullptr;
};

struct MapArguments {
  const char* space_group;
  const double* cell;
  const char* reflection_file;
  const char* ampl_label;
  const char* phase_label;
  const char* fom_label;  // null: none
  const char* map_file;
  double reso_high, reso_low;
};

Status run_crystal(const MapArguments& job) {
  const ScriptLabel amplitude(job.ampl_label);
  const ScriptLabel phase(job.phase_label);
  const ScriptLabel fom(job.fom_label ? job.fom_label : "");
  if (!amplitude.text() || !phase.text() || !fom.text()) return no_memory();
  Script script;
  script.add("xcry\n");
  script.add("spgname %s\n", job.space_group);
  script.add("cell %f %f %f %f %f %f\n", job.cell[0], job.cell[1], job.cell[2], job.cell[3],
             job.cell[4], job.cell[5]);
  script.add("reso %f %f\n", job.reso_high, job.reso_low);
  if (job.fom_label) {
    script.add("read refl mtz file \"%s\" coid MAP_COEFFA=%s MAP_COEFFP=%s FOM=%s\n",
               job.reflection_file, amplitude.text(), phase.text(), fom.text());
  } else {
    script.add("read refl mtz file \"%s\" coid MAP_COEFFA=%s MAP_COEFFP=%s\n", job.reflection_file,
               amplitude.text(), phase.text());
  }
  script.add("xend\n");
  return script.run();
}

Status run_grid() {
  Script script;
  script.add("xgrid\n");
  script.add("frac %f\n", 0.33);
  script.add("xend\n");
  return script.run();
}

Status run_fft() {
  Script script;
  script.add("xfft\n");
  script.add("memory %f\n", 400.0);
  script.add("xend\n");
  return script.run();
}

Status run_map(const MapArguments& job) {
  Script script;
  script.add("xmap\n");
  script.add("mapdef generated with amplitude input phase input\n");
  // Kept: xmap has no such type, so a run with a figure of merit ends there and writes no map.
  script.add("param type %s u 1 v 0 scale yes cushion 4.0\n",
             job.fom_label ? "fomweight" : "unweighted");
  script.add("extent unit\n");
  script.add("generate\n");
  script.add("write ccp4 file \"%s\"\n", job.map_file);
  script.add("xend\n");
  return script.run();
}

Status run_termination() {
  Script script;
  script.add("xter\n");
  script.add("xend\n");
  return script.run();
}

// Only the space counts as blank.
bool holds_a_label(const char* text) { return text && text[std::strspn(text, " ")] != '\0'; }

}  // namespace

Status quorix_zenvi_driver2(const char* space_group, const double cell[6],
                            const char* reflection_file, const char* ampl_label,
                            const char* phase_label, const char* fom_label, const char* map_file,
                            double reso_high, double reso_low) {
  const MapArguments job = {space_group,
                            cell,
                            reflection_file,
                            ampl_label,
                            phase_label,
                            holds_a_label(fom_label) ? fom_label : nullptr,
                            map_file,
                            0.01 > reso_high ? 1.0 : reso_high,
                            0.01 > reso_low ? 50.0 : reso_low};
  if (!qx_exist_quorix()) {
    QX_TRY(qx_create_quorix());
    QX_TRY(qx_set_qxverbsys_verb_debug(0));
  }
  QX_TRY(run_crystal(job));
  QX_TRY(run_grid());
  QX_TRY(run_fft());
  QX_TRY(run_map(job));
  return run_termination();
}
