// Files that were read once for all: who reads one of them again is handed what is there. They stay
// until the engine goes, and its registry with them.
#include "core/require.h"
#include "core/tagged.h"
#include "crystal/reflections.h"
#include "reflio/mtz.h"

#include <cstring>
#include <sys/stat.h>

using qx::fail;
using qx::ok;
using qx::Status;

namespace {

struct Shelf {
  qxmtz* first = nullptr;
  std::int64_t epoch = 0;  // of the registry that the files lie in
};
thread_local Shelf shelf;

qxmtz*& first_held() {
  if (shelf.epoch != qx::memory_epoch()) shelf = {nullptr, qx::memory_epoch()};
  return shelf.first;
}

}  // namespace

qx::FileMark qx::mark_of(const struct stat& state) noexcept {
  return {state.st_dev, state.st_ino, state.st_size, state.st_mtim.tv_sec, state.st_mtim.tv_nsec};
}

qxmtz* qx::held_mtz(const char* path) noexcept {
  struct stat state = {};
  if (!first_held() || stat(path, &state) != 0) return nullptr;
  for (qxmtz* mtz = first_held(); mtz; mtz = mtz->next_held) {
    if (std::strcmp(mtz->path, path) == 0 && mtz->mark == mark_of(state)) return mtz;
  }
  return nullptr;
}

bool qx::is_held(const qxmtz* mtz) noexcept {
  for (const qxmtz* held = first_held(); held; held = held->next_held) {
    if (held == mtz) return true;
  }
  return false;
}

void qx::let_go(const qxmtz* mtz) noexcept {
  for (qxmtz** link = &first_held(); *link; link = &(*link)->next_held) {
    if (*link != mtz) continue;
    *link = mtz->next_held;
    return;
  }
}

Status qx_hold_refdata_mtz(const qxrefdata* refdata) {
  qxmtz* mtz = refdata ? refdata->mtz : nullptr;
  if (!mtz || !mtz->path || !qx::has_rows(*mtz)) {
    return fail("qx_hold_refdata_mtz():", "mtzdata object has not been created yet");
  }
  if (qx::is_held(mtz)) return ok;
  qxmtz*& first = first_held();
  mtz->next_held = first;
  first = mtz;
  return ok;
}
