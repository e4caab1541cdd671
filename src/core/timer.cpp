#include "core/timer.h"

#include "core/object.h"
#include "core/say.h"
#include "core/verbosity.h"

#include <quorix/engine.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

struct qxtimerfactory {
  char section[5] = {};
  double section_seconds = 0.0;  // of its steps so far
};

using qx::Status;

// Kept: the root neither creates nor deletes one; what is left of it goes with the tagged memory.
Status qx_new_qxtimerfactory() {
  return qx::create_in(qx_delete_qxtimerfactory, qx_set_qxtimerfactory, "pnp_timer");
}
Status qx_delete_qxtimerfactory() {
  return qx::remove_from(qx_get_qxtimerfactory(), qx_set_qxtimerfactory);
}

namespace qx {

namespace {

int level() {
  if (qx_exist_quorix() == 0) return 0;
  const qxverbsys* switches = qx_get_qxverbsys();
  return switches ? switches->cpu : 0;
}

}  // namespace

double cpu_seconds() noexcept { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

void begin_timed_section(const char* word) {
  if (level() < 1) return;
  if (!qx_get_qxtimerfactory() && qx_new_qxtimerfactory() != ok) return;
  qxtimerfactory* factory = qx_get_qxtimerfactory();
  if (!factory) return;
  *factory = {};
  std::snprintf(factory->section, sizeof factory->section, "%s", word);
}

void tell_step(const char* word, double start) {
  constexpr double least = 1e-3;
  const int wanted = level();
  if (wanted < 1) return;
  qxtimerfactory* factory = qx_get_qxtimerfactory();
  if (!factory) return;
  const double seconds = cpu_seconds() - start;
  factory->section_seconds += seconds;
  if (wanted < 2 && seconds < least) return;
  say("Processor time %-4s %-4s     : %.3f s, %.3f s of the section\n", factory->section, word,
      seconds, factory->section_seconds);
}

std::time_t time_of_files() noexcept {
  const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
  return epoch ? static_cast<std::time_t>(std::strtoll(epoch, nullptr, 10)) : std::time(nullptr);
}

}  // namespace qx
