#include "driver/section_job.h"

#include "core/load_lines.h"
#include "core/report.h"

#include <quorix/driver.h>
#include <quorix/engine.h>
#include <quorix/parser.h>

#include <cstdlib>
#include <memory>

namespace qx {

namespace {

constexpr const char* heading = "qx_run_section_job():";

Status load_and_dispatch(std::int32_t nlines, const char* const* lines) {
  const auto deaths = qx_get_die_count();
  if (load_lines(nlines, lines) != ok) {
    return fail(heading, "Failed to set up quorix parser system. ");
  }
  if (qx_quorix_ctrl() != ok) return fail(heading, "qx_quorix_ctrl failed. ");
  if (qx_get_die_count() != deaths) return failed;
  return qx_exist_quorix() ? qx_clean_qxparser() : ok;
}

}  // namespace

Status run_section_lines(std::int32_t nlines, const char* const* lines) {
  const auto deaths = qx_get_die_count();
  const Status status = load_and_dispatch(nlines, lines);
  return qx_get_die_count() == deaths ? status : failed;
}

}  // namespace qx

void qx_run_section_job(std::int32_t nlines, const char* buffer) {
  constexpr std::ptrdiff_t slot = 1024;
  const std::unique_ptr<const char*, decltype(&std::free)> lines(
      static_cast<const char**>(
          std::malloc(sizeof(char*) * static_cast<std::size_t>(nlines > 0 ? nlines : 1))),
      std::free);
  if (!lines) {
    (void)qx::fail(qx::heading, "Failed to set up quorix parser system. ");
    return;
  }
  for (std::int32_t i = 0; i < nlines; ++i) lines.get()[i] = buffer + i * slot;
  (void)qx::run_section_lines(nlines, lines.get());
}
