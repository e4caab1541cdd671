// Files that were read once for all: who reads one of them again is handed what is there. They stay
// until the engine goes, and its registry with them. What was lent lies in nobody's registry.
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
  const qxmtz* lent = nullptr;
  const char* lent_as = nullptr;
  std::int64_t epoch = 0;  // of the engine that the files are there for
};
thread_local Shelf shelf;

Shelf& shelf_of_engine() {
  const std::int64_t epoch = qx::memory_epoch();
  if (shelf.epoch != epoch) shelf = {nullptr, nullptr, nullptr, epoch};
  return shelf;
}

qxmtz*& first_held() { return shelf_of_engine().first; }

// Nobody writes to a file that was read.
qxmtz* lent_mtz(const char* path) {
  const Shelf& own = shelf_of_engine();
  return own.lent && std::strcmp(own.lent_as, path) == 0 ? const_cast<qxmtz*>(own.lent) : nullptr;
}

}  // namespace

qx::FileMark qx::mark_of(const struct stat& state) noexcept {
  return {state.st_dev, state.st_ino, state.st_size, state.st_mtim.tv_sec, state.st_mtim.tv_nsec};
}

qxmtz* qx::held_mtz(const char* path) noexcept {
  if (qxmtz* lent = lent_mtz(path)) return lent;
  struct stat state = {};
  if (!first_held() || stat(path, &state) != 0) return nullptr;
  for (qxmtz* mtz = first_held(); mtz; mtz = mtz->next_held) {
    if (std::strcmp(mtz->path, path) == 0 && mtz->mark == mark_of(state)) return mtz;
  }
  return nullptr;
}

bool qx::is_held(const qxmtz* mtz) noexcept {
  if (mtz && mtz == shelf_of_engine().lent) return true;
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

void qx_lend_mtz(const char* path, const qxmtz* mtz) {
  Shelf& own = shelf_of_engine();
  own.lent = mtz;
  own.lent_as = path;
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
