// The root: its members, their creation and tear-down, and die.
#include "core/root.h"

#include "core/files_read.h"
#include "core/memory_system.h"
#include "core/report.h"
#include "core/tagged.h"

#include <quorix/memory.h>
#include <quorix/parser.h>

#include <cstdio>
#include <cstdlib>

extern "C" {
QX_PER_THREAD qxroot* quorix = nullptr;
QX_PER_THREAD std::int32_t die_reentrant = 0;
}

using qx::failed;
using qx::ok;
using qx::Status;

namespace {

QX_PER_THREAD std::int64_t die_count = 0;
QX_PER_THREAD bool tearing_down = false;

constexpr const char* not_set_up = "quorix system has not been set up yet.";
constexpr const char* not_there = "quorix object does not exist yet!";

template <class T>
T* member(const char* getter, const char* message, T* qxroot::*field) {
  if (!quorix) {
    (void)qx::fail(getter, "%s", message);
    return nullptr;
  }
  return quorix->*field;
}

template <class T>
Status install(const char* setter, const char* message, T* qxroot::*field, T* object) {
  if (!quorix) return qx::fail(setter, "%s", message);
  quorix->*field = object;
  return ok;
}

constexpr Status (*creators[])() = {
    qx_new_qxmemmonitor, qx_new_qxparser,  qx_new_xmolsys,   qx_new_refsys,    qx_new_qxwater,
    qx_new_qxminimizer,  qx_new_qxminparm, qx_new_qxharvest, qx_new_qxverbsys, qx_new_qxwilson,
};

constexpr Status (*deleters[])() = {
    qx_delete_qxwilson,  qx_delete_qxverbsys,   qx_delete_qxharvest,
    qx_delete_qxminparm, qx_delete_qxminimizer, qx_delete_qxwater,
    qx_delete_refsys,    qx_delete_xmolsys,     qx_delete_qxparser,
};

}  // namespace

Status qx_new_quorix() {
  qx_terminate_quorix();
  qx::forget_files_read();
  auto* root = static_cast<qxroot*>(std::malloc(sizeof(qxroot)));
  if (!root) {
    qx::note("qx_new_quorix():", "Failed to malloc quorix ");
    return failed;
  }
  quorix = new (root) qxroot{};
  for (const auto create : creators) {
    if (create() == ok) continue;
    if (quorix) die();
    return failed;
  }
  char* message = qx::allocate<char>(2048, "pnp_ms");
  if (!message) return failed;
  quorix->message = message;
  return ok;
}

Status qx_create_quorix() { return qx_new_quorix(); }

Status qx_renew_quorix() {
  if (!quorix) return qx::fail("qx_renew_quorix():", "%s", not_there);
  QX_TRY(qx_delete_refsys());  // it knows the molecules
  for (const auto create : creators) {
    if (create == qx_new_qxmemmonitor || create == qx_new_qxparser) continue;
    QX_TRY(create());
  }
  return ok;
}

void qx_delete_quorix() {
  // A report raised while members go calls die, which comes back here.
  if (!quorix || tearing_down) return;
  tearing_down = true;
  if (quorix->memmonitor) {
    for (const auto remove : deleters) (void)remove();
    (void)qx::release(quorix->message);
    qx_delete_qxmemmonitor();
  }
  std::free(quorix);
  quorix = nullptr;
  tearing_down = false;
}

void qx_terminate_quorix() { qx_delete_quorix(); }

std::int32_t qx_exist_quorix() { return quorix ? 1 : 0; }

qxroot* qx_get_quorix() { return quorix; }

void qx_set_quorix(qxroot* root) {
  if (root == quorix) return;
  qx_terminate_quorix();
  quorix = root;
}

void die() {
  ++die_count;
  die_reentrant = 1;
  qx_terminate_quorix();
}

void fdie_() { die(); }

std::int64_t qx_get_die_count() { return die_count; }

qxmemmonitor* qx_get_qxmemmonitor() {
  return member("qx_get_qxmemmonitor", not_set_up, &qxroot::memmonitor);
}
qxtimerfactory* qx_get_qxtimerfactory() {
  return member("qx_get_qxtimerfactory", not_set_up, &qxroot::timerfactory);
}
qxparser* qx_get_qxparser() { return member("qx_get_qxparser", not_set_up, &qxroot::parser); }
xmolsys* qx_get_xmolsys() { return member("qx_get_xmolsys", not_there, &qxroot::molsys); }
refsys* qx_get_refsys() { return member("qx_get_refsys", not_there, &qxroot::reflections); }
qxwater* qx_get_qxwater() { return member("qx_get_qxwater", not_there, &qxroot::water); }
qxminimizer* qx_get_qxminimizer() {
  return member("qx_get_qxminimizer", not_there, &qxroot::minimizer);
}
qxminparm* qx_get_qxminparm() { return member("qx_get_qxminparm", not_there, &qxroot::minparm); }
qxharvest* qx_get_qxharvest() { return member("qx_get_qxharvest", not_there, &qxroot::harvest); }
qxverbsys* qx_get_qxverbsys() { return member("qx_get_qxverbsys", not_there, &qxroot::verbosity); }
qxwilson* qx_get_qxwilson() { return member("qx_get_qxwilson", not_there, &qxroot::wilson); }

Status qx_set_qxmemmonitor(qxmemmonitor* object) {
  return install("qx_set_qxmemmonitor", not_set_up, &qxroot::memmonitor, object);
}
Status qx_set_qxtimerfactory(qxtimerfactory* object) {
  return install("qx_set_qxtimerfactory", not_set_up, &qxroot::timerfactory, object);
}
Status qx_set_qxparser(qxparser* object) {
  return install("qx_set_qxparser", not_set_up, &qxroot::parser, object);
}
Status qx_set_xmolsys(xmolsys* object) {
  return install("qx_set_xmolsys", not_there, &qxroot::molsys, object);
}
Status qx_set_refsys(refsys* object) {
  return install("qx_set_refsys", not_there, &qxroot::reflections, object);
}
Status qx_set_qxwater(qxwater* object) {
  return install("qx_set_qxwater", not_there, &qxroot::water, object);
}
Status qx_set_qxminimizer(qxminimizer* object) {
  return install("qx_set_qxminimizer", not_there, &qxroot::minimizer, object);
}
Status qx_set_qxminparm(qxminparm* object) {
  return install("qx_set_qxminparm", not_there, &qxroot::minparm, object);
}
Status qx_set_qxharvest(qxharvest* object) {
  return install("qx_set_qxharvest", not_there, &qxroot::harvest, object);
}
Status qx_set_qxverbsys(qxverbsys* object) {
  return install("qx_set_qxverbsys", not_there, &qxroot::verbosity, object);
}
Status qx_set_qxwilson(qxwilson* object) {
  return install("qx_set_qxwilson", not_there, &qxroot::wilson, object);
}
